#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/program.h"
#include "tree_json/tree_json.h"
#include "zam_connector_testing/service_process.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using zam_connector::test::ProgramResult;
using zam_connector::test::RunProgram;
namespace tree_json = zam_connector::tree_json;

/// The program itself over the service itself.
class ZamctlOverService : public ::testing::Test {
protected:
    ProgramResult Run(const std::vector<std::string>& arguments,
                      const std::string& input = {}) const {
        return RunProgram(
            ZAMCTL_EXECUTABLE, arguments,
            {.input = input, .environment = {{"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory()}}});
    }

    /// What a command that succeeds prints.
    std::string Out(const std::vector<std::string>& arguments,
                    const std::string& input = {}) const {
        const ProgramResult result = Run(arguments, input);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    nlohmann::json Document(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "--json");
        return nlohmann::json::parse(Out(arguments));
    }

    zam_connector::testing::ServiceProcess service_{ZAM_CONNECTORD};
};

TEST_F(ZamctlOverService, PrintsWhatTheDataFolderHolds) {
    const std::string policy = R"({"limits": [1, {"$uint8": 2}], "raw": {"$string": "G/8="}})";
    const std::string subscriptions = R"({"door": {"max_delay_s": 3, "min_severity": 2}})";
    const std::string serverData =
        R"({"version_major": 14, "version_minor": 2, "clock_offset_s": -7,
            "device_status": "managed", "offers_files": true, "wants_diagnostics": false,
            "requires_client_cert": true})";
    const std::string updates =
        R"({"approved": ["00112233445566778899aabbccddeeff"], "declined": [], "revoked": []})";
    service_.WriteData("policy.json", policy);
    service_.WriteData("subscriptions.json", "{\"events\": " + subscriptions + "}");
    service_.WriteData("server_data.json", serverData);
    service_.WriteData("updates_status.json", updates);
    service_.WriteData("reserve_cert.pem", "-----BEGIN CERTIFICATE-----\n");
    service_.Start();

    const std::string hash = Document({"policy", "hash"}).at("hash");
    EXPECT_EQ(Out({"policy"}), "hash " + hash +
                                   "\nlimits:\n  [0]: 1\n  [1]: uint8 2\n"
                                   "raw: \"\\x1b\\xff\"\n");
    EXPECT_TRUE(tree_json::Read(Out({"policy", "--tree"})).IsIdenticalTo(tree_json::Read(policy)));
    EXPECT_EQ(Document({"policy"}).at("hash"), hash);
    EXPECT_EQ(Document({"subscriptions"}).at("events"), nlohmann::json::parse(subscriptions));
    nlohmann::json server = nlohmann::json::parse(serverData);
    server["result"] = 0;
    EXPECT_EQ(Document({"server-data"}), server);
    nlohmann::json status = nlohmann::json::parse(updates);
    status["result"] = 0;
    status["hash"] = Document({"updates-status", "hash"}).at("hash");
    EXPECT_EQ(Document({"updates-status"}), status);
    EXPECT_EQ(Out({"reserve-cert"}), "-----BEGIN CERTIFICATE-----\n");
    EXPECT_THAT(Out({"product-settings"}), StartsWith("hash 0x0000000000000000\nnone\n"));
}

TEST_F(ZamctlOverService, UploadsWhatTheServiceStoredBefore) {
    service_.Start();
    const std::string settings = R"({"a": {"$int8": 1}, "list": [null, 0.5, "text"]})";
    const std::string out = Out({"upload", "settings", "-"}, settings);
    EXPECT_EQ(out, "hash " + Out({"product-settings", "synced-hash"}));
    EXPECT_TRUE(tree_json::Read(service_.ReadData("uploads/settings.json"))
                    .IsIdenticalTo(tree_json::Read(settings)));

    Out({"upload", "app-info", "-"}, R"({"product_id": "p", "os_name_base64": "/w=="})");
    Out({"upload", "app-info-dynamic", "-"}, R"({"health": "degraded"})");
    Out({"upload", "updates", "-"}, R"({"static_info": [], "dynamic_info": []})");
    Out({"upload", "eulas", "-"},
        R"([{"updeulaid": {"$blob": "AAAAAAAAAAAAAAAAAAAAAAA="}, "updeulareleasetime": 7,
             "updeula": "the text", "updlocinfo": {"$int32": 9}}])");
    for (const auto& [kind, name] :
         std::vector<std::pair<std::string, std::string>>{{"app-info", "app_info"},
                                                          {"app-info-dynamic", "app_info_dynamic"},
                                                          {"eulas", "eulas"},
                                                          {"updates", "updates"}}) {
        SCOPED_TRACE(kind);
        const std::string stored = service_.ReadData("uploads/" + name + ".json");
        EXPECT_NE(stored, "");
        Out({"upload", kind, service_.DataDirectory() + "/uploads/" + name + ".json"});
        EXPECT_EQ(service_.ReadData("uploads/" + name + ".json"), stored);
    }
    EXPECT_THAT(service_.ReadData("uploads/app_info_dynamic.json"), HasSubstr("degraded"));
}

TEST_F(ZamctlOverService, SendsNothingThatCannotArrive) {
    service_.Start();
    const ProgramResult result =
        Run({"upload", "settings", "-"}, "{\"a\": \"" + std::string(676000, 'x') + "\"}");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("at \"/a\": has 676017 bytes of value and 2 of path"));
    EXPECT_EQ(service_.ReadData("uploads/settings.json"), "");
}

TEST_F(ZamctlOverService, EndsWithStatusTwoWhenATransferBreaksOff) {
    service_.WriteData("faults.json",
                       R"({"rules": [{"endpoint": "zamDataProvider", "operation": "GetData",
                           "session_status": -2},
                          {"endpoint": "productDataHolder", "operation": "CloseChannel",
                           "result_code": "0x80000059"}]})");
    service_.Start();
    const ProgramResult get = Run({"policy"});
    EXPECT_EQ(get.status, 2);
    EXPECT_EQ(get.out, "");
    EXPECT_THAT(get.err, HasSubstr("zamctl policy: cannot read the policy: 0x80000071"));
    const ProgramResult put = Run({"upload", "settings", "-"}, "null");
    EXPECT_EQ(put.status, 2);
    EXPECT_THAT(put.err, HasSubstr("the service answered 0x80000059 Media error"));
}

}  // namespace
}  // namespace zamctl::test
