#include <cstdio>

#include "command_fixture.h"
#include "settings_changes.h"
#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using zam_connector::ZamConnectorSettings;
using zam_connector::ZamSeconds;

constexpr char kDefaultTable[] =
    "sync_period_s                      900 s\n"
    "heartbeat_period_s                  60 s\n"
    "reconnect_delay_min_s                5 s\n"
    "reconnect_delay_max_s              300 s\n"
    "upload_limit_bytes_per_second        0 bytes/s (unlimited)\n"
    "download_limit_bytes_per_second      0 bytes/s (unlimited)\n"
    "max_file_size_bytes                  0 bytes (unlimited)\n"
    "event_queue_limit                 1000 events\n"
    "compress_traffic                  true\n"
    "allow_metered_network            false\n"
    "send_diagnostics                 false\n";

constexpr char kDefaultDocument[] =
    R"({"sync_period_s":900,"heartbeat_period_s":60,"reconnect_delay_min_s":5,)"
    R"("reconnect_delay_max_s":300,"upload_limit_bytes_per_second":0,)"
    R"("download_limit_bytes_per_second":0,"max_file_size_bytes":0,"event_queue_limit":1000,)"
    R"("compress_traffic":true,"allow_metered_network":false,"send_diagnostics":false,)"
    R"("result":0})"
    "\n";

/// Settings in which every member differs from the default and from the others.
ZamConnectorSettings Unusual() {
    ZamConnectorSettings settings;
    settings.syncPeriod = ZamSeconds(4294967295);
    settings.heartbeatPeriod = ZamSeconds(2);
    settings.reconnectDelayMin = ZamSeconds(3);
    settings.reconnectDelayMax = ZamSeconds(4);
    settings.uploadLimitBytesPerSecond = 18446744073709551615U;
    settings.downloadLimitBytesPerSecond = 6;
    settings.maxFileSizeBytes = 7;
    settings.eventQueueLimit = 8;
    settings.compressTraffic = false;
    settings.allowMeteredNetwork = true;
    settings.sendDiagnostics = true;
    return settings;
}

class SettingsCommandsTest : public CommandTest {
protected:
    FakeSettingsHolder& holder_ = provider_.settingsHolder;
};

