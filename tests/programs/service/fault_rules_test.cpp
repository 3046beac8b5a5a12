#include "faults/fault_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "endpoints/endpoint_catalog.h"

namespace zam_service {
namespace {

using zam_json::JsonDocument;
using zam_json::JsonError;

constexpr std::uint16_t kController = 1;
constexpr std::uint16_t kSettings = 2;
constexpr std::uint16_t kStart = 0;
constexpr std::uint16_t kGetState = 2;

FaultRules RulesOf(const std::string& text) {
    const JsonDocument document(kFaultsFile, text);
    return FaultRules::Read(document.Root());
}

/// One rule about GetState, with `more` members.
std::string Rule(const std::string& more) {
    return R"({"endpoint": "connController", "operation": "GetState")" + more + "}";
}

FaultRules ReadRule(const std::string& more) {
    return RulesOf(R"({"rules": [)" + Rule(more) + "]}");
}

/// Which of so many calls of GetState meet with a fault.
std::vector<int> Hits(FaultRules& rules, int calls) {
    std::vector<int> hits;
    for (int call = 1; call <= calls; ++call) {
        if (rules.Decide(kController, kGetState)) {
            hits.push_back(call);
        }
    }
    return hits;
}

TEST(FaultRules, LeaveEveryCallAloneWhenThereAreNone) {
    for (const char* const text : {"{}", R"({"rules": []})", R"({"seed": 1, "rules": []})"}) {
        FaultRules rules = RulesOf(text);
        EXPECT_TRUE(rules.IsEmpty());
        EXPECT_FALSE(rules.Decide(kController, kGetState));
    }
}

TEST(FaultRules, ReadEveryEffect) {
    const Fault status = *ReadRule(R"(, "transport_status": -7, "delay_ms": 5, "when": "after")")
                              .Decide(kController, kGetState);
    EXPECT_EQ(status.when, FaultTime::After);
    EXPECT_EQ(status.transportStatus, -7);
    EXPECT_EQ(status.delay, std::chrono::milliseconds(5));
    EXPECT_FALSE(status.resultCode || status.sessionStatus || status.drop || status.IsDelayOnly());

    const Fault code = *ReadRule(R"(, "result_code": "0x80000063", "when": "before")")
                            .Decide(kController, kGetState);
    EXPECT_EQ(code.when, FaultTime::Before);
    EXPECT_EQ(code.resultCode, static_cast<int>(0x80000063U));

    const Fault drop = *ReadRule(R"(, "drop": true)").Decide(kController, kGetState);
    EXPECT_EQ(drop.when, FaultTime::Before);
    EXPECT_TRUE(drop.drop);

    const Fault delay = *ReadRule(R"(, "delay_ms": 86400000)").Decide(kController, kGetState);
    EXPECT_TRUE(delay.IsDelayOnly());

    FaultRules session = RulesOf(R"({"rules": [{"endpoint": "productDataHolder",
        "operation": "SendData", "session_status": -128}]})");
    const auto fault = session.Decide(EndpointOf("ProductDataHolder").riid, 5);
    EXPECT_EQ(fault->sessionStatus, -128);
}

TEST(FaultRules, ApplyToTheCallsThatTheyName) {
    struct Row {
        std::string calls;
        std::vector<int> hits;
    };
    const std::vector<Row> rows = {
        {"", {1, 2, 3, 4, 5}},
        {R"(, "calls": "all")", {1, 2, 3, 4, 5}},
        {R"(, "calls": 1)", {1}},
        {R"(, "calls": 3)", {3}},
        {R"(, "calls": 6)", {}},
        {R"(, "calls": 4294967295)", {}},
        {R"(, "calls": [2, 4])", {2, 3, 4}},
        {R"(, "calls": [3, 3])", {3}},
        {R"(, "calls": [4, 4294967295])", {4, 5}},
        {R"(, "probability": 0)", {}},
        {R"(, "probability": 1.0)", {1, 2, 3, 4, 5}},
        {R"(, "probability": 1, "calls": 2)", {2}},
    };
    for (const Row& row : rows) {
        FaultRules rules = ReadRule(row.calls + R"(, "drop": true)");
        EXPECT_EQ(Hits(rules, 5), row.hits) << row.calls;
    }
}

