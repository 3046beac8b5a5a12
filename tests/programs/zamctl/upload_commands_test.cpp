#include <cstdlib>

#include "command_fixture.h"
#include "common/arena.h"
#include "common/product_data_casts.h"
#include "record_json/app_info_json.h"
#include "tree_json/tree_json.h"
#include "zam_connector/zam_converter.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace converter = zam_connector::zam_converter;
namespace tree_json = zam_connector::tree_json;

class UploadCommandsTest : public CommandTest {
protected:
    /// Uploads a text through standard input.
    Ran Upload(const std::string& kind, const std::string& text) {
        return Run({"upload", kind, "-"}, text);
    }

    /// Checks that a text is refused with a message that holds this, and nothing was sent.
    void ExpectRefusal(const std::string& kind, const std::string& text,
                       const std::string& message) {
        SCOPED_TRACE(kind + " " + text.substr(0, 100));
        const Ran ran = Upload(kind, text);
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, StartsWith("zamctl upload " + kind + ": standard input:"));
        EXPECT_THAT(ran.err, HasSubstr(message));
        EXPECT_EQ(provider_.opens, 0);
    }

    FakeProductDataHolder& holder_ = provider_.productDataHolder;
};

zam_connector::AppUpdates Updates() {
    zam_connector::UpdateInfo full;
    full.id.front() = std::byte{7};
    full.name = "update";
    full.eulaId.emplace();
    full.notUninstallable = true;
    full.targetProduct = "product";
    full.requiredZamsrvVersion = "1.2";
    zam_connector::UpdateStatusInfo status;
    status.installErrorText = "none";
    return {.updates = {full, {}}, .statuses = {status}};
}

zam_connector::AppEula Eula(std::string text) {
    zam_connector::AppEula eula;
    eula.text = std::move(text);
    eula.localeInfo = 9;
    return eula;
}

std::string UpdatesText() {
    return tree_json::Write(*converter::ConvertAppUpdates(Updates()), {.indent = 2});
}

