// Every command over a service that is there, lets the connector be made, and answers the command's
// own calls too late.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <future>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "support/lines.h"
#include "support/program.h"
#include "zam_connector_testing/service_process.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using zam_connector::test::ProgramResult;
using zam_connector::test::RunProgram;

using Words = std::vector<std::string>;

constexpr int kFailed = 2;
constexpr int kTimedOut = 4;

struct SlowRow {
    const char* command;  ///< its words
    std::vector<const char*> arguments{};
    int status = kTimedOut;
    const char* input = "";
};

constexpr char kEulas[] =
    R"([{"updeulaid": {"$blob": "AAAAAAAAAAAAAAAAAAAAAAA="}, "updeulareleasetime": 7,
         "updeula": "the text", "updlocinfo": {"$int32": 9}}])";
constexpr char kUpdates[] = R"({"static_info": [], "dynamic_info": []})";

/// Of these the first call is answered too late.
const SlowRow kFirstCalls[] = {
    {"state"},
    {"state", {"--watch"}},
    {"state", {"--wait", "connected"}},
    {"start", {"--server", "server.example", "--port", "1"}},
    {"stop"},
    {"settings get"},
    {"settings set", {"sync_period_s=1"}},
    {"sync"},
    {"event", {"text"}},
    {"policy"},
    {"policy get", {"--tree"}},
    {"policy hash"},
    {"product-settings"},
    {"product-settings get"},
    {"product-settings hash"},
    {"product-settings synced-hash"},
    {"subscriptions"},
    {"subscriptions get"},
    {"subscriptions hash"},
    {"server-data"},
    {"server-data get"},
    {"reserve-cert"},
    {"reserve-cert get"},
    {"updates-status"},
    {"updates-status get"},
    {"updates-status hash"},
    {"upload app-info", {"-"}, kTimedOut, R"({"product_id": "p"})"},
    {"upload app-info-dynamic", {"-"}, kTimedOut, R"({"health": "good"})"},
    {"upload eulas", {"-"}, kTimedOut, kEulas},
    {"upload updates", {"-"}, kTimedOut, kUpdates},
    {"upload settings", {"-"}, kTimedOut, "{}"},
    {"watch"},
    {"watch", {"server-data"}},
    {"file info", {"name"}},
    {"file get", {"name", "-o", "name"}, kFailed},
    {"certs"},
    {"ping"},
    {"doctor"},
};

/// Of these a later one is, of uploads the close.
const SlowRow kLaterCalls[] = {
    {"start", {"--server", "server.example", "--port", "1", "--wait"}},
    {"stop", {"--wait"}},
    {"settings set", {"sync_period_s=1"}},
    {"policy"},
    {"product-settings"},
    {"upload eulas", {"-"}, kTimedOut, kEulas},
    {"upload updates", {"-"}, kTimedOut, kUpdates},
    {"upload settings", {"-"}, kTimedOut, "{}"},
};

/// These make no call of their own.
const std::set<std::string> kWithoutCalls = {"locales", "explain"};

