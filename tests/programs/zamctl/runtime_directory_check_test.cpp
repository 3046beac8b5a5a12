#include "runtime_directory_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class RuntimeDirectoryCheck : public ::testing::Test {
protected:
    RuntimeDirectoryCheck() { system_.MakeSound(); }

    /// The last finding, which is the one that ends the checks.
    Finding Last() const { return CheckRuntimeDirectory(system_, {"fake_service"}).back(); }

    /// Checks that the last finding is a problem and that the advice of a failed connection has the
    /// same remedy and names the directory.
    void ExpectProblem(const std::string& check, const std::string& text,
                       const std::string& remedy) const {
        const Finding finding = Last();
        EXPECT_EQ(finding.check, check);
        EXPECT_EQ(finding.status, FindingStatus::Problem);
        EXPECT_THAT(finding.text, HasSubstr(text));
        EXPECT_THAT(finding.remedy, HasSubstr(remedy));
        EXPECT_THAT(ConnectRemedy(system_, "fake_service"),
                    AllOf(HasSubstr(remedy),
                          HasSubstr('\'' + ChooseRuntimeDirectory(system_).path + '\'')));
    }

    FakeSystem system_;
};

TEST_F(RuntimeDirectoryCheck, ChoosesAsTheLibraryDoes) {
    system_.variables = {{"ZAM_RUNTIME_DIR", "/own"}, {"XDG_RUNTIME_DIR", "/xdg"}};
    EXPECT_EQ(ChooseRuntimeDirectory(system_).path, "/own");
    EXPECT_EQ(ChooseRuntimeDirectory(system_).reason, "ZAM_RUNTIME_DIR");
    system_.variables = {{"XDG_RUNTIME_DIR", "/xdg"}};
    EXPECT_EQ(ChooseRuntimeDirectory(system_).path, "/xdg/zam_connector");
    EXPECT_THAT(ChooseRuntimeDirectory(system_).reason, HasSubstr("XDG_RUNTIME_DIR"));
    for (const std::map<std::string, std::string>& none :
         {std::map<std::string, std::string>{},
          std::map<std::string, std::string>{{"XDG_RUNTIME_DIR", ""}}}) {
        system_.variables = none;
        EXPECT_EQ(ChooseRuntimeDirectory(system_).path, "/run/zam_connector");
        EXPECT_THAT(ChooseRuntimeDirectory(system_).reason, HasSubstr("default"));
    }
}

TEST_F(RuntimeDirectoryCheck, FindsNothingWrongWithASoundDirectory) {
    const std::vector<Finding> findings = CheckRuntimeDirectory(system_, {"fake_service"});
    ASSERT_EQ(findings.size(), 3U);
    for (const Finding& finding : findings) {
        EXPECT_EQ(finding.status, FindingStatus::Ok) << finding.text;
        EXPECT_EQ(finding.remedy, "");
    }
    EXPECT_THAT(ConnectRemedy(system_, "fake_service"),
                HasSubstr("Start zam_connectord for the directory '/run/fake'"));
}

TEST_F(RuntimeDirectoryCheck, RefusesPathsThatAreNotAbsolute) {
    for (const std::string wrong : {"", "relative", "./here"}) {
        system_.variables["ZAM_RUNTIME_DIR"] = wrong;
        ExpectProblem("runtime_dir", "is no absolute path", "Set ZAM_RUNTIME_DIR to the absolute");
    }
}

TEST_F(RuntimeDirectoryCheck, MissesTheDirectory) {
    system_.files.clear();
    ExpectProblem("directory", "/run/fake: No such file or directory", "Start zam_connectord");
}

TEST_F(RuntimeDirectoryCheck, ReportsADirectoryThatCannotBeLookedAt) {
    system_.unreadable["/run/fake"] = "Permission denied";
    ExpectProblem("directory", "/run/fake: Permission denied", "readable for this user");
}

TEST_F(RuntimeDirectoryCheck, RefusesLinksAndFiles) {
    system_.files["/run/fake"].kind = FileKind::SymbolicLink;
    ExpectProblem("directory", "is a symbolic link", "the directory itself");
    system_.files["/run/fake"].kind = FileKind::Other;
    ExpectProblem("directory", "is no directory", "the directory itself");
}

TEST_F(RuntimeDirectoryCheck, TrustsTheUserRootAndTheServiceUser) {
    system_.serviceUser = 77;
    for (const uid_t trusted : {uid_t{0}, uid_t{1000}, uid_t{77}}) {
        system_.files["/run/fake"].owner = trusted;
        system_.files["/run/fake/fake_service.sock"].owner = trusted;
        EXPECT_EQ(Last().status, FindingStatus::Ok) << trusted;
    }
    system_.names[78] = "mallory";
    system_.files["/run/fake"].owner = 78;
    system_.files.erase("/run/fake/fake_service.sock");
    const std::vector<Finding> findings = CheckRuntimeDirectory(system_, {"fake_service"});
    EXPECT_EQ(findings[1].status, FindingStatus::Problem);
    EXPECT_THAT(findings[1].text, HasSubstr("belongs to user mallory (78), not to user 1000"));
    EXPECT_THAT(ConnectRemedy(system_, "fake_service"), HasSubstr("a directory of your own"));
}

TEST_F(RuntimeDirectoryCheck, RefusesDirectoriesThatOthersMayWrite) {
    for (const unsigned mode : {0720U, 0702U, 0777U, 01777U}) {
        system_.files["/run/fake"].mode = mode;
        const Finding finding = CheckRuntimeDirectory(system_, {"fake_service"})[1];
        EXPECT_EQ(finding.status, FindingStatus::Problem) << mode;
        EXPECT_THAT(finding.text, HasSubstr("lets others write"));
        EXPECT_EQ(finding.remedy, "Run 'chmod go-w /run/fake'.");
    }
    system_.files["/run/fake"].mode = 0755;
    EXPECT_EQ(CheckRuntimeDirectory(system_, {"fake_service"})[1].status, FindingStatus::Ok);
}

TEST_F(RuntimeDirectoryCheck, MissesTheSocket) {
    system_.files.erase("/run/fake/fake_service.sock");
    ExpectProblem("socket", "fake_service.sock: No such file or directory",
                  "Start zam_connectord for the directory '/run/fake'");
}

TEST_F(RuntimeDirectoryCheck, RefusesWhatIsNoSocket) {
    system_.files["/run/fake/fake_service.sock"].kind = FileKind::Other;
    ExpectProblem("socket", "is no socket", "Move it away");
}

TEST_F(RuntimeDirectoryCheck, RefusesASocketOfSomebodyElse) {
    system_.files["/run/fake/fake_service.sock"].owner = 5;
    ExpectProblem("socket", "belongs to user 5", "Run zam_connectord as the directory's owner");
    system_.files["/run/fake/fake_service.sock"].owner = 0;
    EXPECT_EQ(Last().status, FindingStatus::Ok);
}

}  // namespace
}  // namespace zamctl::test
