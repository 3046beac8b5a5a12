#include <fmt/format.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "data_fixture.h"
#include "history.h"
#include "support/lines.h"
#include "support/program.h"
#include "support/running_program.h"
#include "support/temporary_folder.h"

namespace zam_connector::test {
namespace {

using ::testing::Contains;

constexpr int kClients = 4;
constexpr char kFile[] = "load.bin";

/// Four clients of every kind of call, each a process, and the service falling over under them.
class KilledUnderLoad : public ServiceDataTest {
protected:
    KilledUnderLoad() {
        std::string content(300'000, '\0');
        for (std::size_t at = 0; at < content.size(); ++at) {
            content[at] = static_cast<char>(at % 251);
        }
        std::filesystem::create_directories(service_.DataDirectory() + "/files");
        service_.WriteData("files/" + std::string(kFile), content);
        WritePolicy(1);
    }

    void WritePolicy(long number) {
        zuv::Map map;
        for (int entry = 0; entry < 50; ++entry) {
            map["entry" + std::to_string(entry)] = number;
        }
        service_.WriteData("policy.json", tree_json::Write(zuv::TValue(std::move(map))));
    }

    std::string LogOf(int client) const { return scratch_.Path("client" + std::to_string(client)); }

    void StartClients() {
        for (int client = 0; client < kClients; ++client) {
            clients_.push_back(std::make_unique<zamctl::test::RunningProgram>(
                ZAM_LOADED_CLIENT,
                std::vector<std::string>{std::to_string(client), LogOf(client), kFile},
                WithSanitizerOptions({"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory()})));
        }
    }

    /// What a client wrote behind this word.
    std::vector<std::string> Told(int client, const std::string& word) const {
        std::vector<std::string> told;
        for (const std::string& line : zam_test::Lines(zam_test::Content(LogOf(client)))) {
            if (line.starts_with(word + ' ')) {
                told.push_back(line.substr(word.size() + 1));
            }
        }
        return told;
    }

    void AwaitProgress() {
        for (int client = 0; client < kClients; ++client) {
            const std::size_t before = Told(client, "upload").size();
            EXPECT_TRUE(Eventually([&] { return Told(client, "upload").size() > before; }));
        }
    }

    /// Checks that the settings that stand are whole, those of the last upload of the history, and
    /// of a client's last confirmed upload or a younger one.
    void ExpectStandsLast(const std::string& lastHash) {
        const zuv::TValue stored = Upload("settings");  // throws when it is torn
        ASSERT_TRUE(stored.Is<zuv::Map>());
        const auto& map = stored.Get<zuv::Map>();
        ASSERT_EQ(map.size(), 60U);
        const std::string client = map.begin()->first.substr(2, 1);
        const zuv::TValue& first = map.begin()->second;
        ASSERT_TRUE(first.Is<long>());
        const long number = first.Get<long>();
        for (int entry = 0; entry < 60; ++entry) {
            const auto found = map.find(fmt::format("of{}_{}", client, entry));
            ASSERT_NE(found, map.end());
            ASSERT_TRUE(found->second.IsIdenticalTo(first)) << "two uploads in one";
        }
        unsigned long hash = 0;
        ASSERT_TRUE(Eventually([&] { return Provider().GetSyncedSettingsHash(hash) == 0; }));
        EXPECT_EQ(fmt::format("{:#018x}", hash), lastHash) << "an older upload stands";
        long lastConfirmed = -1;
        for (const std::string& told : Told(std::stoi(client), "upload")) {
            lastConfirmed = std::stol(told.substr(told.find(' ')));
            if (lastConfirmed == number) {
                EXPECT_EQ(std::stoul(told), hash);
            }
        }
        EXPECT_GE(number, lastConfirmed) << "client " << client << " was confirmed a younger one";
    }

    const zam_test::TemporaryFolder scratch_;
    std::vector<std::unique_ptr<zamctl::test::RunningProgram>> clients_;
};

TEST_F(KilledUnderLoad, LosesRepeatsAndTearsNothingAndHoldsNobodyUp) {
    const int kills = IsFullSize() ? 1000 : 12;
    StartService();
    StartClients();
    AwaitProgress();
    std::mt19937 random(20261122);
    long policy = 1;
    for (int kill = 0; kill < kills; ++kill) {
        WritePolicy(++policy);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60'000));
        service_.Kill();
        service_.Start();
    }
    AwaitProgress();
    for (int client = 0; client < kClients; ++client) {
        EXPECT_TRUE(Eventually([&] {
            const auto told = Told(client, "told");
            return !told.empty() && told.back() == std::to_string(policy);
        })) << "client "
            << client << " has not heard of the last policy";
    }
    for (const auto& client : clients_) {
        client->Signal(SIGTERM);
    }
    for (const auto& client : clients_) {
        EXPECT_EQ(client->Wait(), 0);
    }

    std::map<std::string, int> events;
    for (const std::string& event : EventsOf(service_)) {
        ++events[event];
    }
    for (const auto& [event, count] : events) {
        EXPECT_EQ(count, 1) << event << " was done twice";
    }
    std::map<std::string, int> hashes;
    std::string lastHash;
    for (const nlohmann::json& line : HistoryOf(service_, "upload")) {
        lastHash = line.at("hash");
        ++hashes[lastHash];
    }
    for (int client = 0; client < kClients; ++client) {
        SCOPED_TRACE(client);
        EXPECT_FALSE(Told(client, "event").empty());
        for (const std::string& event : Told(client, "event")) {
            EXPECT_EQ(events.count(event), 1U) << event << " was confirmed and is lost";
        }
        for (const std::string& hash : Told(client, "upload")) {
            EXPECT_EQ(hashes.count(fmt::format("{:#018x}", std::stoul(hash))), 1U)
                << "a confirmed upload is lost";
        }
        EXPECT_THAT(Told(client, "wrong"), ::testing::IsEmpty());
        EXPECT_THAT(Told(client, "told"), ::testing::Not(Contains("-1")));
        ASSERT_EQ(Told(client, "longest").size(), 1U);
        // 2 s of the deadline and 0.75 s of a close, and what a loaded machine adds.
        EXPECT_LE(std::stol(Told(client, "longest").front()), 2'750 + 1'000);
        if (IsFullSize()) {
            RecordProperty("longest" + std::to_string(client), Told(client, "longest").front());
        }
    }
    ExpectStandsLast(lastHash);
}

}  // namespace
}  // namespace zam_connector::test
