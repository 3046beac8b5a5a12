#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "crowd.h"
#include "report.h"
#include "service.h"
#include "suites.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 3;
constexpr int kFrames = 1'000'000;
constexpr std::uint32_t kSessions = 3000;
constexpr int kChannelsOfSession = 13;
constexpr int kChannelCalls = 200'000;
constexpr int kRefusedConnections = 160'000;
constexpr std::uint32_t kPosting = 1500;
constexpr int kEvents = 300'000;

constexpr auto kQuietPause = std::chrono::microseconds(200);
/// Behind a load: its sessions end 2 s after their connections.
constexpr auto kAfterLoad = std::chrono::milliseconds(2500);

constexpr std::uint16_t kGetState = 2;           // of ConnController
constexpr std::uint16_t kPostEvent = 0;          // of ConnCommandSender
constexpr std::uint16_t kOpenPolicyChannel = 0;  // of ZamDataProvider
constexpr std::uint16_t kGetHash = 3;

std::string g_socket;  // its name in its folder

/// Frames of which some bytes are other ones, each on a connection that the server still serves.
LoadOutcome SendMutatedFrames() {
    std::mt19937 random(20261122);
    const FrameBytes whole = CallFrame("ConnController", kGetState);
    LoadOutcome outcome;
    FrameBytes answer;
    std::unique_ptr<CrowdClient> client;
    std::uint32_t number = 0;
    for (; outcome.done < kFrames; ++outcome.done) {
        if (client == nullptr) {
            client = std::make_unique<CrowdClient>(g_socket);
            client->Greet(number++ % 64);
        }
        FrameBytes frame = whole;
        for (std::uint64_t change = random() % 3 + 1; change != 0; --change) {
            frame[random() % frame.size()] = static_cast<unsigned char>(random());
        }
        zam_platform::Prelude prelude;
        const bool isSound =
            zam_platform::DecodePrelude(frame.data(), prelude) == zam_platform::FrameFault::None;
        const bool isCut = isSound && prelude.FrameBytes() > frame.size();
        // Nothing comes back for a frame that is not whole.
        const bool isAnswered = client->Send(frame) && !isCut && client->Receive(answer);
        outcome.refused += !isAnswered && !isCut ? 1U : 0U;
        if (!isAnswered || prelude.FrameBytes() != frame.size()) {
            client.reset();
        }
    }
    return outcome;
}

/// Sessions with channels that are used all over, and then all left at once.
LoadOutcome UseManyChannels() {
    LoadOutcome outcome;
    std::vector<CrowdClient> clients;
    std::vector<std::vector<std::uint64_t>> channels(kSessions);
    FrameBytes answer;
    const FrameBytes open = CallFrame("ZamDataProvider", kOpenPolicyChannel);
    for (std::uint32_t session = 0; session < kSessions; ++session) {
        clients.emplace_back(g_socket);
        clients.back().Greet(1000 + session);
        for (int channel = 0; channel < kChannelsOfSession; ++channel) {
            if (!clients.back().Exchange(open, answer)) {
                throw std::runtime_error("a channel was not opened");
            }
            std::uint64_t id = 0;
            std::memcpy(&id, answer.data() + 24, sizeof(id));
            outcome.refused += answer[32] != 0 ? 1U : 0U;
            channels[session].push_back(id);
        }
    }
    std::mt19937 random(20261122);
    for (int call = 0; call < kChannelCalls; ++call) {
        const std::size_t session = random() % kSessions;
        const std::uint64_t channel = channels[session][random() % kChannelsOfSession];
        if (!clients[session].Exchange(CallFrame("ZamDataProvider", kGetHash, channel), answer)) {
            throw std::runtime_error("a call on a channel failed");
        }
    }
    outcome.done = kSessions * kChannelsOfSession;
    return outcome;
}

LoadOutcome ConnectInVain() {
    LoadOutcome outcome;
    FrameBytes answer;
    for (; outcome.done < kRefusedConnections; ++outcome.done) {
        outcome.refused += CrowdClient(g_socket).Receive(answer) ? 0U : 1U;
    }
    return outcome;
}

