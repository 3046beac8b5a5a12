#include "history.h"
#include "service_fixture.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kAccessDenied = -2147483579;  // 0x80000045

/// The service as one fault rule makes it.
class ServiceFaults : public ServiceTest {
protected:
    void StartWithRule(const std::string& rule) {
        service_.WriteData("faults.json", R"({"rules": [)" + rule + "]}");
        StartService();
    }

    std::string LastText() {
        const auto records = logger_.Records();
        return records.empty() ? std::string() : records.back().text;
    }
};

TEST_F(ServiceFaults, ATransportStatusIsLoggedAndBecomesTheUniformFailure) {
    struct Row {
        const char* endpoint;
        const char* operation;
        int (*call)(RealConnection& connection);
        const char* text;
    };
    const Row rows[] = {
        {"connController", "Start",
         [](RealConnection& connection) { return connection.Controller().Start({}); },
         "ZamConnControllerProxy: ipc call Start terminated with a error -77"},
        {"connController", "Stop",
         [](RealConnection& connection) { return connection.Controller().Stop(); },
         "ZamConnControllerProxy: ipc call Stop terminated with a error -77"},
        {"connController", "GetState",
         [](RealConnection& connection) {
             ZamConnectorState state{};
             return connection.Controller().GetState(state);
         },
         "ZamConnControllerProxy: ipc call GetState terminated with a error -77"},
        {"connSettingsHolder", "Set",
         [](RealConnection& connection) {
             return connection.SettingsHolder().Set(ZamConnectorSettings());
         },
         "Zam_conn_settings_holder proxy: ipc call Set terminated with a error -77"},
        {"connSettingsHolder", "Get",
         [](RealConnection& connection) {
             ZamConnectorSettings settings;
             return connection.SettingsHolder().Get(settings);
         },
         "Zam_conn_settings_holder proxy: ipc call Get terminated with a error -77"},
        {"connCommandSender", "PostZamEvent",
         [](RealConnection& connection) {
             return connection.CommandSender().PostZamEvent("event");
         },
         "ZamConnCommandSenderProxy: ipc call PostZamEvent terminated with a error -77"},
        {"connCommandSender", "ScheduleSync",
         [](RealConnection& connection) { return connection.CommandSender().ScheduleSync(); },
         "ZamConnCommandSenderProxy: ipc call ScheduleSync terminated with a error -77"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.operation);
        service_.Kill();
        StartWithRule(std::string(R"({"endpoint": ")") + row.endpoint + R"(", "operation": ")" +
                      row.operation + R"(", "transport_status": -77})");
        EXPECT_EQ(row.call(*connection_), kUnspecifiedError);
        EXPECT_EQ(LastText(), row.text);
    }
    EXPECT_THAT(EventsOf(service_), IsEmpty());
    EXPECT_THAT(HistoryOf(service_, "start"), IsEmpty());
}

TEST_F(ServiceFaults, AResultCodeBeforeTheWorkComesWithAnAnswerOfZeros) {
    StartWithRule(R"({"endpoint": "connController", "operation": "GetState",
                      "result_code": "0x80000045"})");
    EXPECT_EQ(Controller().Start(Parameters()), 0);
    ZamConnectorState state = ZamConnectorState::Refused;
    EXPECT_EQ(Controller().GetState(state), kAccessDenied);
    EXPECT_EQ(state, ZamConnectorState::Stopped);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ServiceFaults, AResultCodeAfterTheWorkComesWithTheRealAnswer) {
    StartWithRule(R"({"endpoint": "connSettingsHolder", "operation": "Get", "when": "after",
                      "result_code": "0x80000045"})");
    ZamConnectorSettings read;
    read.eventQueueLimit = 1;
    EXPECT_EQ(SettingsHolder().Get(read), kAccessDenied);
    EXPECT_EQ(read, ZamConnectorSettings());
}

TEST_F(ServiceFaults, AConnectionDroppedBeforeTheWorkLeavesItUndone) {
    StartWithRule(R"({"endpoint": "connCommandSender", "operation": "PostZamEvent", "calls": 1,
                      "drop": true})");
    EXPECT_EQ(CommandSender().PostZamEvent("dropped"), kUnspecifiedError);
    EXPECT_EQ(LastText(),
              "ZamConnCommandSenderProxy: ipc call PostZamEvent terminated with a error 3");
    EXPECT_EQ(CommandSender().PostZamEvent("kept"), 0);
    EXPECT_THAT(EventsOf(service_), ElementsAre("kept"));
}

TEST_F(ServiceFaults, AConnectionDroppedAfterTheWorkLeavesItDone) {
    StartWithRule(R"({"endpoint": "connCommandSender", "operation": "PostZamEvent", "calls": 1,
                      "when": "after", "drop": true})");
    EXPECT_EQ(CommandSender().PostZamEvent("done"), kUnspecifiedError);
    EXPECT_EQ(CommandSender().PostZamEvent("kept"), 0);
    EXPECT_THAT(EventsOf(service_), ElementsAre("done", "kept"));
}

TEST_F(ServiceFaults, ADelayHoldsTheAnswerBack) {
    constexpr std::chrono::milliseconds kDelay{120};
    StartWithRule(R"({"endpoint": "connController", "operation": "Stop", "delay_ms": 120})");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(Controller().Stop(), kFalse);
    EXPECT_GE(std::chrono::steady_clock::now() - before, kDelay);
}

TEST_F(ServiceFaults, ARuleCountsTheCallsThatItMatches) {
    StartWithRule(R"({"endpoint": "connController", "operation": "*", "calls": [2, 3],
                      "result_code": -1})");
    EXPECT_EQ(Controller().Stop(), kFalse);
    EXPECT_EQ(Controller().Stop(), -1);
    EXPECT_EQ(Controller().Stop(), -1);
    EXPECT_EQ(Controller().Stop(), kFalse);
}

TEST_F(ServiceFaults, AnEditOfTheRulesTakesEffectWithoutARestart) {
    StartService();
    EXPECT_EQ(Controller().Stop(), kFalse);
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "connController",
        "operation": "Stop", "result_code": "0x80000045"}]})");
    EXPECT_TRUE(Eventually([this] { return Controller().Stop() == kAccessDenied; }));
    service_.WriteData("faults.json", R"({"rules": []})");
    EXPECT_TRUE(Eventually([this] { return Controller().Stop() == kFalse; }));
}

TEST_F(ServiceFaults, AWrongEditIsReportedWithItsPlaceAndTheLastGoodRulesStay) {
    StartWithRule(R"({"endpoint": "connController", "operation": "Stop", "result_code": -1})");
    service_.WriteData("faults.json", "{\"rules\": [\n  {\"endpoint\": 7}\n]}");
    EXPECT_TRUE(
        Eventually([this] { return service_.Log().find("faults.json") != std::string::npos; }));
    EXPECT_THAT(service_.Log(), ::testing::HasSubstr("/rules/0/endpoint"));
    EXPECT_EQ(Controller().Stop(), -1);
}

}  // namespace
}  // namespace zam_connector::test
