#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "daemon_fixture.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "zam_platform/transport_status.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using zam_connector::ZamConnectorState;
using zam_service::testing::Client;
using zam_service::testing::Code;
using zam_service::testing::Parameters;
using zam_service::testing::Status;
using zam_test::Eventually;

using FaultInjectionTest = zam_service::testing::DaemonFixture;

std::string RuleFor(const std::string& endpoint, const std::string& operation,
                    const std::string& effect) {
    return R"({"endpoint": ")" + endpoint + R"(", "operation": ")" + operation + "\", " + effect +
           "}";
}

TEST_F(FaultInjectionTest, InjectsAResultCodeBeforeTheWork) {
    BeginWithFault(RuleFor("connCommandSender", "PostZamEvent", R"("result_code": -9)"));
    EXPECT_EQ(Client().Post("text"), Code(-9));
    EXPECT_FALSE(fs::exists(data_.Path("uploads/history.jsonl")));
}

TEST_F(FaultInjectionTest, InjectsAResultCodeAfterTheWork) {
    BeginWithFault(
        RuleFor("connCommandSender", "PostZamEvent", R"("result_code": -9, "when": "after")"));
    EXPECT_EQ(Client().Post("text"), Code(-9));
    EXPECT_THAT(History("text"), ElementsAre("event text"));
}

TEST_F(FaultInjectionTest, KeepsTheRestOfAnAnswerThatItChanges) {
    BeginWithFault(RuleFor("connController", "GetState", R"("result_code": -9, "when": "after")"));
    Client client;
    ASSERT_EQ(client.Start(Parameters()), Code(kNoError));
    std::optional<ZamConnectorState> state;
    EXPECT_EQ(client.GetState(state), Code(-9));
    EXPECT_EQ(state, ZamConnectorState::Connected);
}

TEST_F(FaultInjectionTest, ZeroesTheRestOfAnAnswerThatItMakes) {
    BeginWithFault(RuleFor("connController", "GetState", R"("result_code": -9)"));
    Client client;
    ASSERT_EQ(client.Start(Parameters()), Code(kNoError));
    std::optional<ZamConnectorState> state;
    EXPECT_EQ(client.GetState(state), Code(-9));
    EXPECT_EQ(state, ZamConnectorState::Stopped);
}

TEST_F(FaultInjectionTest, InjectsATransportStatusBeforeAndAfterTheWork) {
    BeginWithFault(
        RuleFor("connCommandSender", "PostZamEvent", R"("transport_status": 77, "calls": 1)") +
        "," +
        RuleFor("connCommandSender", "PostZamEvent",
                R"("transport_status": -78, "calls": 2, "when": "after")"));
    Client client;
    EXPECT_EQ(client.Post("before"), Status(77));
    EXPECT_EQ(client.Post("after"), Status(-78));
    EXPECT_EQ(client.Post("none"), Code(kNoError));
    EXPECT_THAT(History("text"), ElementsAre("event after", "event none"));
}

TEST_F(FaultInjectionTest, DropsTheConnectionBeforeAndAfterTheWork) {
    BeginWithFault(RuleFor("connCommandSender", "*", R"("drop": true, "calls": 1)") + "," +
                   RuleFor("connCommandSender", "*",
                           R"("drop": true, "calls": 2, "when": "after", "delay_ms": 1)"));
    Client client;
    EXPECT_EQ(client.Post("before"), Status(zam_platform::kStatusBroken));
    EXPECT_EQ(client.Post("after"), Status(zam_platform::kStatusBroken));
    EXPECT_EQ(client.Post("none"), Code(kNoError));
    EXPECT_THAT(History("text"), ElementsAre("event after", "event none"));
}

TEST_F(FaultInjectionTest, DelaysTheWorkOrTheAnswer) {
    constexpr std::chrono::milliseconds kDelay{50};
    for (const std::string when : {"before", "after"}) {
        BeginWithFault(RuleFor("connCommandSender", "PostZamEvent",
                               R"("delay_ms": 50, "when": ")" + when + "\""));
        Client client;
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(client.Post(when + " the work"), Code(kNoError));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, kDelay);
        EXPECT_EQ(History("text").back(), "event " + when + " the work");
        End();
    }
}

TEST_F(FaultInjectionTest, DelaysAnInjectedAnswer) {
    BeginWithFault(RuleFor("connController", "Stop", R"("delay_ms": 50, "result_code": -5)"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Client().Stop(), Code(-5));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST_F(FaultInjectionTest, EndsWhileCallsAreDelayed) {
    for (const char* const when : {"before", "after"}) {
        BeginWithFault(RuleFor("connController", "GetState",
                               std::string(R"("delay_ms": 86400000, "when": ")") + when + "\""));
        Client client;
        std::thread waiting(
            [&] { EXPECT_EQ(client.GetState(), Status(zam_platform::kStatusBroken)); });
        EXPECT_TRUE(Eventually([&] { return !logger_.Records().empty(); }));
        EXPECT_EQ(logger_.Records().back().text,
                  std::string("GetState of connController meets with a fault ") + when +
                      " the work, number 1 of the interface");
        End();
        waiting.join();
        logger_.Clear();
    }
}

TEST_F(FaultInjectionTest, TakesUpFaultsWhileItRuns) {
    BeginFast();
    Client client;
    EXPECT_EQ(client.GetState(), Code(kNoError));
    data_.Write(
        "faults.json",
        R"({"rules": [)" + RuleFor("connController", "GetState", R"("result_code": -5)") + "]}");
    EXPECT_TRUE(Eventually([&] { return client.GetState() == Code(-5); }));
    fs::remove(data_.Path("faults.json"));
    EXPECT_TRUE(Eventually([&] { return client.GetState() == Code(kNoError); }));
}

}  // namespace
}  // namespace zam_service