/// `text` with the first `from` replaced.
std::string With(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST_F(UploadCommandsTest, SendTheSettingsAndPrintTheHash) {
    const Ran ran = Upload("settings", R"(// comment
        {"port": {"$uint16": 443}})");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, "hash 0x0000000000c0ffee\n");
    ASSERT_TRUE(holder_.settings);
    EXPECT_TRUE(
        holder_.settings->IsIdenticalTo(zuv::Map{{"port", static_cast<unsigned short>(443)}}));
    EXPECT_EQ(Run({"--json", "--quiet", "upload", "settings", "-"}, "null").out,
              "{\"hash\":\"0x0000000000c0ffee\",\"result\":0}\n");
    EXPECT_EQ(Run({"--quiet", "upload", "settings", "-"}, "null").out, "");
    holder_.code = 1;
    EXPECT_EQ(Upload("settings", "null").out, "nothing to do\n");
}

TEST_F(UploadCommandsTest, SendBackWhatTheServiceStores) {
    zam_connector::AppInfo info;
    info.productId = "product";
    info.hostName = "\xff";
    info.components = {{"core", "1"}, {"\xfe", "2"}};
    info.capabilities = {"a", "\xfd"};
    info.installTime = qor::types::Timestamp(-5);
    info.localeId = 4294967295U;
    info.maxFileSizeBytes = 18446744073709551615U;
    EXPECT_EQ(Upload("app-info", zam_json::WriteAppInfo(info)).out, "uploaded\n");
    EXPECT_EQ(holder_.info, info);

    const zam_connector::DynamicAppInfo dynamic{.uptime = std::chrono::duration<std::uint32_t>(77),
                                                .health = zam_connector::AppHealth::Failed,
                                                .restartRequired = true,
                                                .rebootRequired = false,
                                                .updateInProgress = true};
    EXPECT_EQ(
        Run({"upload", "app-info-dynamic", "-", "--json"}, zam_json::WriteDynamicAppInfo(dynamic))
            .out,
        "{\"result\":0}\n");
    EXPECT_EQ(holder_.dynamicInfo, dynamic);

    const std::vector<zam_connector::AppEula> eulas = {Eula(std::string(70000, 'e')), Eula("")};
    EXPECT_EQ(Upload("eulas", tree_json::Write(*converter::ConvertEulas(eulas, 32768))).out,
              "hash 0x0000000000c0ffee\n");
    EXPECT_EQ(holder_.eulas, eulas);

    EXPECT_EQ(Upload("updates", UpdatesText()).status, 0);
    EXPECT_EQ(holder_.updates, Updates());
}

TEST_F(UploadCommandsTest, TakeWhatIsMissingInAppInfoAsEmpty) {
    EXPECT_EQ(Upload("app-info", "{}").status, 0);
    EXPECT_EQ(holder_.info, zam_connector::AppInfo());
    EXPECT_EQ(Upload("app-info-dynamic", "{}").status, 0);
    EXPECT_EQ(holder_.dynamicInfo, zam_connector::DynamicAppInfo());
}

TEST_F(UploadCommandsTest, RefuseWrongAppInfoWithItsPlace) {
    ExpectRefusal("app-info", "{\n\"product_id\": 7}",
                  "standard input:2:15: at \"/product_id\": is 7, allowed is a text");
    ExpectRefusal("app-info", R"({"productid": ""})", "the key is not known here");
    ExpectRefusal("app-info", R"({"os_name": "", "os_name_base64": ""})",
                  R"(at "/os_name_base64": stands beside "os_name")");
    ExpectRefusal("app-info", R"({"os_name_base64": "?"})", "a text in Base64");
    ExpectRefusal("app-info", R"({"components": [{"name": "a"}, {"nam": "b"}]})",
                  R"(at "/components/1/nam")");
    ExpectRefusal("app-info", R"({"capabilities": ["a", 1]})", R"(at "/capabilities/1")");
    ExpectRefusal("app-info", R"({"locale_id": 4294967296})", "from 0 to 4294967295");
    ExpectRefusal("app-info", R"({"install_time": 1.5})", "a whole number");
    ExpectRefusal("app-info", "{", "standard input:1:2");
    ExpectRefusal("app-info-dynamic", R"({"health": "fine"})",
                  "is \"fine\", allowed is one of unknown, good, degraded, failed");
    ExpectRefusal("app-info-dynamic", R"({"uptime_s": -1})", "from 0 to 4294967295");
}

TEST_F(UploadCommandsTest, RefuseAppInfoThatDoesNotFitOneRequest) {
    const auto document = [](std::size_t bytes) {
        return R"({"product_id": "id", "vendor_name": ")" + std::string(bytes, 'v') + "\"}";
    };
    EXPECT_EQ(Upload("app-info", document(21214)).status, 0);
    provider_.opens = 0;
    ExpectRefusal("app-info", document(21215),
                  "at \"/vendor_name\": takes 21215 bytes of the 21217 that all texts take; at "
                  "most 21216 can be sent");
}

