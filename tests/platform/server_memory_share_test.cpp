#include <gtest/gtest.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <deque>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/polling_policy.h"
#include "shared/cpu_share.h"
#include "support/memory_peer.h"
#include "support/no_descriptors_left.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

constexpr std::size_t kPlaces = 8;

/// Who has memory, for how long, and when the service looks there by itself.
class ServerMemoryShare : public ::testing::Test {
protected:
    static ServerLimits Limits() { return {.spinCap = std::chrono::microseconds(50)}; }

    static std::int32_t StatusOfRequest(const RawSocket& socket, CallHints hints = kElsewhere) {
        socket.Send(MemoryRequestFrame(0, hints));
        const FrameWithFiles answer = ReadFrameWithFiles(socket);
        EXPECT_EQ(answer.frame.prelude.kind, FrameKind::MemoryAnswer);
        EXPECT_EQ(answer.files.size(), answer.frame.prelude.status == 0 ? 2U : 0U);
        EXPECT_EQ(answer.frame.fixed.size(), answer.frame.prelude.status == 0 ? 8U : 0U);
        return answer.frame.prelude.status;
    }

    static void AwaitMemory(const RawSocket& socket) {
        Await("memory", [&socket] { return StatusOfRequest(socket) == kStatusOk; });
    }

    /// Each is a client of its own.
    static std::deque<MemoryPeer> PeersInAllPlaces(const TestServer& server) {
        std::deque<MemoryPeer> peers;
        for (std::size_t index = 0; index < kPlaces; ++index) {
            peers.emplace_back(server, static_cast<unsigned char>(index));
        }
        return peers;
    }

    static void ExpectEchoes(const RawSocket& socket, std::uint64_t number) {
        socket.Send(CallFrame(number, kEcho, 70 + number));
        const Frame answer = socket.ReadFrame();
        EXPECT_EQ(answer.prelude.kind, FrameKind::Answer);
        EXPECT_EQ(MessageIn(answer.fixed).value, 70 + number);
    }

    static bool HasTwoCpus() {
        cpu_set_t set;
        return ::sched_getaffinity(0, sizeof(set), &set) == 0 && CPU_COUNT(&set) > 1;
    }

    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(ServerMemoryShare, IsNobodysWhoseCpuIsTheServicesOrUnknown) {
    TestServer server(Limits());
    const int cpu = server.OnLoop([] {
        const int current = ::sched_getcpu();
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<std::size_t>(current), &set);
        return ::sched_setaffinity(0, sizeof(set), &set) == 0 ? current : -1;
    });
    ASSERT_GE(cpu, 0);
    const RawSocket client = server.Greet();
    EXPECT_EQ(StatusOfRequest(client, {.gap = 0, .cpu = 0}), kStatusQuota);
    EXPECT_EQ(StatusOfRequest(client, {.gap = 0, .cpu = static_cast<std::uint16_t>(cpu + 1)}),
              kStatusQuota);
    ExpectEchoes(client, 1);
    EXPECT_EQ(StatusOfRequest(client), kStatusOk) << "may be asked for again";
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerMemoryShare, IsNobodysWhereThereIsNone) {
    TestServer server(Limits());
    const RawSocket client = server.Greet();
    ExpectEchoes(client, 1);
    logger_.Clear();
    {
        const NoDescriptorsLeft none;
        logger_.Clear();
        client.Send(MemoryRequestFrame());
        EXPECT_EQ(client.ReadFrame().prelude.status, kStatusQuota);
        ExpectEchoes(client, 2);
    }
    EXPECT_TRUE(logger_.Records().empty());
    EXPECT_EQ(StatusOfRequest(client), kStatusOk);
}

