#include "runtime_directory_check.h"

#include <gtest/gtest.h>

#include "fakes.h"

namespace zamctl::test {
namespace {

using vd::FileFault;

constexpr char kStart[] =
    "Start zam_connectord for the directory '/run/fake', or set ZAM_RUNTIME_DIR to the directory "
    "in which it runs.";

/// How findings of the library are told. What it finds is tested beside it.
class RuntimeDirectoryCheck : public ::testing::Test {
protected:
    RuntimeDirectoryCheck() { system_.MakeSound(); }

    std::vector<Finding> Findings() const {
        return CheckRuntimeDirectory(system_, {"fake_service"});
    }

    /// Checks that the finding at `index` is a problem of these words, and that the advice of a
    /// failed connection has the same remedy and names the directory.
    void ExpectProblem(std::size_t index, const std::string& check, const std::string& text,
                       const std::string& remedy) const {
        SCOPED_TRACE(text);
        const std::vector<Finding> findings = Findings();
        ASSERT_GT(findings.size(), index);
        EXPECT_EQ(findings[index].check, check);
        EXPECT_EQ(findings[index].status, FindingStatus::Problem);
        EXPECT_EQ(findings[index].text, text);
        EXPECT_EQ(findings[index].remedy, remedy);
        EXPECT_EQ(ConnectRemedy(system_, "fake_service"),
                  remedy == kStart
                      ? remedy
                      : remedy + " The directory looked in is '" + Directory().path + "'.");
    }

    vd::FileDiagnosis& Directory() { return system_.runtimeDirectory.directory; }
    const vd::FileDiagnosis& Directory() const { return system_.runtimeDirectory.directory; }
    vd::FileDiagnosis& Socket() { return system_.runtimeDirectory.sockets.front(); }

