#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "command_fixture.h"
#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;
using zam_test::Content;

class CertsCommandTest : public CommandTest {
protected:
    CertsCommandTest() {
        provider_.certsDownloader.answer = {
            {"one", "CN=one", "CN=ca", "01ab", "CERT ONE\n", "KEY ONE"},
            {"t\x1bwo", "CN=two", "CN=ca", "02", "CERT TWO", std::nullopt}};
    }

    unsigned Mode() const {
        struct stat status {};
        EXPECT_EQ(::stat(file_.c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    zam_test::TemporaryFolder folder_;
    std::string file_ = folder_.Path("certs.pem");
};

TEST_F(CertsCommandTest, ListsThemWithoutKeys) {
    const Ran ran = Run({"certs"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out,
              "name           \"one\"\nsubject        \"CN=one\"\nissuer         \"CN=ca\"\n"
              "serial_number  \"01ab\"\nprivate_key    present; --with-keys prints it\n\n"
              "name           \"t\\x1bwo\"\nsubject        \"CN=two\"\nissuer         \"CN=ca\"\n"
              "serial_number  \"02\"\nprivate_key    none\n");
    provider_.certsDownloader.answer.clear();
    EXPECT_EQ(Run({"certs"}).out, "no certificates\n");
}

TEST_F(CertsCommandTest, PrintsADocument) {
    const Json document = Run({"--json", "certs"}).Document();
    EXPECT_EQ(document.at("certificates").at(0), Json({{"name", "one"},
                                                       {"subject", "CN=one"},
                                                       {"issuer", "CN=ca"},
                                                       {"serial_number", "01ab"},
                                                       {"certificate", "CERT ONE\n"},
                                                       {"has_private_key", true}}));
    EXPECT_EQ(document.at("certificates").at(1).at("has_private_key"), false);
    EXPECT_EQ(document.at("result"), 0);
}

TEST_F(CertsCommandTest, GivesKeysOnlyWhenAskedForThem) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"certs"},
                                                      {"--json", "certs"},
                                                      {"certs", "-o", "-"},
                                                      {"--json", "certs", "-o", "-"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        EXPECT_THAT(Run(arguments).out, Not(HasSubstr("KEY")));
        std::vector<std::string> withKeys = arguments;
        withKeys.push_back("--with-keys");
        EXPECT_THAT(Run(withKeys).out, HasSubstr("KEY ONE"));
    }
    Run({"certs", "-o", file_});
    EXPECT_EQ(Content(file_), "CERT ONE\nCERT TWO\n");
}

TEST_F(CertsCommandTest, WritesAFileThatOnlyItsOwnerMayRead) {
    std::ofstream(file_) << "old";
    fs::permissions(file_, fs::perms(0666));
    const Ran ran = Run({"certs", "--with-keys", "-o", file_});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "2 certificates written to \"" + file_ + "\"\n");
    EXPECT_EQ(Content(file_), "CERT ONE\nKEY ONE\nCERT TWO\n");
    EXPECT_EQ(Mode(), 0600U);
}

TEST_F(CertsCommandTest, AsksForWhatItIsTold) {
    Run({"certs", "--subject", "CN=a", "--issuer", "CN=b", "--valid-at", "2026-01-31T12:34:56Z"});
    EXPECT_EQ(provider_.certsDownloader.asked,
              (zam_connector::ClientCertParams{"CN=a", "CN=b", qor::types::Timestamp(1769862896)}));
    ExpectFailure(Run({"certs", "--valid-at", "soon"}), 1);
}

TEST_F(CertsCommandTest, EndsWithStatusTwoWithoutACertificateToWrite) {
    provider_.certsDownloader.answer.clear();
    ExpectFailure(Run({"certs", "-o", file_}), 2);
    EXPECT_FALSE(fs::exists(file_));
    provider_.certsDownloader.code = static_cast<int>(0x80000045U);
    const Ran ran = Run({"certs"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("cannot fetch the client certificates: the service answered "
                                   "0x80000045"));
}

using LocalesCommandTest = CommandTest;

TEST_F(LocalesCommandTest, PrintsATable) {
    provider_.localeInfo.locales = {
        {"en", 9, false, false}, {"en-US", 1033, true, false}, {"ar-SA", 1025, false, true}};
    EXPECT_EQ(Run({"locales"}).out,
              "en     0x0009      9  language 0x09\n"
              "en-US  0x0409   1033  language 0x09  default\n"
              "ar-SA  0x0401   1025  language 0x01  right to left\n");
    const Json document = Run({"--json", "locales"}).Document();
    EXPECT_EQ(document.at("locales").at(1), Json({{"name", "en-US"},
                                                  {"id", 1033},
                                                  {"language_id", 9},
                                                  {"default", true},
                                                  {"right_to_left", false}}));
}

}  // namespace
}  // namespace zamctl::test