TEST_F(SettingsCommandsTest, GetPrintsATableWithUnits) {
    const Ran ran = Run({"settings", "get"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, kDefaultTable);
    EXPECT_EQ(ran.err, "");
}

TEST_F(SettingsCommandsTest, GetPrintsOneObject) {
    EXPECT_EQ(Run({"--json", "settings", "get"}).out, kDefaultDocument);
    EXPECT_EQ(Run({"settings", "get", "--json", "--quiet"}).out, kDefaultDocument);
    holder_.getCode = 1;
    EXPECT_EQ(Run({"settings", "get", "--json"}).Document().at("result"), 1);
}

TEST_F(SettingsCommandsTest, GetPrintsAFailureCodeWithItsText) {
    holder_.getCode = static_cast<int>(0x80000105U);
    const Ran ran = Run({"settings", "get", "--json"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("zamctl settings get: cannot read the settings: the service "
                                   "answered 0x80000105 Settings not found"));
}

TEST_F(SettingsCommandsTest, SetChangesTheNamedMembersAndNoOthers) {
    holder_.current = Unusual();
    const Ran ran = Run({"settings", "set", "sync_period_s=60", "compress_traffic=true"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out,
              "sync_period_s: 4294967295 -> 60\n"
              "compress_traffic: false -> true\n");
    ZamConnectorSettings expected = Unusual();
    expected.syncPeriod = ZamSeconds(60);
    expected.compressTraffic = true;
    EXPECT_EQ(holder_.current, expected);
    EXPECT_EQ(holder_.sets, 1);
}

TEST_F(SettingsCommandsTest, SetPrintsWhatChangedAsOneObject) {
    EXPECT_EQ(Run({"--json", "settings", "set", "sync_period_s=60", "heartbeat_period_s=60"}).out,
              "{\"changed\":{\"sync_period_s\":{\"from\":900,\"to\":60}},\"result\":0}\n");
    EXPECT_EQ(Run({"--json", "--quiet", "settings", "set", "send_diagnostics=on"}).out,
              "{\"changed\":{\"send_diagnostics\":{\"from\":false,\"to\":true}},\"result\":0}\n");
    EXPECT_EQ(Run({"--quiet", "settings", "set", "sync_period_s=61"}).out, "");
}

TEST_F(SettingsCommandsTest, SetSaysThatNothingChanged) {
    EXPECT_EQ(Run({"settings", "set", "sync_period_s=900"}).out, "nothing has changed\n");
    holder_.setCode = 1;
    EXPECT_EQ(Run({"settings", "set", "sync_period_s=900"}).out, "nothing to do\n");
    EXPECT_EQ(Run({"--json", "settings", "set", "sync_period_s=900"}).out,
              "{\"changed\":{},\"result\":1}\n");
}

TEST_F(SettingsCommandsTest, SetReachesEveryMember) {
    const ZamConnectorSettings target = Unusual();
    std::vector<std::string> arguments = {"settings", "set"};
    for (const SettingsField& field : SettingsFields()) {
        arguments.push_back(std::string(field.name) + '=' + ShowValue(field.get(target)));
    }
    EXPECT_EQ(Run(arguments).status, 0);
    EXPECT_EQ(holder_.current, target);
}

TEST_F(SettingsCommandsTest, SetTakesEveryWordForAFlag) {
    for (const auto& [word, value] : std::vector<std::pair<std::string, bool>>{{"yes", true},
                                                                               {"no", false},
                                                                               {"on", true},
                                                                               {"off", false},
                                                                               {"true", true},
                                                                               {"false", false}}) {
        EXPECT_EQ(Run({"settings", "set", "send_diagnostics=" + word}).status, 0) << word;
        EXPECT_EQ(holder_.current.sendDiagnostics, value) << word;
    }
}

TEST_F(SettingsCommandsTest, SetPrintsTheFailuresOfBothCalls) {
    holder_.getCode = static_cast<int>(0x80000045U);
    const Ran unread = Run({"settings", "set", "sync_period_s=1"});
    ExpectFailure(unread, 2);
    EXPECT_THAT(unread.err, HasSubstr("cannot read the settings: the service answered 0x80000045"));
    EXPECT_EQ(holder_.sets, 0);
    holder_.getCode = 0;
    holder_.setCode = static_cast<int>(0x80000046U);
    const Ran unwritten = Run({"--json", "settings", "set", "sync_period_s=1"});
    ExpectFailure(unwritten, 2);
    EXPECT_THAT(unwritten.err,
                HasSubstr("cannot write the settings: the service answered 0x80000046"));
}

TEST_F(SettingsCommandsTest, SetRefusesWrongChangesBeforeAnythingIsSent) {
    struct Row {
        const char* change;
        const char* message;
    };
    for (const auto& [change, message] :
         {Row{"sync_period=1", "'sync_period' is no setting; did you mean 'sync_period_s'?"},
          Row{"comress_traffic=on", "did you mean 'compress_traffic'?"},
          Row{"zzz=1", "the settings are sync_period_s, heartbeat_period_s"},
          Row{"=1", "'' is no setting"},
          Row{"sync_period_s", "'sync_period_s' is not of the form NAME=VALUE"},
          Row{"sync_period_s=", "sync_period_s: '' is not a whole number from 0 to 4294967295"},
          Row{"sync_period_s=-1", "'-1' is not a whole number from 0 to 4294967295"},
          Row{"sync_period_s=4294967296", "from 0 to 4294967295"},
          Row{"sync_period_s=10s", "'10s' is not a whole number"},
          Row{"event_queue_limit=4294967296", "from 0 to 4294967295"},
          Row{"max_file_size_bytes=18446744073709551616", "from 0 to 18446744073709551615"},
          Row{"compress_traffic=1", "compress_traffic: '1' is neither true nor false"},
          Row{"heartbeat_period_s=2", "heartbeat_period_s is given twice"}}) {
        SCOPED_TRACE(change);
        const Ran ran = Run({"--json", "settings", "set", "heartbeat_period_s=1", change});
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, HasSubstr(message));
        EXPECT_THAT(ran.err, HasSubstr("'zamctl settings set --help'"));
    }
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(SettingsCommandsTest, SetNeedsSomethingToSet) {
    const Ran ran = Run({"settings", "set"});
    ExpectFailure(ran, 1);
    EXPECT_THAT(ran.err, HasSubstr("nothing to set"));
}

TEST_F(SettingsCommandsTest, SetTakesBackWhatGetPrinted) {
    holder_.current = Unusual();
    const std::string printed = Run({"--json", "settings", "get"}).out;
    holder_.current = {};
    const Ran ran = Run({"settings", "set", "--from", "-"}, printed);
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(holder_.current, Unusual());
}

TEST_F(SettingsCommandsTest, SetReadsAFileAndLeavesWhatItDoesNotName) {
    const zam_test::TemporaryFolder folder;
    folder.Write("file", R"({"sync_period_s": 7, "allow_metered_network": true})");
    const Ran ran = Run({"settings", "set", "--from", folder.Path("file"), "heartbeat_period_s=8"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    ZamConnectorSettings expected;
    expected.syncPeriod = ZamSeconds(7);
    expected.heartbeatPeriod = ZamSeconds(8);
    expected.allowMeteredNetwork = true;
    EXPECT_EQ(holder_.current, expected);
}

TEST_F(SettingsCommandsTest, SetPrefersTheCommandLineToTheFile) {
    EXPECT_EQ(Run({"settings", "set", "--from", "-", "sync_period_s=8"}, R"({"sync_period_s": 7})")
                  .status,
              0);
    EXPECT_EQ(holder_.current.syncPeriod, ZamSeconds(8));
}

TEST_F(SettingsCommandsTest, SetNamesAFileThatCannotBeOpened) {
    const Ran ran = Run({"settings", "set", "--from", "/nonexistent/file.json"});
    ExpectFailure(ran, 1);
    EXPECT_THAT(ran.err, AllOf(HasSubstr("--from: '/nonexistent/file.json' cannot be opened"),
                               HasSubstr("No such file or directory")));
    ExpectFailure(Run({"settings", "set", "--from", "/"}), 1);
}

TEST_F(SettingsCommandsTest, SetRefusesWrongDocumentsBeforeAnythingIsSent) {
    struct Row {
        std::string document;
        const char* message;
    };
    const std::vector<Row> rows = {
        Row{"", "no JSON"},
        Row{"{", "no JSON"},
        Row{R"({"sync_period_s":1} x)", "no JSON"},
        Row{"[1]", "no object of settings"},
        Row{"7", "no object of settings"},
        Row{R"({"sync_period_s":"1"})", "\"1\" is not a whole number from 0 to 4294967295"},
        Row{R"({"sync_period_s":1.0})", "1.0 is not a whole number"},
        Row{R"({"sync_period_s":-1})", "-1 is not a whole number"},
        Row{R"({"sync_period_s":4294967296})", "from 0 to 4294967295"},
        Row{R"({"sync_period_s":null})", "null is not a whole number"},
        Row{R"({"compress_traffic":1})", "1 is neither true nor false"},
        Row{R"({"compress_traffic":"true"})", "\"true\" is neither true nor false"},
        Row{R"({"sync_period":1})", "did you mean 'sync_period_s'?"},
        Row{R"({"sync_period_s":1,"sync_period_s":2})", "'sync_period_s' stands there twice"},
        Row{R"({"sync_period_s":[[[[[[1]]]]]]})", "nested deeper than 4"},
        Row{std::string(100000, '['), "more than the 65536 bytes"},
        Row{std::string(60000, '['), "nested deeper than 4"},
        Row{"{\"sync_period_s\":\"\xff\"}", "no JSON"}};
    for (const auto& [document, message] : rows) {
        SCOPED_TRACE(document.substr(0, 80));
        const Ran ran = Run({"settings", "set", "--from", "-"}, document);
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, AllOf(HasSubstr("standard input"), HasSubstr(message)));
    }
    EXPECT_EQ(provider_.opens, 0);
}

}  // namespace
}  // namespace zamctl::test
