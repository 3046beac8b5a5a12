#include "link/connection_plan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace zam_service {
namespace {

using std::chrono::milliseconds;
using zam_connector::ZamConnectorState;
using zam_json::JsonDocument;
using zam_json::JsonError;

ConnectionPlan PlanOf(const std::string& text) {
    const JsonDocument document(kConnectionFile, text);
    return ReadConnectionPlan(document.Root());
}

std::string Steps(std::size_t count) {
    std::string text = R"({"start": [)";
    for (std::size_t step = 0; step < count; ++step) {
        text += step == 0 ? "" : ",";
        text += R"({"state": "connected"})";
    }
    return text + "]}";
}

TEST(ConnectionPlan, OfAnEmptyFileIsTheDefault) {
    const ConnectionPlan plan = PlanOf("{}");
    ASSERT_EQ(plan.start.size(), 2U);
    EXPECT_EQ(plan.start[0].state, ZamConnectorState::Connecting);
    EXPECT_EQ(plan.start[0].after, milliseconds(0));
    EXPECT_EQ(plan.start[1].state, ZamConnectorState::Connected);
    EXPECT_EQ(plan.start[1].after, milliseconds(300));
    ASSERT_EQ(plan.stop.size(), 2U);
    EXPECT_EQ(plan.stop[0].state, ZamConnectorState::Stopping);
    EXPECT_EQ(plan.stop[1].state, ZamConnectorState::Stopped);
    EXPECT_EQ(plan.stop[1].after, milliseconds(100));
    EXPECT_FALSE(plan.refuseAfter);
    EXPECT_FALSE(plan.flap);
    EXPECT_FALSE(plan.startResult);
    EXPECT_EQ(plan.sync, milliseconds(200));
}

TEST(ConnectionPlan, ReadsEveryField) {
    const ConnectionPlan plan = PlanOf(R"({
        "start": [{"state": "waiting_for_reconnect", "after_ms": 5}, {"state": "connected"}],
        "stop": [{"state": "stopped", "after_ms": 7}],
        "refuse": null,
        "flap": {"up_ms": 9, "down_ms": 11},
        "start_result": "0x80000045",
        "sync_ms": 13})");
    EXPECT_EQ(plan.start[0].state, ZamConnectorState::WaitingForReconnect);
    EXPECT_EQ(plan.start[0].after, milliseconds(5));
    EXPECT_EQ(plan.start[1].after, milliseconds(0));
    EXPECT_EQ(plan.stop[0].after, milliseconds(7));
    EXPECT_EQ(plan.flap->up, milliseconds(9));
    EXPECT_EQ(plan.flap->down, milliseconds(11));
    EXPECT_EQ(*plan.startResult, static_cast<int>(0x80000045U));
    EXPECT_EQ(plan.sync, milliseconds(13));
    EXPECT_EQ(*PlanOf(R"({"refuse": {"after_ms": 3}})").refuseAfter, milliseconds(3));
    EXPECT_EQ(*PlanOf(R"({"start_result": -5})").startResult, -5);
}

TEST(ConnectionPlan, AcceptsTheBoundsOfEveryField) {
    for (const char* const text :
         {R"({"start": [{"state": "connected", "after_ms": 86400000}]})",
          R"({"start": [{"state": "connected", "after_ms": 86399999}]})",
          R"({"refuse": {"after_ms": 0}})", R"({"refuse": {"after_ms": 86400000}})",
          R"({"flap": {"up_ms": 1, "down_ms": 1}})",
          R"({"flap": {"up_ms": 2, "down_ms": 86400000}})",
          R"({"flap": {"up_ms": 86400000, "down_ms": 2}})", R"({"sync_ms": 0})",
          R"({"sync_ms": 1})", R"({"sync_ms": 86400000})", R"({"start_result": 2147483647})",
          R"({"start_result": -2147483648})", R"({"start_result": "0xFFFFFFFF"})",
          R"({"start_result": "0x0"})"}) {
        EXPECT_NO_THROW(PlanOf(text)) << text;
    }
    EXPECT_NO_THROW(PlanOf(Steps(1)));
    EXPECT_NO_THROW(PlanOf(Steps(kMaxLinkSteps - 1)));
    EXPECT_EQ(PlanOf(Steps(kMaxLinkSteps)).start.size(), kMaxLinkSteps);
}