TEST_F(ServerMemoryShare, GoesToAnotherFromTheOneThatHasNotUsedItForLongest) {
    TestServer server(Limits());
    std::deque<MemoryPeer> peers = PeersInAllPlaces(server);
    peers[0].Call(1, CallFrame(1, kEcho, 1));
    const RawSocket ninth = server.Greet(0x99);
    AwaitMemory(ninth);
    for (std::size_t index = 0; index < kPlaces; ++index) {
        EXPECT_EQ(peers[index].Answers().polling.load(), index == 1 ? kGivenUp : kAsleep) << index;
    }
    // What it leaves there now is sent back, and it goes on by the socket.
    MemoryPeer& given = peers[1];
    given.Put(1, CallFrame(1, kEcho, 5));
    given.Look(1);
    EXPECT_EQ(ToHex(given.Socket().Read(kPreludeBytes)), ToHex(LookFrame(1)));
    EXPECT_EQ(given.Answers().taken.load(), 0U);
    ExpectEchoes(given.Socket(), 1);
    given.Look(1);
    ExpectEchoes(given.Socket(), 2);
    EXPECT_EQ(server.Endpoint().Calls().size(), 3U);
    given.Look(4);
    EXPECT_EQ(given.Socket().ReadFrame().prelude.status, kStatusBadRequest);
    EXPECT_EQ(peers[0].Call(2, CallFrame(2, kEcho, 1)).prelude.status, 0);
}

TEST_F(ServerMemoryShare, IsServedForTheLastTimeWhenItIsGivenUp) {
    TestServer server(Limits());
    std::deque<MemoryPeer> peers = PeersInAllPlaces(server);
    peers[0].Put(1, CallFrame(1, kEcho, 51));
    const RawSocket ninth = server.Greet(0x99);
    AwaitMemory(ninth);
    EXPECT_EQ(MessageIn(peers[0].AwaitAnswer(1).fixed).value, 51U);
    EXPECT_EQ(peers[0].Answers().polling.load(), kGivenUp);
    EXPECT_FALSE(peers[0].Socket().HasInput());
    peers[0].Look(1);
    ExpectEchoes(peers[0].Socket(), 2);
    AwaitMemory(peers[0].Socket());
    EXPECT_EQ(peers[1].Answers().polling.load(), kGivenUp);
}

TEST_F(ServerMemoryShare, EndsWithTheConnectionThatARequestEndsWhenItIsGivenUp) {
    TestServer server(Limits());
    std::deque<MemoryPeer> peers = PeersInAllPlaces(server);
    peers[0].Put(1, CallFrame(1, kDrop, 52));
    peers[1].Put(7, CallFrame(7, kEcho, 53));
    const RawSocket ninth = server.Greet(0x98);
    AwaitMemory(ninth);
    EXPECT_TRUE(peers[0].Socket().EndsNow());
    const RawSocket tenth = server.Greet(0x99);
    AwaitMemory(tenth);
    EXPECT_EQ(peers[1].Socket().ReadFrame().prelude.status, kStatusBadRequest);
    EXPECT_EQ(server.Connections(), 8U);
}

TEST_F(ServerMemoryShare, IsNotGivenToAConnectionThatEndsWhileAnotherGivesItUp) {
    TestServer server(Limits());
    SessionToken token;
    token.fill(0x99);
    server.Endpoint().Custom([&server, token](const Request&, Responder responder) {
        server.Get().NoticeBroken(token);
        TestMessage message{};
        responder.Answer(message);
    });
    std::deque<MemoryPeer> peers = PeersInAllPlaces(server);
    peers[0].Put(1, CallFrame(1, kCustom, 1));
    // Until the others have rested for long enough nobody gives any up.
    while (peers[0].Answers().answer.load() != 1) {
        const RawSocket ninth = server.Greet(0x99);
        server.OnLoop([&ninth] {
            ninth.Send(MemoryRequestFrame());
            ninth.EndSending();
            return 0;
        });
        Await("its end", [&server] { return server.Connections() == kPlaces; });
    }
    EXPECT_EQ(peers[0].Answers().polling.load(), kGivenUp);
    EXPECT_EQ(peers[1].Call(1, CallFrame(1, kEcho, 1)).prelude.status, 0);
    AwaitMemory(server.Greet(0x98));
}