TEST(FaultRules, CountOnlyTheCallsTheyAreAbout) {
    FaultRules rules = RulesOf(R"({"rules": [
        {"endpoint": "connController", "operation": "GetState", "calls": 2, "drop": true},
        {"endpoint": "connController", "operation": "*", "calls": 4, "result_code": -1}]})");
    EXPECT_FALSE(rules.Decide(kController, kGetState));
    EXPECT_FALSE(rules.Decide(kController, kStart));
    EXPECT_FALSE(rules.Decide(kSettings, kGetState)) << "another endpoint";
    EXPECT_TRUE(rules.Decide(kController, kGetState)->drop);
    EXPECT_EQ(rules.Decide(kController, kStart)->resultCode, -1)
        << "a call that an earlier rule took is counted by later ones too";
}

TEST(FaultRules, LetTheFirstThatAppliesWin) {
    FaultRules rules = RulesOf(R"({"rules": [
        {"endpoint": "connController", "operation": "GetState", "calls": 2, "result_code": -1},
        {"endpoint": "connController", "operation": "GetState", "result_code": -2},
        {"endpoint": "connController", "operation": "*", "result_code": -3}]})");
    EXPECT_EQ(rules.Decide(kController, kGetState)->resultCode, -2);
    EXPECT_EQ(rules.Decide(kController, kGetState)->resultCode, -1);
    EXPECT_EQ(rules.Decide(kController, kStart)->resultCode, -3);
}

TEST(FaultRules, TakeTheEndpointByItsFullNameToo) {
    FaultRules rules = RulesOf(R"({"rules": [
        {"endpoint": "qx.zam_connector.ZamConnectorComponent.connController",
         "operation": "GetState", "drop": true}]})");
    EXPECT_TRUE(rules.Decide(kController, kGetState));
}

TEST(FaultRules, DecideTheSameForTheSameSeed) {
    const std::string text =
        R"({"seed": 42, "rules": [)" + Rule(R"(, "probability": 0.3, "drop": true)") + "]}";
    FaultRules first = RulesOf(text);
    FaultRules second = RulesOf(text);
    const std::vector<int> hits = Hits(first, 1000);
    EXPECT_EQ(Hits(second, 1000), hits);
    // Five standard deviations of a thousand draws.
    EXPECT_NEAR(static_cast<double>(hits.size()), 300, 73);
}

TEST(FaultRules, AreAcceptedForEveryOperationOfEveryInterface) {
    for (const Endpoint& endpoint : Endpoints()) {
        for (const qx::OperationInfo& operation : endpoint.operations) {
            const std::string head = R"({"rules": [{"endpoint": ")" +
                                     std::string(endpoint.shortName) + R"(", "operation": ")" +
                                     std::string(operation.name) + R"(", )";
            const auto accepts = [&](const std::string& effect) {
                try {
                    return RulesOf(head + effect + "}]}")
                        .Decide(endpoint.riid, operation.number)
                        .has_value();
                } catch (const JsonError&) {
                    return false;
                }
            };
            EXPECT_TRUE(accepts(R"("transport_status": 3)")) << operation.name;
            EXPECT_TRUE(accepts(R"("drop": true)")) << operation.name;
            EXPECT_TRUE(accepts(R"("delay_ms": 1)")) << operation.name;
            EXPECT_EQ(accepts(R"("result_code": -1)"), operation.resultCodeOffset != qx::kNoField)
                << operation.name;
            EXPECT_EQ(accepts(R"("session_status": -1)"),
                      operation.sessionStatusOffset != qx::kNoField)
                << operation.name;
        }
    }
}

TEST(FaultRules, DamagePiecesAfterTheWork) {
    const auto read = [](const std::string& effect) {
        return RulesOf(R"({"rules": [{"endpoint": "zamDataProvider", "operation": "GetData", )" +
                       effect + "}]}");
    };
    const Endpoint& provider = EndpointOf("ZamDataProvider");
    const auto fault = read(R"("damage": "endless")")
                           .Decide(provider.riid, FindOperation(provider, "GetData")->number);
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->damage, PieceDamage::Endless);
    EXPECT_EQ(fault->when, FaultTime::After);
    EXPECT_NO_THROW(read(R"("damage": "length", "when": "after", "session_status": 0)"));
    EXPECT_THROW(read(R"("damage": "length", "when": "before")"), JsonError);
    EXPECT_THROW(read(R"("damage": "length", "drop": true)"), JsonError);
    EXPECT_THROW(read(R"("damage": "length", "transport_status": 1)"), JsonError);
}