    FakeSystem system_;
};

TEST_F(RuntimeDirectoryCheck, FindsNothingWrongWithASoundDirectory) {
    system_.names[1000] = "somebody";
    const std::vector<Finding> findings = Findings();
    ASSERT_EQ(findings.size(), 3U);
    for (const Finding& finding : findings) {
        EXPECT_EQ(finding.status, FindingStatus::Ok) << finding.text;
        EXPECT_EQ(finding.remedy, "");
    }
    EXPECT_EQ(findings[0].text, "/run/fake, from ZAM_RUNTIME_DIR");
    EXPECT_EQ(findings[1].text, "exists, owner user somebody (1000), mode 0700");
    EXPECT_EQ(findings[2].text, "/run/fake/fake_service.sock exists");
    EXPECT_EQ(ConnectRemedy(system_, "fake_service"), kStart);
}

TEST_F(RuntimeDirectoryCheck, RefusesPathsThatAreNotAbsolute) {
    system_.runtimeDirectory = {"its reason", {"./here", FileFault::NotAbsolute, {}, 0, 0}, {}};
    EXPECT_EQ(Findings().size(), 1U);
    ExpectProblem(0, "runtime_dir", "'./here', from its reason, is no absolute path",
                  "Set ZAM_RUNTIME_DIR to the absolute path of the directory in which "
                  "zam_connectord runs.");
}

TEST_F(RuntimeDirectoryCheck, TellsWhyTheDirectoryCannotBeUsed) {
    struct Row {
        FileFault fault;
        const char* text;
        const char* remedy;
    };
    const Row rows[] = {
        {FileFault::Missing, "/run/fake: why", kStart},
        {FileFault::NotReadable, "/run/fake: why",
         "Make the directory readable for this user, or run zamctl as a user who may read it."},
        {FileFault::SymbolicLink, "/run/fake is a symbolic link",
         "Set ZAM_RUNTIME_DIR to the directory itself."},
        {FileFault::WrongKind, "/run/fake is no directory",
         "Set ZAM_RUNTIME_DIR to the directory itself."},
        {FileFault::Owner,
         "/run/fake belongs to user mallory (78), not to user 1000, root or the service's user",
         "Run zamctl as the directory's owner, or set ZAM_RUNTIME_DIR to a directory of your own "
         "in which zam_connectord runs."},
    };
    system_.names[78] = "mallory";
    system_.runtimeDirectory.sockets.clear();
    for (const Row& row : rows) {
        Directory() = {"/run/fake", row.fault, "why", 78, 0700};
        EXPECT_EQ(Findings().size(), 2U);
        ExpectProblem(1, "directory", row.text, row.remedy);
    }
}

TEST_F(RuntimeDirectoryCheck, RefusesDirectoriesThatOthersMayWrite) {
    Directory().fault = FileFault::OthersWrite;
    for (const auto& [mode, shown] :
         {std::pair{0720U, "0720"}, {0702U, "0702"}, {0777U, "0777"}, {02777U, "2777"}}) {
        Directory().mode = mode;
        ExpectProblem(
            1, "directory",
            std::string("/run/fake: mode ") + shown + " lets others write; only its owner may",
            "Run 'chmod go-w /run/fake'.");
        EXPECT_EQ(Findings().back().text, "/run/fake/fake_service.sock exists");
    }
}

TEST_F(RuntimeDirectoryCheck, AdvisesCommandsThatDoAShellNoHarm) {
    Directory() = {{}, FileFault::OthersWrite, {}, system_.user, 0777};
    for (const auto& [path, remedy] : std::vector<std::pair<std::string, std::string>>{
             {"/run/zam-1.0/a_b", "Run 'chmod go-w /run/zam-1.0/a_b'."},
             {"/run/my dir;x", "Run: chmod go-w '/run/my dir;x'"},
             {"/run/$(x)", "Run: chmod go-w '/run/$(x)'"},
             {"/run/it's", "Run: chmod go-w '/run/it'\\''s'"},
             {"/run/~*", "Run: chmod go-w '/run/~*'"},
             {"/run/\xC3\xBC", "Run: chmod go-w '/run/\xC3\xBC'"},
             {"/run/a\nb", "Take from others the right to write the directory."},
             {"/run/\x1b[1m", "Take from others the right to write the directory."},
             {"/run/\xE2\x80\xAE", "Take from others the right to write the directory."},
             {"/run/\xFF", "Take from others the right to write the directory."}}) {
        Directory().path = path;
        ExpectProblem(1, "directory", path + ": mode 0777 lets others write; only its owner may",
                      remedy);
    }
}

TEST_F(RuntimeDirectoryCheck, AdvisesAnotherDirectoryWhereOthersAreMeantToWrite) {
    constexpr char kAnother[] =
        "Set ZAM_RUNTIME_DIR to a directory that only its owner may write, in which "
        "zam_connectord runs.";
    Directory() = {"/tmp", FileFault::OthersWrite, {}, 0, 01777};
    ExpectProblem(1, "directory", "/tmp: mode 1777 lets others write; only its owner may",
                  kAnother);
    Directory().owner = system_.user;
    ExpectProblem(1, "directory", "/tmp: mode 1777 lets others write; only its owner may",
                  kAnother);
    Directory() = {"/shared", FileFault::OthersWrite, {}, 0, 0777};
    ExpectProblem(1, "directory", "/shared: mode 0777 lets others write; only its owner may",
                  kAnother);
    system_.user = 0;
    ExpectProblem(1, "directory", "/shared: mode 0777 lets others write; only its owner may",
                  kAnother);
}

TEST_F(RuntimeDirectoryCheck, TellsWhyASocketCannotBeUsed) {
    struct Row {
        FileFault fault;
        const char* text;
        const char* remedy;
    };
    const Row rows[] = {
        {FileFault::Missing, "/run/fake/fake_service.sock: why", kStart},
        {FileFault::NotReadable, "/run/fake/fake_service.sock: why", kStart},
        {FileFault::WrongKind, "/run/fake/fake_service.sock is no socket",
         "Move it away and start zam_connectord again."},
        {FileFault::Owner,
         "/run/fake/fake_service.sock belongs to user 5, not to root or the directory's owner",
         "Run zam_connectord as the directory's owner."},
    };
    for (const Row& row : rows) {
        Socket() = {"/run/fake/fake_service.sock", row.fault, "why", 5, 0600};
        ExpectProblem(2, "socket", row.text, row.remedy);
    }
}

TEST_F(RuntimeDirectoryCheck, SaysNothingOfADirectoryOnAPlatformWithoutOne) {
    system_.runtimeDirectory = {};
    EXPECT_TRUE(Findings().empty());
    EXPECT_EQ(ConnectRemedy(system_, "fake_service"), "Start the connector service.");
}

}  // namespace
}  // namespace zamctl::test