TEST_F(ServerMemoryShare, IsHalfOfAUsersWhenAnotherWantsIt) {
    TestServer server(Limits(), {.ownUser = 1000, .group = {}});
    const ConnectingAs connecting(1000);
    std::deque<MemoryPeer> peers = PeersInAllPlaces(server);
    connecting.User(0);
    std::deque<MemoryPeer> others;
    for (std::size_t index = 0; index < kPlaces / 2; ++index) {
        others.emplace_back(server, static_cast<unsigned char>(0x80 + index));
        EXPECT_EQ(peers[index].Answers().polling.load(), kGivenUp) << index;
    }
    for (std::size_t index = kPlaces / 2; index < kPlaces; ++index) {
        EXPECT_EQ(peers[index].Answers().polling.load(), kAsleep) << index;
    }
}

TEST_F(ServerMemoryShare, IsNotTakenFromAUserWhoHasNoMoreThanWhoWantsIt) {
    TestServer server(Limits(), {.ownUser = 1000, .group = {}});
    const ConnectingAs connecting(0);
    MemoryPeer poor(server, 0x80);
    const auto lastCall = std::chrono::steady_clock::now();
    poor.Call(1, CallFrame(1, kEcho, 1));
    connecting.User(1000);
    std::deque<MemoryPeer> peers;
    for (std::size_t index = 0; index + 1 < kPlaces; ++index) {
        peers.emplace_back(server, static_cast<unsigned char>(index));
    }
    const RawSocket eighth = server.Greet(0x70);
    std::int32_t status = kStatusOk;
    // Longer than between two calls of a burst: what rests as long is taken from the same user.
    Await("a place of its own user", [&] {
        status = StatusOfRequest(eighth);
        return status == kStatusOk;
    });
    if (std::chrono::steady_clock::now() < lastCall + std::chrono::seconds(1)) {
        EXPECT_EQ(poor.Answers().polling.load(), kAsleep);
    }
    std::deque<RawSocket> others;
    Await("a place that rests for long", [&] {
        others.push_back(server.Greet(0x71));
        others.back().Send(MemoryRequestFrame());
        ReadFrameWithFiles(others.back());
        return poor.Answers().polling.load() == kGivenUp;
    });
}

TEST_F(ServerMemoryShare, IsSharedOutAmongThreeUsers) {
    TestServer server(Limits(), {.ownUser = 1000, .group = 1});
    const ConnectingAs connecting(1000);
    std::deque<MemoryPeer> first;
    std::deque<MemoryPeer> second;
    for (std::size_t index = 0; index < kPlaces / 2; ++index) {
        connecting.User(1000);
        first.emplace_back(server, static_cast<unsigned char>(index));
        connecting.User(1001);
        second.emplace_back(server, static_cast<unsigned char>(0x20 + index));
    }
    connecting.User(1002);
    const MemoryPeer third(server, 0x40);
    const MemoryPeer another(server, 0x41);
    const auto kept = [](const std::deque<MemoryPeer>& peers) {
        return std::count_if(peers.begin(), peers.end(), [](const MemoryPeer& peer) {
            return peer.Answers().polling.load() != kGivenUp;
        });
    };
    EXPECT_EQ(kept(first), 3);
    EXPECT_EQ(kept(second), 3);
}

/// Who has how many of the places, and who asks for one more.
struct PlacesRow {
    std::vector<std::size_t> places;  ///< of each user
    std::size_t asking;
    std::optional<std::size_t> giving;  ///< the user whose place that is; nobody's: none is given
};