TEST(FaultRules, AcceptUpToTheLimitOfRules) {
    for (const std::size_t count : {kMaxFaultRules - 1, kMaxFaultRules, kMaxFaultRules + 1}) {
        std::string text = R"({"rules": [)";
        for (std::size_t rule = 0; rule < count; ++rule) {
            text += (rule == 0 ? "" : ",") + Rule(R"(, "drop": true)");
        }
        text += "]}";
        if (count <= kMaxFaultRules) {
            EXPECT_NO_THROW(RulesOf(text)) << count;
        } else {
            EXPECT_THROW(RulesOf(text), JsonError);
        }
    }
}

struct RefusedRule {
    std::string members;
    std::string pointer;  ///< within the rule
    std::string message;
};

TEST(FaultRules, RefuseWhatCannotBeAndNameThePlace) {
    const std::vector<RefusedRule> rows = {
        {"", "", "the rule changes nothing"},
        {R"(, "when": "after")", "", "the rule changes nothing"},
        {R"(, "drop": false)", "", "the rule changes nothing"},
        {R"(, "bogus": 1)", "/bogus", "not known here"},
        {R"(, "session_status": 1)", "/session_status",
         "the answer of GetState has no session_status"},
        {R"(, "calls": 0, "drop": true)", "/calls",
         "is 0, allowed is a whole number from 1 to 4294967295"},
        {R"(, "calls": 4294967296, "drop": true)", "/calls", "is 4294967296"},
        {R"(, "calls": "some", "drop": true)", "/calls",
         "is \"some\", allowed is \"all\", the number of a call, or an array"},
        {R"(, "calls": [1], "drop": true)", "/calls", "has 1 elements"},
        {R"(, "calls": [1, 2, 3], "drop": true)", "/calls", "has 3 elements"},
        {R"(, "calls": [0, 2], "drop": true)", "/calls/0", "is 0"},
        {R"(, "calls": [3, 2], "drop": true)", "/calls/1",
         "is 2, allowed is a whole number from 3 to"},
        {R"(, "probability": 1.01, "drop": true)", "/probability",
         "is 1.01, allowed is a number from 0 to 1"},
        {R"(, "probability": -0.01, "drop": true)", "/probability", "is -0.01"},
        {R"(, "probability": "0.5", "drop": true)", "/probability", "is \"0.5\""},
        {R"(, "when": "later", "drop": true)", "/when",
         "is \"later\", allowed is \"before\" or \"after\""},
        {R"(, "when": 1, "drop": true)", "/when", "is 1"},
        {R"(, "damage": "length")", "/damage",
         "only the answer of GetData of zamDataProvider can have this"},
        {R"(, "damage": "slight")", "/damage",
         "is \"slight\", allowed is one of record_value, length, repeat_path, vector_gap, endless"},
        {R"(, "damage": 1)", "/damage", "is 1, allowed is one of"},
        {R"(, "transport_status": 0)", "/transport_status", "other than 0"},
        {R"(, "transport_status": 2147483648)", "/transport_status", "is 2147483648"},
        {R"(, "transport_status": -2147483649)", "/transport_status", "is -2147483649"},
        {R"(, "result_code": "oops")", "/result_code", "a text like \"0x80000045\""},
        {R"(, "delay_ms": -1)", "/delay_ms", "is -1, allowed is a whole number from 0"},
        {R"(, "delay_ms": 86400001)", "/delay_ms", "is 86400001"},
        {R"(, "drop": 1)", "/drop", "is 1, allowed is true or false"},
        {R"(, "drop": true, "transport_status": 5)", "/transport_status", "a call with drop"},
        {R"(, "drop": true, "result_code": 5)", "/result_code", "a call with drop"},
        {R"(, "transport_status": 5, "result_code": 5)", "/result_code",
         "a call with transport_status"},
    };
    for (const RefusedRule& row : rows) {
        try {
            ReadRule(row.members);
            ADD_FAILURE() << "accepted: " << row.members;
        } catch (const JsonError& error) {
            EXPECT_EQ(error.Pointer(), "/rules/0" + row.pointer) << row.members;
            EXPECT_THAT(error.what(), ::testing::HasSubstr(row.message)) << row.members;
        }
    }
}

