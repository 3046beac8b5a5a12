#include "command_fixture.h"
#include "support/temporary_folder.h"
#include "tree_json/tree_json.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Arguments = std::vector<std::string>;

constexpr char kCert[] = "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n";

class DataCommandsTest : public CommandTest {
protected:
    DataCommandsTest() {
        data_.policy = zuv::Map{
            {"limits", zuv::Map{{"count", 5}, {"names", zuv::MakeVector("a", "\x1b[2J\xc2\x9b")}}},
            {"on", true}};
        data_.cert = kCert;
    }

    FakeDataProvider& data_ = provider_.dataProvider;
    zam_test::TemporaryFolder folder_;
};

TEST_F(DataCommandsTest, ListATreeWithItsHash) {
    const Ran ran = Run({"policy"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out,
              "hash 0x0000000000c0ffee\n"
              "limits:\n"
              "  count: int32 5\n"
              "  names:\n"
              "    [0]: \"a\"\n"
              "    [1]: \"\\x1b[2J\\u{009b}\"\n"
              "on: true\n");
    EXPECT_EQ(Run({"--quiet", "policy", "get"}).out, ran.out);
    data_.settings = zuv::Map{{"mine", 1L}};
    EXPECT_EQ(Run({"product-settings"}).out, "hash 0x0000000000c0ffee\nmine: 1\n");
    EXPECT_THAT(data_.calls, ElementsAre("GetPolicy", "GetPolicy", "GetProductSettings"));
}

TEST_F(DataCommandsTest, PrintATreeAsOneDocumentOfTypedJson) {
    data_.code = 1;
    const Ran ran = Run({"policy", "--json"});
    EXPECT_EQ(ran.out, R"({"hash":"0x0000000000c0ffee","tree":{"limits":{"count":{"$int32":5},)"
                       R"("names":["a","\u001b[2J\u009b"]},"on":true},"result":1})"
                       "\n");
    EXPECT_EQ(Run({"policy", "--json", "--path", "limits/count"}).out,
              R"({"hash":"0x0000000000c0ffee","path":"limits/count/","tree":{"$int32":5},)"
              R"("result":1})"
              "\n");
}

TEST_F(DataCommandsTest, GiveBackTheIdenticalTreeAlone) {
    const Ran indented = Run({"policy", "--tree"});
    EXPECT_THAT(indented.out, HasSubstr("\n  \"on\": true"));
    EXPECT_TRUE(zam_connector::tree_json::Read(indented.out).IsIdenticalTo(data_.policy));
    const Ran line = Run({"--json", "policy", "get", "--tree"});
    EXPECT_EQ(line.Documents().size(), 1U);
    EXPECT_TRUE(zam_connector::tree_json::Read(line.out).IsIdenticalTo(data_.policy));
}

TEST_F(DataCommandsTest, PickAPartOfATree) {
    for (const char* const path : {"limits/names/0", "limits/names/0/", "/limits/names/0/"}) {
        EXPECT_EQ(Run({"policy", "--path", path}).out, "hash 0x0000000000c0ffee\n\"a\"\n") << path;
    }
    EXPECT_EQ(Run({"policy", "--path", "on", "get", "--tree"}).out, "true\n");
}

TEST_F(DataCommandsTest, SayHowFarAPathGoes) {
    for (const char* const path : {"limits/names/2", "limits/names/count", "limits/names/0/x"}) {
        const Ran ran = Run({"policy", "--path", path});
        ExpectFailure(ran, 2);
        EXPECT_THAT(ran.err, AllOf(HasSubstr("there is nothing at \"limits/names/"),
                                   HasSubstr("it goes as far as \"limits/names/")));
    }
    const int opens = provider_.opens;
    for (const char* const path : {"//", "a//b", "1a", "a'b"}) {
        const Ran ran = Run({"policy", "--path", path});
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, HasSubstr("is no path"));
    }
    EXPECT_EQ(provider_.opens, opens);
}

TEST_F(DataCommandsTest, ListATreeThatJsonCannotHold) {
    zuv::TValue deep = 1L;
    for (std::size_t level = 0; level <= zam_connector::tree_json::kMaxDepth; ++level) {
        zuv::Vector outer;
        outer.push_back(std::move(deep));
        deep = std::move(outer);
    }
    data_.policy = std::move(deep);
    const Ran ran = Run({"policy", "--json"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("cannot be written as JSON: at \"/0/0/"));
    EXPECT_EQ(Run({"policy"}).status, 0);
}

TEST_F(DataCommandsTest, PrintEachHashAlone) {
    for (const Arguments& arguments :
         {Arguments{"policy", "hash"}, Arguments{"product-settings", "hash"},
          Arguments{"product-settings", "synced-hash"}, Arguments{"subscriptions", "hash"},
          Arguments{"updates-status", "hash"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        EXPECT_EQ(Run(arguments).out, "0x0000000000c0ffee\n");
    }
    EXPECT_THAT(data_.calls,
                ElementsAre("GetPolicyHash", "GetSettingsHash", "GetSyncedSettingsHash",
                            "GetSubscriptionHash", "GetZamUpdatesStatusHash"));
    EXPECT_EQ(Run({"--json", "policy", "hash"}).out,
              "{\"hash\":\"0x0000000000c0ffee\",\"result\":0}\n");
    for (const Arguments& arguments :
         {Arguments{"policy", "--tree", "hash"}, Arguments{"policy", "hash", "--path", "a"},
          Arguments{"subscriptions", "hash", "-o", "file"}}) {
        ExpectFailure(Run(arguments), 1);
    }
}

TEST_F(DataCommandsTest, ListSubscriptionsByType) {
    EXPECT_EQ(Run({"subscriptions"}).out, "hash 0x0000000000c0ffee\nno subscriptions\n");
    using Delay = std::chrono::duration<std::uint32_t>;
    data_.subscriptions.events = {
        {"usage", {0, Delay(3600)}}, {"door", {2, Delay(0)}}, {"\x1b\xff", {1, Delay(1)}}};
    EXPECT_EQ(Run({"subscriptions"}).out,
              "hash 0x0000000000c0ffee\n"
              "\"\\x1b\\xff\"  min_severity 1, max_delay 1 s\n"
              "\"door\"      min_severity 2, max_delay 0 s\n"
              "\"usage\"     min_severity 0, max_delay 3600 s\n");
    EXPECT_EQ(Run({"subscriptions", "--json"}).out,
              R"({"hash":"0x0000000000c0ffee","events":{"door":{"min_severity":2,"max_delay_s":0},)"
              R"("usage":{"min_severity":0,"max_delay_s":3600}},)"
              R"("events_base64":{"G/8=":{"min_severity":1,"max_delay_s":1}},"result":0})"
              "\n");
}

TEST_F(DataCommandsTest, PrintWhatTheServerTellsAboutItself) {
    data_.serverData.versionMajor = 14;
    data_.serverData.versionMinor = 2;
    data_.serverData.clockOffset = std::chrono::duration<std::int32_t>(-5);
    data_.serverData.deviceStatus = zam_connector::ZamDeviceStatus::Quarantined;
    data_.serverData.offersFiles = true;
    EXPECT_EQ(Run({"server-data"}).out,
              "version_major         14\n"
              "version_minor         2\n"
              "clock_offset_s        -5\n"
              "device_status         quarantined\n"
              "offers_files          true\n"
              "wants_diagnostics     false\n"
              "requires_client_cert  false\n");
    EXPECT_EQ(Run({"server-data", "get", "--json"}).out,
              R"({"version_major":14,"version_minor":2,"clock_offset_s":-5,)"
              R"("device_status":"quarantined","offers_files":true,"wants_diagnostics":false,)"
              R"("requires_client_cert":false,"result":0})"
              "\n");
}

TEST_F(DataCommandsTest, ListUpdatesByWhatWasDecided) {
    zam_connector::ZamId id{};
    id.front() = std::byte{0x0A};
    id.back() = std::byte{0xFF};
    data_.updates = {.approved = {id, {}}, .declined = {}, .revoked = {id}};
    EXPECT_EQ(Run({"updates-status"}).out,
              "hash 0x0000000000c0ffee\n"
              "approved (2)\n"
              "  0a0000000000000000000000000000ff\n"
              "  00000000000000000000000000000000\n"
              "declined (0)\n"
              "revoked (1)\n"
              "  0a0000000000000000000000000000ff\n");
    const Json document = Run({"updates-status", "--json"}).Document();
    EXPECT_EQ(document.at("approved").size(), 2U);
    EXPECT_EQ(document.at("declined"), Json::array());
    EXPECT_EQ(document.at("revoked"), Json::array({"0a0000000000000000000000000000ff"}));
}

TEST_F(DataCommandsTest, PrintTheReserveCertificate) {
    EXPECT_EQ(Run({"reserve-cert"}).out, kCert);
    EXPECT_EQ(Run({"reserve-cert", "--json"}).Document(), Json({{"cert", kCert}, {"result", 0}}));
    data_.cert = "\x1b]0;\xff";
    EXPECT_EQ(Run({"reserve-cert"}).out, "\\x1b]0;\\xff\n");
    EXPECT_EQ(Run({"reserve-cert", "--json"}).Document().at("cert_base64"), "G10wO/8=");
    Run({"reserve-cert", "--output", folder_.Path("cert")});
    EXPECT_EQ(folder_.Read("cert"), data_.cert);
    data_.cert.clear();
    const Ran none = Run({"reserve-cert", "--json", "--output", folder_.Path("cert")});
    ExpectFailure(none, 2);
    EXPECT_THAT(none.err, HasSubstr("the service has no reserve certificate"));
    EXPECT_EQ(folder_.Read("cert"), "\x1b]0;\xff");
}

TEST_F(DataCommandsTest, WriteToAFileWhatTheyWouldHavePrinted) {
    const std::string file = folder_.Path("file");
    const std::string listing = Run({"policy"}).out;
    EXPECT_EQ(Run({"policy", "--output", file}).out,
              std::to_string(listing.size()) + " bytes written to \"" + file + "\"\n");
    EXPECT_EQ(folder_.Read("file"), listing);
    EXPECT_EQ(Run({"--quiet", "policy", "get", "-o", file, "--tree"}).out, "");
    EXPECT_EQ(folder_.Read("file"), Run({"policy", "--tree"}).out);
    EXPECT_EQ(Run({"--json", "policy", "--output=" + file}).out, "");
    EXPECT_EQ(folder_.Read("file"), Run({"--json", "policy"}).out);
    EXPECT_EQ(Run({"policy", "-o", "-"}).out, listing);
}

TEST_F(DataCommandsTest, AskForNothingWhenTheFileCannotBeWritten) {
    const Ran ran = Run({"policy", "--output", folder_.Path("missing/file")});
    ExpectFailure(ran, 1);
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(DataCommandsTest, LeaveTheFileAsItWasWhenTheServiceFails) {
    folder_.Write("file", "before");
    data_.code = static_cast<int>(0x80000045U);
    for (const char* const command : {"policy", "product-settings", "subscriptions", "server-data",
                                      "reserve-cert", "updates-status"}) {
        const Ran ran = Run({command, "--output", folder_.Path("file")});
        ExpectFailure(ran, 2);
        EXPECT_THAT(ran.err, HasSubstr(std::string("zamctl ") + command + ": cannot read the "));
        EXPECT_THAT(ran.err, HasSubstr("0x80000045 Access denied"));
    }
    EXPECT_EQ(folder_.Read("file"), "before");
    ExpectFailure(Run({"policy", "hash"}), 2);
}

TEST_F(DataCommandsTest, NameWrongWordsAndOptions) {
    EXPECT_THAT(Run({"policy", "gett"}).err, HasSubstr("did you mean 'get'?"));
    EXPECT_THAT(Run({"policy", "--outptu", "f"}).err,
                HasSubstr("unknown option '--outptu'; did you mean '--output'?"));
    EXPECT_THAT(Run({"server-data", "--tree"}).err, HasSubstr("unknown option '--tree'"));
    EXPECT_THAT(Run({"policy", "get", "x"}).err, HasSubstr("unexpected argument 'x'"));
    EXPECT_THAT(Run({"policy", "--output"}).err, Not(HasSubstr("is no command")));
}

}  // namespace
}  // namespace zamctl::test