Words WordsOf(const std::string& text) {
    std::istringstream in(text);
    Words words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

class SlowAnswers : public ::testing::Test {
protected:
    ProgramResult Run(Words words, const std::string& timeout, const std::string& input) const {
        words.insert(words.begin(), {"--timeout", timeout});
        return RunProgram(
            ZAMCTL_EXECUTABLE, words,
            {.input = input, .environment = {{"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory()}}});
    }

    /// Runs a command with more and more time until its connector was made in it.
    ProgramResult RunBeyondConnector(const SlowRow& row) const {
        Words words = WordsOf(row.command);
        words.insert(words.end(), row.arguments.begin(), row.arguments.end());
        ProgramResult result;
        for (const char* const timeout : {"0.2", "1", "5", "25"}) {
            result = Run(words, timeout, row.input);
            // Made just before the end it leaves the close of a channel no room either.
            if (result.err.find("is there, but answers nothing") == std::string::npos &&
                result.err.find("has not been taken") == std::string::npos) {
                break;
            }
        }
        return result;
    }

    /// Some at once, since they wait most of the time.
    void ExpectEndsInTime(std::span<const SlowRow> rows) const {
        constexpr std::size_t kAtOnce = 20;
        while (!rows.empty()) {
            const auto some = rows.first(std::min(kAtOnce, rows.size()));
            std::vector<std::future<ProgramResult>> runs;
            for (const SlowRow& row : some) {
                runs.push_back(std::async(std::launch::async,
                                          [this, &row] { return RunBeyondConnector(row); }));
            }
            for (std::size_t at = 0; at < some.size(); ++at) {
                SCOPED_TRACE(fmt::format("{} {}", some[at].command,
                                         ::testing::PrintToString(some[at].arguments)));
                const ProgramResult result = runs[at].get();
                // What the command itself did not end, the last resort would: with status 2.
                EXPECT_EQ(result.status, some[at].status) << result.err;
                EXPECT_THAT(result.err, Not(HasSubstr("answers nothing: ")));
                EXPECT_THAT(result.err, Not(HasSubstr("has not been taken")));
            }
            rows = rows.subspan(some.size());
        }
    }

    void StartService(const std::string& faults) {
        service_.WriteData("faults.json", "{\"rules\": [" + faults + "]}");
        service_.Start();
    }

    zam_connector::testing::ServiceProcess service_{ZAM_CONNECTORD};
};

std::string DelayOf(const char* endpoint, const char* operation) {
    return fmt::format(R"({{"endpoint": "{}", "operation": "{}", "delay_ms": 86400000}})", endpoint,
                       operation);
}

TEST_F(SlowAnswers, EndEveryCommandInItsTime) {
    std::string faults;
    for (const char* const endpoint :
         {"connController", "connSettingsHolder", "connCommandSender", "connStateNotifier",
          "zamDataNotifier", "zamDataProvider", "productDataHolder", "fileDownloader",
          "clientCertsDownloader"}) {
        faults += (faults.empty() ? "" : ", ") + DelayOf(endpoint, "*");
    }
    StartService(faults);
    ExpectEndsInTime(kFirstCalls);
}

TEST_F(SlowAnswers, EndCommandsOfSeveralCallsInTheirTime) {
    service_.WriteData("policy.json", R"({"a": 1})");
    service_.WriteData("product_settings.json", R"({"a": 1})");
    StartService(DelayOf("connController", "GetState") + ", " +
                 DelayOf("connSettingsHolder", "Set") + ", " +
                 DelayOf("zamDataProvider", "GetData") + ", " +
                 DelayOf("productDataHolder", "CloseChannel"));
    ExpectEndsInTime(kLaterCalls);
}

/// The commands behind these words, as the help lists them; the words themselves when none are.
std::vector<std::string> CommandsBehind(const std::string& words) {
    Words arguments = WordsOf(words);
    arguments.emplace_back("--help");
    std::vector<std::string> commands;
    bool isListed = false;
    for (const std::string& line : zam_test::Lines(RunProgram(ZAMCTL_EXECUTABLE, arguments).out)) {
        if (isListed && line.starts_with("  ")) {
            const std::string command = (words.empty() ? "" : words + ' ') + WordsOf(line).front();
            const std::vector<std::string> behind = CommandsBehind(command);
            commands.insert(commands.end(), behind.begin(), behind.end());
        } else {
            isListed = line == "Subcommands:";
        }
    }
    return commands.empty() ? std::vector{words} : commands;
}

TEST(SlowAnswersTable, HasEveryCommand) {
    std::set<std::string> tested = kWithoutCalls;
    for (const SlowRow& row : kFirstCalls) {
        tested.insert(row.command);
    }
    const std::vector<std::string> commands = CommandsBehind("");
    EXPECT_GT(commands.size(), kWithoutCalls.size());
    for (const std::string& command : commands) {
        EXPECT_TRUE(tested.count(command) == 1)
            << "give '" << command << "' a row with the operation that it waits for";
    }
}

}  // namespace
}  // namespace zamctl::test