TEST_F(UploadCommandsTest, RefuseAppInfoWhoseListsAreRoundedUpToMoreThanFits) {
    const std::size_t fixed = 16 + 8;
    for (std::size_t length = 21'216 - fixed - 16; length <= 21'216 - fixed; ++length) {
        SCOPED_TRACE(length);
        zam_connector::AppInfo info;
        info.vendorName = std::string(length, 'v');
        info.components = {{"n", "v"}};
        info.capabilities = {"c"};
        zam_connector::common::HeapArena arena(30'000);
        zam_connector::common::CastToVd(info, arena.Get());
        const std::uint32_t bytes = arena.Get()->used;
        if (bytes <= 21'216) {
            EXPECT_EQ(Upload("app-info", zam_json::WriteAppInfo(info)).status, 0);
            provider_.opens = 0;
        } else {
            ExpectRefusal("app-info", zam_json::WriteAppInfo(info),
                          "takes " + std::to_string(length) + " bytes of the " +
                              std::to_string(bytes) + " that all texts take; at most 21216");
        }
    }
}

TEST_F(UploadCommandsTest, RefuseSettingsThatCannotBeSent) {
    ExpectRefusal("settings", "{\"a\":\n {\"$int8\": 300}}",
                  "standard input:2:12: at \"/a/$int8\": is 300");
    ExpectRefusal("settings", R"({"a": {"9lives": 1}})",
                  R"(standard input:1:8: at "/a/9lives": the key cannot be sent)");
    const auto document = [](std::size_t bytes) {
        return "{\"a\": [1, \"" + std::string(bytes, 'x') + "\"]}";
    };
    // 16 bytes stand before a text, a zero byte behind it, and its path is a/1/.
    EXPECT_EQ(Upload("settings", document(675999 - 17 - 4)).status, 0);
    provider_.opens = 0;
    ExpectRefusal("settings", document(675999 - 17 - 3),
                  "at \"/a/1\": has 675996 bytes of value and 4 of path, \"a/1/\"; at most 675999");
}

TEST_F(UploadCommandsTest, RefuseWrongUpdatesWithTheirPlace) {
    const std::string good = UpdatesText();
    ExpectRefusal("updates", "[]", R"(at "": is of kind vector, allowed is map)");
    ExpectRefusal("updates", R"({"static_info": []})", R"(the member "dynamic_info" is missing)");
    ExpectRefusal("updates", R"({"static_info": 1, "dynamic_info": []})",
                  R"(at "/static_info": is of kind int64, allowed is vector)");
    ExpectRefusal(
        "updates", With(good, "updname", "updnam"),
        R"(at "/static_info/0/updnam": the key is not known here, allowed are description,)");
    ExpectRefusal("updates", With(good, "\"updname\": \"update\",", ""),
                  R"(at "/static_info/0": the member "updname" is missing)");
    ExpectRefusal("updates", With(good, "\"updname\": \"update\"", "\"updname\": 1"),
                  R"(at "/static_info/0/updname": is of kind int64, allowed is string)");
    ExpectRefusal("updates", With(good, "\"notuninstallable\": true", "\"notuninstallable\": null"),
                  "is of kind none, allowed is bool");
    ExpectRefusal("updates", With(good, "\"$blob\": \"Bw", "\"$blob\": \"BwAAAA"),
                  R"(is no identifier: 16 bytes and a zero byte behind them)");
    ExpectRefusal("updates", With(good, "installerrortext", "installerrortxt"),
                  R"(at "/dynamic_info/0/installerrortxt")");
    ExpectRefusal("updates", With(good, "\"update\"", '"' + std::string(676000, 'x') + '"'),
                  R"(at "/static_info/0/updname": has 676017 bytes of value)");
}

TEST_F(UploadCommandsTest, RefuseWrongEulasWithTheirPlace) {
    const std::string good = tree_json::Write(*converter::ConvertEulas({Eula("text")}, 32768));
    ExpectRefusal("eulas", "{}", "is of kind map, allowed is vector");
    ExpectRefusal("eulas", "[1]", R"(at "/0": is of kind int64, allowed is map)");
    ExpectRefusal("eulas", With(good, R"(["text"])", "[1]"),
                  R"(at "/0/updeula/0": is of kind int64, allowed is string)");
    ExpectRefusal("eulas", With(good, R"(["text"])", "1"), R"(at "/0/updeula": is of kind int64)");
    EXPECT_EQ(
        Upload("eulas", With(good, R"(["text"])", '"' + std::string(700000, 'x') + '"')).status, 0);
    EXPECT_EQ(holder_.eulas.value().front().text.size(), 700000U);
}

TEST_F(UploadCommandsTest, SayWhenTheServiceRefuses) {
    holder_.code = static_cast<int>(0x80000059U);
    for (const char* const kind : {"app-info", "app-info-dynamic"}) {
        ExpectFailure(Upload(kind, "{}"), 2);
    }
    const Ran ran = Upload("settings", "null");
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("zamctl upload settings: cannot upload the product settings: "
                                   "the service answered 0x80000059 Media error"));
}

TEST_F(UploadCommandsTest, NameAFileThatCannotBeRead) {
    const Ran ran = Run({"upload", "settings", "/nonexistent/file.json"});
    ExpectFailure(ran, 1);
    EXPECT_THAT(ran.err, AllOf(HasSubstr("FILE: '/nonexistent/file.json' cannot be opened"),
                               HasSubstr("No such file or directory")));
    ExpectFailure(Run({"upload", "settings", "/"}), 1);
    ExpectFailure(Run({"upload", "app-info", "-"}, std::string((16U << 20U) + 1, ' ')), 1);
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(UploadCommandsTest, ShowNothingOfAFileThatATerminalActsUpon) {
    const Ran ran = Upload("settings",
                           "{\"\xc2\x9b"
                           "1/\": 1}");
    ExpectFailure(ran, 1);
    EXPECT_THAT(ran.err, HasSubstr(R"(\u{009b})"));
}

}  // namespace
}  // namespace zamctl::test