/// A try at a row; nothing when it took as long as places take to rest.
std::optional<bool> IsSharedOutAs(const PlacesRow& row) {
    constexpr std::chrono::milliseconds kHotFor{100};
    constexpr uid_t kFirst = 1000;
    const ConnectingAs connecting(kFirst);
    TestServer server({.spinCap = std::chrono::microseconds(50)}, {.ownUser = kFirst, .group = 1});
    const auto begin = std::chrono::steady_clock::now();
    std::vector<std::deque<MemoryPeer>> users(row.places.size());
    for (std::size_t user = 0; user < users.size(); ++user) {
        connecting.User(static_cast<uid_t>(kFirst + user));
        while (users[user].size() < row.places[user]) {
            users[user].emplace_back(server, static_cast<unsigned char>(16 * user));
        }
    }
    connecting.User(static_cast<uid_t>(kFirst + row.asking));
    const RawSocket next = server.Greet(static_cast<unsigned char>(16 * row.asking));
    next.Send(MemoryRequestFrame());
    const bool isGiven = ReadFrameWithFiles(next).files.size() == 2;
    if (std::chrono::steady_clock::now() - begin >= kHotFor) {
        return std::nullopt;
    }
    bool isAsTold = isGiven == row.giving.has_value();
    for (std::size_t user = 0; user < users.size(); ++user) {
        for (std::size_t index = 0; index < users[user].size(); ++index) {
            // Of a user's places the one that rests for longest.
            const bool isTaken = users[user][index].Answers().polling.load() == kGivenUp;
            isAsTold = isAsTold && isTaken == (row.giving == user && index == 0);
        }
    }
    return isAsTold;
}

TEST_F(ServerMemoryShare, GoesToNobodyWhoWouldBeTheRicherForItWhileItIsUsed) {
    constexpr std::nullopt_t kNobody = std::nullopt;
    const PlacesRow rows[] = {
        {{8}, 0, kNobody},    {{4, 4}, 0, kNobody},    {{4, 4}, 1, kNobody},
        {{5, 3}, 0, kNobody}, {{7, 1}, 0, kNobody},    {{4, 3, 1}, 1, kNobody},
        {{5, 3}, 1, 0U},      {{3, 3, 2}, 2, kNobody}, {{4, 2, 2}, 2, 0U},
        {{7, 1, 0}, 2, 0U},   {{2, 5, 1}, 2, 1U},      {{2, 2, 2, 2, 0}, 4, 0U},
    };
    for (const PlacesRow& row : rows) {
        std::string name;
        for (const std::size_t places : row.places) {
            name += std::to_string(places) + ' ';
        }
        SCOPED_TRACE(name + "asks " + std::to_string(row.asking));
        std::optional<bool> isAsTold;
        Await("a quick try", [&] {
            isAsTold = IsSharedOutAs(row);
            return isAsTold.has_value();
        });
        EXPECT_TRUE(isAsTold.value_or(false));
    }
}

/// How many of so many clients get memory that come and go one after the other.
std::size_t GrantsAmong(std::size_t clients, const TestServer& server) {
    std::size_t granted = 0;
    for (std::size_t client = 0; client < clients; ++client) {
        const RawSocket socket = server.Greet(static_cast<unsigned char>(client));
        socket.Send(MemoryRequestFrame());
        granted += ReadFrameWithFiles(socket).frame.prelude.status == kStatusOk ? 1U : 0U;
    }
    return granted;
}

TEST_F(ServerMemoryShare, IsMadeForNobodyAllTheTime) {
    constexpr std::size_t kClients = 200;
    constexpr std::size_t kAtOnce = 32;
    TestServer server(Limits(), {.ownUser = 1000, .group = {}});
    const ConnectingAs connecting(0);
    const RawSocket other = server.Greet(0xFF);
    ExpectEchoes(other, 1);
    connecting.User(1000);
    const auto begin = std::chrono::steady_clock::now();
    const std::size_t granted = GrantsAmong(kClients, server);
    const auto spent = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(granted, kAtOnce / 2);
    EXPECT_LE(granted,
              kAtOnce + 1 + static_cast<std::size_t>(spent / std::chrono::milliseconds(20)));
    AwaitMemory(other);
}

