#include <nlohmann/json.hpp>

#include "history.h"
#include "service_fixture.h"
#include "support/program.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The command line as people use it, over the real service.
class ServiceCommands : public ServiceTest {
protected:
    static ProgramResult Run(const std::vector<std::string>& arguments,
                             const std::string& input = {}) {
        return RunProgram(ZAMCTL, arguments, {.input = input});
    }

    /// The one JSON document that a command writes.
    static nlohmann::json RunJson(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "--json");
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return nlohmann::json::parse(result.out);
    }
};

TEST_F(ServiceCommands, SteerTheConnectorFromStartToStop) {
    service_.Start();
    EXPECT_EQ(RunJson({"state"}).at("state"), "stopped");
    EXPECT_EQ(Run({"start", "--server", "server.example", "--port", "13000", "--wait"}).status, 0);
    EXPECT_EQ(RunJson({"state"}).at("state"), "connected");
    EXPECT_EQ(Run({"settings", "set", "sync_period_s=600"}).status, 0);
    EXPECT_EQ(RunJson({"settings", "get"}).at("sync_period_s"), 600);
    EXPECT_EQ(Run({"event", "door opened"}).status, 0);
    EXPECT_EQ(Run({"sync"}).status, 0);
    EXPECT_EQ(Run({"ping", "--count", "3", "--interval", "1"}).status, 0);
    EXPECT_EQ(Run({"doctor"}).status, 0) << Run({"doctor"}).out;
    EXPECT_EQ(Run({"stop", "--wait"}).status, 0);
    EXPECT_EQ(RunJson({"state"}).at("state"), "stopped");

    EXPECT_THAT(EventsOf(service_), ElementsAre("door opened"));
    EXPECT_EQ(HistoryOf(service_, "start").size(), 1U);
    EXPECT_EQ(HistoryOf(service_, "stop").size(), 1U);
    EXPECT_EQ(HistoryOf(service_, "sync_scheduled").size(), 1U);
}

TEST_F(ServiceCommands, ReadBackTheSettingsThatTheyPrint) {
    service_.Start();
    const ProgramResult printed = Run({"--json", "settings", "get"});
    ASSERT_EQ(printed.status, 0);
    EXPECT_EQ(Run({"settings", "set", "sync_period_s=1", "send_diagnostics=true"}).status, 0);
    EXPECT_EQ(Run({"settings", "set", "--from", "-"}, printed.out).status, 0);
    EXPECT_EQ(Run({"--json", "settings", "get"}).out, printed.out);
}

TEST_F(ServiceCommands, EndWithStatusTwoAndTheCodeWhenTheServiceRefuses) {
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "connController",
        "operation": "Stop", "result_code": "0x80000045"}]})");
    service_.Start();
    const ProgramResult result = Run({"stop"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("0x80000045"));
    EXPECT_THAT(result.err, HasSubstr("Access denied"));
}

TEST_F(ServiceCommands, EndWithStatusTwoWhenACallFails) {
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "connController",
        "operation": "GetState", "transport_status": 99}]})");
    service_.Start();
    const ProgramResult result = Run({"state"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("0x8000004B"));
    EXPECT_THAT(result.err, HasSubstr("99"));
}

TEST_F(ServiceCommands, EndWithStatusThreeWithoutAService) {
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"state"},
                                               {"start", "--server", "a", "--port", "1"},
                                               {"stop"},
                                               {"settings", "get"},
                                               {"settings", "set", "sync_period_s=1"},
                                               {"sync"},
                                               {"event", "text"},
                                               {"ping", "--count", "1"},
                                               {"doctor"}}) {
        SCOPED_TRACE(command.front());
        const ProgramResult result = Run(command);
        EXPECT_EQ(result.status, 3);
        if (command.front() != "doctor") {
            EXPECT_THAT(result.out, IsEmpty());
            EXPECT_THAT(result.err, HasSubstr(service_.RuntimeDirectory()));
        }
    }
}

TEST_F(ServiceCommands, EndWithStatusOneForWrongWordsAndSendNothing) {
    service_.Start();
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"sate"},
                                               {"start", "--server", "a", "--port", "0"},
                                               {"start", "--server", "a", "--port", "65536"},
                                               {"settings", "set", "sync_period_s=-1"},
                                               {"settings", "set", "no_such_setting=1"},
                                               {"event", std::string(129, 'e')},
                                               {"explain", "nonsense"}}) {
        SCOPED_TRACE(command.front());
        const ProgramResult result = Run(command);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(result.err, ::testing::Not(IsEmpty()));
    }
    EXPECT_THAT(HistoryOf(service_, "start"), IsEmpty());
    EXPECT_THAT(EventsOf(service_), IsEmpty());
}

}  // namespace
}  // namespace zam_connector::test
