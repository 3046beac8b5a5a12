#include "command_fixture.h"
#include "served_files.h"
#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class CompleteCommandTest : public CommandTest {
protected:
    /// What is offered for the last of these words.
    std::string Offered(std::vector<std::string> words) {
        words.insert(words.begin(), {"complete", "--"});
        const Ran ran = Run(words);
        EXPECT_EQ(ran.status, 0);
        EXPECT_EQ(ran.err, "");
        return ran.out;
    }
};

TEST_F(CompleteCommandTest, OffersWhatCommandsDeclare) {
    EXPECT_THAT(Offered({""}), StartsWith("words\nstate\nstart\nstop\nsettings\n"));
    EXPECT_EQ(Offered({"se"}), "words\nsettings\nserver-data\n");
    EXPECT_EQ(Offered({"settings", ""}), "words\nget\nset\n");
    EXPECT_EQ(Offered({"--json", "settings", "s"}), "words\nset\n");
    EXPECT_EQ(Offered({"policy", ""}), "words\nget\nhash\n");
    EXPECT_EQ(Offered({"state", "--w"}), "words\n--wait\n--watch\n");
    EXPECT_EQ(Offered({"state", "-"}),
              "words\n--help\n-h\n--wait\n--watch\n--count\n--version\n--json\n--quiet\n"
              "--verbose\n-v\n--timeout\n");
    EXPECT_EQ(Offered({"state", "--wait", "con"}), "words\nconnecting\nconnected\n");
    EXPECT_EQ(Offered({"state", "--wait=con"}), "words\n--wait=connecting\n--wait=connected\n");
    EXPECT_EQ(Offered({"watch", "--count", "3", "policy", "s"}),
              "words\nsubscriptions\nserver-data\nsettings-synced\nstate\n");
    EXPECT_EQ(Offered({"watch", "--", "pol"}), "words\npolicy\n");
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(CompleteCommandTest, OffersFilesWhereFilesAreMeant) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"policy", "--output", ""},
                                               {"policy", "get", "-o", "a"},
                                               {"certs", "--output=b"},
                                               {"settings", "set", "--from", ""},
                                               {"upload", "eulas", ""}}) {
        EXPECT_EQ(Offered(words), "files\n") << ::testing::PrintToString(words);
    }
}

TEST_F(CompleteCommandTest, OffersNothingWhereNothingIsKnown) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{},
                                               {"start", "--server", ""},
                                               {"event", ""},
                                               {"frobnicate", "x"},
                                               {"upload", "eulas", "a", ""},
                                               {"state", "--unknown=", ""},
                                               {"state", "--unknown=a"},
                                               {"sync", "s"}}) {
        EXPECT_EQ(Offered(words), "") << ::testing::PrintToString(words);
    }
}

TEST_F(CompleteCommandTest, OffersSettingsOfTheServiceAndTheValuesOfFlags) {
    EXPECT_EQ(Offered({"settings", "set", "sync"}), "parts\nsync_period_s=\n");
    EXPECT_EQ(Offered({"settings", "set", "a=1", "send_diagnostics="}),
              "words\nsend_diagnostics=true\nsend_diagnostics=false\n");
    EXPECT_EQ(Offered({"settings", "set", "send_diagnostics=f"}),
              "words\nsend_diagnostics=false\n");
    EXPECT_EQ(Offered({"settings", "set", "sync_period_s=1"}), "");
}

TEST_F(CompleteCommandTest, SaysNothingWithoutAService) {
    provider_.noService = "no socket";
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"settings", "set", ""}, {"policy", "--path", ""}, {"file", "get", ""}}) {
        EXPECT_EQ(Offered(words), "") << ::testing::PrintToString(words);
    }
}

TEST_F(CompleteCommandTest, IsNoWordOfTheHelp) {
    EXPECT_THAT(Run({"--help"}).out, Not(HasSubstr("complete")));
    ExpectFailure(Run({"complete"}), 1);
}

TEST(ServedFiles, AreThoseOfTheServiceOfTheSameRuntimeDirectory) {
    const zam_test::TemporaryFolder processes;
    const auto process = [&processes](const std::string& id, const std::string& name,
                                      const std::string& words, const std::string& environment) {
        std::filesystem::create_directory(processes.Path(id));
        processes.Write(id + "/comm", name + "\n");
        processes.Write(id + "/cmdline", words);
        processes.Write(id + "/environ", environment);
    };
    using namespace std::string_literals;
    process("1", "bash", "zam_connectord\0--data\0/bash\0"s, "");
    process("2", "zam_connectord", "zam_connectord\0--data\0/by-option\0--runtime-dir=/r/\0"s,
            "ZAM_RUNTIME_DIR=/other\0"s);
    process("3", "zam_connectord", "zam_connectord\0--data=/by-variable\0"s,
            "XDG_RUNTIME_DIR=/x\0ZAM_RUNTIME_DIR=/v\0"s);
    process("4", "zam_connectord", "zam_connectord\0--data\0/of-user\0"s, "XDG_RUNTIME_DIR=/x\0"s);
    process("5", "zam_connectord", "zam_connectord\0--data\0/of-system\0"s, "");
    const auto found = [&processes](const std::string& directory) {
        return FindServedFolder(directory, processes.Path()).value_or("none");
    };
    EXPECT_EQ(found("/r"), "/by-option/files");
    EXPECT_EQ(found("/r//"), "/by-option/files");
    EXPECT_EQ(found("/v"), "/by-variable/files");
    EXPECT_EQ(found("/x/zam_connector"), "/of-user/files");
    EXPECT_EQ(found("/run/zam_connector"), "/of-system/files");
    EXPECT_EQ(found("/nowhere"), "none");
    EXPECT_EQ(FindServedFolder("/r", processes.Path() + "/missing"), std::nullopt);
}

}  // namespace
}  // namespace zamctl::test