TEST_F(ServerMemoryShare, IsGivenUpByAClientThatCallsByTheSocketAlone) {
    ServerLimits limits = Limits();
    limits.memoryKept = std::chrono::milliseconds(20);
    TestServer server(limits);
    MemoryPeer peer(server);
    std::uint64_t number = 0;
    Await("the end", [&] {
        ++number;
        peer.Socket().Send(CallFrame(number, kEcho, number));
        EXPECT_EQ(MessageIn(peer.Socket().ReadFrame().fixed).value, number);
        return peer.Answers().polling.load() == kGivenUp;
    });
}

TEST_F(ServerMemoryShare, IsGivenUpWhenNobodyUsesIt) {
    ServerLimits limits = Limits();
    limits.memoryKept = std::chrono::milliseconds(20);
    TestServer server(limits);
    MemoryPeer peer(server);
    peer.Call(1, CallFrame(1, kEcho, 61));
    peer.Put(2, CallFrame(2, kEcho, 62));
    Await("the end", [&peer] { return peer.Answers().polling.load() == kGivenUp; });
    EXPECT_EQ(MessageIn(peer.AwaitAnswer(2).fixed).value, 62U);
    peer.Put(3, CallFrame(3, kEcho, 63));
    peer.Look(3);
    EXPECT_EQ(ToHex(peer.Socket().Read(kPreludeBytes)), ToHex(LookFrame(3)));
    ExpectEchoes(peer.Socket(), 3);
    MemoryPeer again(std::move(peer.Socket()));
    EXPECT_EQ(MessageIn(again.Call(4, CallFrame(4, kEcho, 64)).fixed).value, 64U);
    Await("the end", [&again] { return again.Answers().polling.load() == kGivenUp; });
    EXPECT_TRUE(logger_.Records().empty());
}

Bytes CloseCall(std::uint64_t number, std::uint16_t operation = kEcho, Nanoseconds gap = {}) {
    CallHints hints = kElsewhere;
    hints.gap = EncodeGap(gap);
    return FrameOf({.kind = FrameKind::Call, .callNumber = number, .flags = hints.Flags()},
                   MessageBytes(MakeMessage(operation, 80 + number)));
}

/// What a thread has done so far, in CPU time and in times that it gave the CPU away.
struct ThreadDeeds {
    std::int64_t cpuNs = 0;
    std::string switches;

    bool operator==(const ThreadDeeds&) const = default;
};

ThreadDeeds DeedsOf(pid_t thread, clockid_t clock) {
    ThreadDeeds deeds;
    timespec time{};
    ::clock_gettime(clock, &time);
    deeds.cpuNs = time.tv_sec * 1'000'000'000 + time.tv_nsec;
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.find("ctxt_switches") != std::string::npos) {
            deeds.switches += line;
        }
    }
    return deeds;
}

/// A client that says of itself that it is about to call, from another CPU.
class HintingClient {
public:
    explicit HintingClient(const TestServer& server)
        : socket_(server.Greet()), memory_(MemoryFor(socket_)) {}

    /// Makes a call by the socket, saying that calls are so far apart; true when the service begins
    /// to look for the next one.
    bool Call(Nanoseconds gap = {}, std::uint16_t operation = kEcho) {
        socket_.Send(CloseCall(++number_, operation, gap));
        while (!IsLookedFor() && !socket_.HasInput()) {
        }
        const bool isLookedFor = IsLookedFor();
        EXPECT_EQ(socket_.ReadFrame().prelude.callNumber, number_);
        return isLookedFor;
    }