TEST(FaultRules, RefuseUnknownNamesAndListTheKnownOnes) {
    const std::vector<std::vector<std::string>> rows = {
        {R"({"rules": [{"operation": "Stop", "drop": true}]})", "/rules/0",
         "\"endpoint\" is missing"},
        {R"({"rules": [{"endpoint": "connController", "drop": true}]})", "/rules/0",
         "\"operation\" is missing"},
        {R"({"rules": [{"endpoint": "conn", "operation": "Stop", "drop": true}]})",
         "/rules/0/endpoint",
         "is \"conn\", allowed is one of connController, connSettingsHolder, connCommandSender"},
        {R"({"rules": [{"endpoint": 1, "operation": "Stop", "drop": true}]})", "/rules/0/endpoint",
         "is 1"},
        {R"({"rules": [{"endpoint": "connController", "operation": "Set", "drop": true}]})",
         "/rules/0/operation", "is \"Set\", allowed is * or one of Start, Stop, GetState"},
        {R"({"rules": [{"endpoint": "connController", "operation": null, "drop": true}]})",
         "/rules/0/operation", "is null"},
        {R"({"rules": [{"endpoint": "zamDataProvider", "operation": "*", "result_code": 1}]})",
         "/rules/0/result_code", "the answer of OpenPolicyChannel has no result_code"},
        {R"({"seed": -1})", "/seed", "is -1"},
        {R"({"rules": {}})", "/rules", "is an object"},
        {R"({"rule": []})", "/rule", "allowed are rules, seed"},
    };
    for (const auto& row : rows) {
        try {
            RulesOf(row[0]);
            ADD_FAILURE() << "accepted: " << row[0];
        } catch (const JsonError& error) {
            EXPECT_EQ(error.Pointer(), row[1]) << row[0];
            EXPECT_THAT(error.what(), ::testing::HasSubstr(row[2])) << row[0];
        }
    }
}

TEST(EndpointCatalog, GivesEveryInterfaceItsFixedId) {
    ASSERT_EQ(Endpoints().size(), 9U);
    for (std::size_t index = 0; index < Endpoints().size(); ++index) {
        const Endpoint& endpoint = Endpoints()[index];
        EXPECT_EQ(endpoint.riid, index + 1);
        EXPECT_EQ(endpoint.interface, qx::kInterfaces[index].name);
        EXPECT_EQ(endpoint.operations.data(), qx::kInterfaces[index].operations.data());
        EXPECT_EQ(FindEndpoint(endpoint.shortName), &endpoint);
        EXPECT_EQ(FindEndpoint(endpoint.name), &endpoint);
        EXPECT_EQ(&EndpointOf(endpoint.interface), &endpoint);
    }
    EXPECT_EQ(EndpointOf("ConnController").name,
              "qx.zam_connector.ZamConnectorComponent.connController");
    EXPECT_EQ(EndpointOf("ZamFileDownloader").shortName, "fileDownloader");
    EXPECT_EQ(FindEndpoint("ConnController"), nullptr);
    EXPECT_THROW(EndpointOf("connController"), std::out_of_range);
}

class NoHandler final : public zam_platform::EndpointHandler {
    void OnCall(const zam_platform::Request&, zam_platform::Responder) override {}
};

TEST(EndpointCatalog, MakesRulesOfTheOperationTables) {
    NoHandler handler;
    for (const Endpoint& endpoint : Endpoints()) {
        const zam_platform::EndpointRule rule = RuleOf(endpoint, handler);
        EXPECT_EQ(rule.name, endpoint.name);
        EXPECT_EQ(rule.riid, endpoint.riid);
        EXPECT_EQ(rule.handler, &handler);
        ASSERT_EQ(rule.operations.size(), endpoint.operations.size());
        for (const qx::OperationInfo& operation : endpoint.operations) {
            const zam_platform::OperationRule& made = rule.operations.at(operation.number);
            EXPECT_EQ(made.name, operation.name);
            EXPECT_EQ(made.requestBytes, operation.requestSize);
            EXPECT_EQ(made.responseBytes, operation.responseSize);
            EXPECT_EQ(made.requestArenaBytes, operation.requestArena);
            EXPECT_EQ(made.responseArenaBytes, operation.responseArena);
        }
    }
}

}  // namespace
}  // namespace zam_service