/// All connections have an event on its way at any time.
LoadOutcome PostEvents() {
    LoadOutcome outcome;
    const FrameBytes event =
        CallFrame("ConnCommandSender", kPostEvent, std::uint64_t{16} << 32U, "an event's text.");
    std::vector<CrowdClient> clients;
    for (std::uint32_t number = 0; number < kPosting; ++number) {
        clients.emplace_back(g_socket);
        clients.back().Greet(1000 + number);
        clients.back().Send(event);
    }
    FrameBytes answer;
    while (outcome.done < kEvents) {
        for (const CrowdClient& client : clients) {
            if (!client.Receive(answer)) {
                throw std::runtime_error("a connection was closed");
            }
            std::int32_t code = 0;
            std::memcpy(&code, answer.data() + 24, sizeof(code));
            outcome.refused += code != 0 ? 1U : 0U;
            ++outcome.done;
            client.Send(event);
        }
    }
    return outcome;
}

struct Latency {
    double p50 = 0;
    double p99 = 0;
    LoadOutcome load;
};

/// A quiet client's calls from the beginning of a load until everything of it has ended.
Latency MeasureBeside(const std::string& path, bool isAdmitted,
                      const std::function<LoadOutcome()>& body) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = path.substr(0, slash);
    g_socket = path.substr(slash + 1);
    ::chmod(folder.c_str(), 0755);
    const CrowdClient quiet(path);
    quiet.Greet(1);
    const FrameBytes call = CallFrame("ConnController", kGetState);
    FrameBytes answer;
    std::vector<double> times;
    Load load(folder, isAdmitted, body);
    auto end = std::chrono::steady_clock::time_point::max();
    while (std::chrono::steady_clock::now() < end) {
        const double before = NowMicroseconds();
        if (!quiet.Exchange(call, answer)) {
            throw std::runtime_error("the quiet client was turned away");
        }
        times.push_back(NowMicroseconds() - before);
        if (end == std::chrono::steady_clock::time_point::max() && load.HasEnded()) {
            end = std::chrono::steady_clock::now() + kAfterLoad;
        }
        std::this_thread::sleep_for(kQuietPause);
    }
    std::sort(times.begin(), times.end());
    return {.p50 = times[times.size() / 2],
            .p99 = times[times.size() * 99 / 100],
            .load = load.Outcome()};
}

/// Middle values of some rounds, in turns with the floor's.
void MeasureRow(Report& report, const std::string& name, bool isAdmitted, int rounds,
                const std::function<LoadOutcome()>& body) {
    if (!report.Wants(name)) {
        return;
    }
    std::vector<double> p50;
    std::vector<double> p99;
    std::vector<double> floorP50;
    std::vector<double> floorP99;
    LoadOutcome load;
    for (int round = 0; round < rounds; ++round) {
        const Service service(std::vector<std::string>{"--group", kCrowdGroup});
        {
            const std::string path = service.SocketPath() + ".bare";
            const BareCrowdServer bare(path);
            const Latency latency = MeasureBeside(path, isAdmitted, body);
            floorP50.push_back(latency.p50);
            floorP99.push_back(latency.p99);
        }
        const Latency latency = MeasureBeside(service.SocketPath(), isAdmitted, body);
        p50.push_back(latency.p50);
        p99.push_back(latency.p99);
        load = latency.load;
    }
    report.Add({name, "p50", "us", Median(p50), Median(floorP50)});
    report.Add({name, "p99", "us", Median(p99), Median(floorP99)});
    const std::string unit = "of " + std::to_string(load.done);
    report.Add({name, "refused", unit, static_cast<double>(load.refused), {}});
}

}  // namespace

void MeasureFairness(Report& report) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    MeasureRow(report, "fair.frames", true, 1, SendMutatedFrames);
    MeasureRow(report, "fair.channels", true, kRounds, UseManyChannels);
    MeasureRow(report, "fair.refused", false, kRounds, ConnectInVain);
    MeasureRow(report, "fair.events", true, kRounds, PostEvents);
}

}  // namespace zam_bench