    /// Makes one through memory; true when it was served without a look frame.
    bool CallThere(std::uint16_t operation = kEcho) {
        const Bytes call = CloseCall(++number_, operation);
        WriteSlot(memory_.requests->slot.data(), 0, call.data(), call.size());
        memory_.requests->waiting.store(number_);
        memory_.requests->request.store(number_);
        const bool isLookedFor = IsLookedFor();
        if (!isLookedFor) {
            socket_.Send(LookFrame(number_));
        }
        Await("the answer", [this] { return memory_.answers->answer.load() == number_; });
        return isLookedFor;
    }

    bool IsLookedFor() const { return memory_.answers->polling.load() == kPolling; }
    Frame Answer() const { return FrameIn(memory_.answers->slot); }
    std::uint64_t Calls() const noexcept { return number_; }

private:
    static ClientMemory MemoryFor(const RawSocket& socket) {
        socket.Send(MemoryRequestFrame());
        const FrameWithFiles grant = ReadFrameWithFiles(socket);
        return MapClientMemory(grant.files.at(0), grant.files.at(1));
    }

    RawSocket socket_;
    ClientMemory memory_;
    std::uint64_t number_ = 0;
};

/// Makes calls until a request in memory was served without a look; gives the number of calls.
std::uint64_t CallUntilLookedFor(const TestServer& server) {
    HintingClient client(server);
    const auto end = std::chrono::steady_clock::now() + kBound;
    bool wasServed = false;
    while (!wasServed && std::chrono::steady_clock::now() < end) {
        wasServed = client.Call() && client.CallThere();
    }
    EXPECT_TRUE(wasServed) << "no request was looked for";
    EXPECT_EQ(MessageIn(client.Answer().fixed).value, 80 + client.Calls());
    Await("its sleep", [&client] { return !client.IsLookedFor(); });
    return client.Calls();
}