struct WrongPlan {
    std::string text;
    std::string pointer;
    std::string message;
};

TEST(ConnectionPlan, RefusesWhatIsOutOfBoundsAndNamesThePlace) {
    const std::vector<WrongPlan> rows = {
        {"[]", "", "is an array, allowed is an object"},
        {R"({"begin": 1})", "/begin", "not known here"},
        {Steps(0), "/start", "has 0 elements, allowed is an array of 1 to 64"},
        {Steps(kMaxLinkSteps + 1), "/start", "has 65 elements"},
        {R"({"stop": []})", "/stop", "has 0 elements"},
        {R"({"start": [{"after_ms": 1}]})", "/start/0", "the member \"state\" is missing"},
        {R"({"start": [{"state": "up"}]})", "/start/0/state",
         "is \"up\", allowed is one of stopped, connecting, connected, waiting_for_reconnect, "
         "stopping, refused"},
        {R"({"start": [{"state": 2}]})", "/start/0/state", "is 2, allowed is one of"},
        {R"({"start": [{"state": "connected", "after_ms": -1}]})", "/start/0/after_ms",
         "is -1, allowed is a whole number from 0 to 86400000"},
        {R"({"start": [{"state": "connected", "after_ms": 86400001}]})", "/start/0/after_ms",
         "is 86400001"},
        {R"({"start": [{"state": "connected", "after": 1}]})", "/start/0/after",
         "allowed are state, after_ms"},
        {R"({"refuse": {}})", "/refuse", "\"after_ms\" is missing"},
        {R"({"refuse": {"after_ms": 86400001}})", "/refuse/after_ms", "is 86400001"},
        {R"({"refuse": true})", "/refuse", "is true, allowed is an object"},
        {R"({"flap": {"up_ms": 0, "down_ms": 1}})", "/flap/up_ms",
         "is 0, allowed is a whole number from 1 to 86400000"},
        {R"({"flap": {"up_ms": 1, "down_ms": 0}})", "/flap/down_ms", "is 0"},
        {R"({"flap": {"up_ms": 86400001, "down_ms": 1}})", "/flap/up_ms", "is 86400001"},
        {R"({"flap": {"up_ms": 1}})", "/flap", "\"down_ms\" is missing"},
        {R"({"flap": {"up_ms": 1, "down_ms": 1}, "refuse": {"after_ms": 1}})", "/flap",
         "set one of refuse and flap to null"},
        {R"({"flap": {"up_ms": 1, "down_ms": 1}, "start": [{"state": "connecting"}]})", "/flap",
         "let start end with connected"},
        {R"({"sync_ms": 86400001})", "/sync_ms", "is 86400001"},
        {R"({"sync_ms": -1})", "/sync_ms", "is -1"},
        {R"({"start_result": 2147483648})", "/start_result", "is 2147483648"},
        {R"({"start_result": -2147483649})", "/start_result", "is -2147483649"},
        {R"({"start_result": "0x123456789"})", "/start_result", "is \"0x123456789\""},
        {R"({"start_result": "0x"})", "/start_result", "is \"0x\""},
        {R"({"start_result": "80000045"})", "/start_result", "is \"80000045\""},
        {R"({"start_result": "0x8000004G"})", "/start_result", "is \"0x8000004G\""},
        {R"({"start_result": "0x-5"})", "/start_result", "is \"0x-5\""},
        {R"({"start_result": true})", "/start_result", "a text like \"0x80000045\""},
    };
    for (const WrongPlan& row : rows) {
        try {
            PlanOf(row.text);
            ADD_FAILURE() << "accepted: " << row.text;
        } catch (const JsonError& error) {
            EXPECT_EQ(error.Pointer(), row.pointer) << row.text;
            EXPECT_THAT(error.what(), ::testing::HasSubstr(row.message)) << row.text;
        }
    }
}

}  // namespace
}  // namespace zam_service