TEST_F(ServerMemoryShare, IsLookedAtByTheServiceItselfAndThenLeftAlone) {
    if (!HasTwoCpus()) {
        GTEST_SKIP() << "the service polls for a client on another CPU";
    }
    TestServer server(Limits());
    pid_t thread = 0;
    clockid_t clock{};
    server.OnLoop([&] {
        thread = static_cast<pid_t>(::syscall(SYS_gettid));
        return ::pthread_getcpuclockid(::pthread_self(), &clock);
    });
    const std::uint64_t number = CallUntilLookedFor(server);
    ThreadDeeds last;
    int rest = 0;
    Await("rest", [&] {
        const ThreadDeeds now = DeedsOf(thread, clock);
        rest = now == last ? rest + 1 : 0;
        last = now;
        return rest == 30;
    });
    EXPECT_EQ(server.Endpoint().Calls().size(), number);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(ServerMemoryShare, IsLookedAtForCallsNoFurtherApartThanTheServiceIsToldToLook) {
    using std::chrono::microseconds;
    if (!HasCpuForPolling(std::chrono::steady_clock::now())) {
        GTEST_SKIP() << "the service polls where it may use two CPUs";
    }
    TestServer server({.spinCap = microseconds(5)});
    HintingClient client(server);
    bool isLookedFor = false;
    server.Endpoint().Custom([&](const Request&, Responder responder) {
        TestMessage message{};
        responder.Answer(message);
        isLookedFor = client.IsLookedFor();  // before this thread can look
    });
    for (const int gapUs : {9, 3, 9, 30}) {
        client.Call(microseconds(gapUs), kCustom);
        EXPECT_EQ(server.OnLoop([&isLookedFor] { return isLookedFor; }), gapUs < 5) << gapUs;
    }
}

TEST_F(ServerMemoryShare, TakesHalfOfThePollsAtMostForWhoLiesBesideAnotherUser) {
    using std::chrono::microseconds;
    using std::chrono::milliseconds;
    if (!HasTwoCpus()) {
        GTEST_SKIP() << "the service polls for a client on another CPU";
    }
    for (const bool otherUsesMemory : {true, false}) {
        SCOPED_TRACE(otherUsesMemory);
        TestServer server(Limits(), {.ownUser = 1000, .group = {}});
        const ConnectingAs connecting(0);
        MemoryPeer other(server, 0x22);
        connecting.User(1000);
        HintingClient client(server);
        std::uint64_t others = 0;
        microseconds inVain{0};
        bool hits = false;
        const auto begin = std::chrono::steady_clock::now();
        auto lastOther = begin - milliseconds(100);
        for (auto now = begin; now < begin + milliseconds(150);
             now = std::chrono::steady_clock::now()) {
            if (others != 0 && now - lastOther > milliseconds(50)) {
                break;  // the machine is too busy for the other to be hot
            }
            if (now - lastOther > milliseconds(5)) {
                ++others;
                if (otherUsesMemory) {
                    other.Call(others, CallFrame(others, kEcho, 1));
                } else {
                    other.Socket().Send(CloseCall(others));
                    other.Socket().ReadFrame();
                }
                lastOther = now;
            }
            if (!client.Call()) {
                continue;
            }
            // One that hits pays for the one that does not.
            hits = !hits;
            if (hits && !client.CallThere()) {
                continue;
            }
            if (client.IsLookedFor()) {
                Await("the end of a poll in vain", [&client] { return !client.IsLookedFor(); });
                inVain += microseconds(hits ? 20 : 45);
            }
        }
        const auto spent = std::chrono::steady_clock::now() - begin;
        // One poll may be beyond it, and a few are cut short by others who need the CPU.
        EXPECT_LE(inVain, microseconds(500 + 50 + 250) + spent / 40);
        RecordProperty("in_vain_us", static_cast<int>(inVain.count()));
    }
}

/// Work of the loop that begins anew whenever it ends.
void WorkOn(asio::io_context& loop, std::atomic<bool>& isOver) {
    asio::post(loop, [&loop, &isOver] {
        if (!isOver) {
            WorkOn(loop, isOver);
        }
    });
}

TEST_F(ServerMemoryShare, IsLookedAtBesideALoopThatAlwaysHasMoreToDo) {
    if (!HasTwoCpus()) {
        GTEST_SKIP() << "the service polls for a client on another CPU";
    }
    std::atomic<bool> isOver{false};
    TestServer server(Limits());
    const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool>*)> end(
        &isOver, [](std::atomic<bool>* over) { *over = true; });  // also when something throws
    WorkOn(server.Get().Context(), isOver);
    CallUntilLookedFor(server);
}

void Spin(std::chrono::microseconds time) {
    for (const auto end = std::chrono::steady_clock::now() + time;
         std::chrono::steady_clock::now() < end;) {
    }
}

TEST_F(ServerMemoryShare, LeavesSocketsAsMuchTimeAsHandlersOfItsCallsTake) {
    if (!HasTwoCpus()) {
        GTEST_SKIP() << "the service polls for a client on another CPU";
    }
    constexpr int kPieces = 20;
    std::atomic<int> handled{0};
    std::atomic<int> piecesDone{0};
    int handledBefore = 0;
    TestServer server(Limits());
    server.Endpoint().Custom([&handled](const Request&, Responder responder) {
        Spin(std::chrono::milliseconds(2));
        ++handled;
        TestMessage message{};
        responder.Answer(message);
    });
    const Background caller([&] {
        HintingClient client(server);
        while (piecesDone != kPieces) {
            client.CallThere(kCustom);
        }
    });
    Await("calls", [&handled] { return handled > 3; });
    asio::post(server.Get().Context(), [&] {
        handledBefore = handled;
        for (int piece = 0; piece < kPieces; ++piece) {
            asio::post(server.Get().Context(), [&piecesDone] {
                Spin(std::chrono::microseconds(50));
                ++piecesDone;
            });
        }
    });
    Await("the loop's work", [&piecesDone] { return piecesDone == kPieces; });
    EXPECT_LT(handled - handledBefore, kPieces / 2);
}

}  // namespace
}  // namespace zam_platform::testing
