#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/descriptors.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

/// Bytes of a greeting.
constexpr std::size_t kHelloBytes = kPreludeBytes + kTokenBytes;

/// A client whose calls go through memory, and a service that a test writes down.
class SharedChannelTest : public ::testing::Test {
protected:
    std::int32_t Call(std::uint64_t value, TestCall& call) {
        call.request.value = value;
        return call.On(*link_);
    }

    void ExpectAnswer(std::uint64_t value) {
        TestCall call;
        EXPECT_EQ(call.On(*link_), kStatusOk);
        EXPECT_EQ(call.Value(), value);
    }

    /// The first call of the first connection, through memory.
    SharedPeer& Begin() {
        SharedPeer& peer = link_.Begin();
        EXPECT_EQ(peer.Requests().request.load(), 1U);
        peer.socket.Read(kHelloBytes + 33 + 32);
        EXPECT_FALSE(peer.socket.HasInput());
        return peer;
    }

    zam_connector::testing::RecordingLogger logger_;
    SharedLink link_;
};

TEST_F(SharedChannelTest, AsksForOffersAndThenForMemoryInTheseBytes) {
    link_.PrepareAnswer(101);
    ExpectAnswer(101);
    const RawSocket& socket = link_.At(0).socket;
    EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::Hello);
    EXPECT_EQ(ToHex(socket.Read(33)), ToHex(LookupFrame("?", 0)));
    const Bytes request = socket.Read(32);
    EXPECT_EQ(ToHex(Head(request, 29)), ToHex(Head(MemoryRequestFrame(), 29)));
    EXPECT_FALSE(socket.HasInput()) << "the call is in memory";
}

TEST_F(SharedChannelTest, DoesNotAskForOffersThatALookupHasTold) {
    link_.Prepare([](SharedPeer& peer) {
        peer.socket.Send(FrameOf({.kind = FrameKind::LookupAnswer, .callNumber = 1},
                                 Bytes{5, 0, 2, 0, 0, 0, 0, 0}));
    });
    EXPECT_EQ((*link_).Lookup("endpoint"), 5);
    SharedPeer& peer = link_.At(0);
    peer.socket.Read(kHelloBytes);
    EXPECT_EQ(peer.socket.ReadFrame().prelude.kind, FrameKind::Lookup);
    peer.socket.Send(StatusFrame(FrameKind::MemoryAnswer, 1, kStatusQuota));
    peer.socket.Send(AnswerFrame(2, 2));
    ExpectAnswer(2);
    EXPECT_EQ(peer.socket.ReadFrame().prelude.kind, FrameKind::MemoryRequest);
    EXPECT_EQ(peer.socket.ReadFrame().prelude.kind, FrameKind::Call);
    EXPECT_FALSE(peer.socket.HasInput());
}

TEST_F(SharedChannelTest, LeavesAServiceAloneThatOffersNothing) {
    link_.Prepare([](SharedPeer& peer) {
        peer.socket.Send(
            FrameOf({.kind = FrameKind::LookupAnswer}, Bytes{0xFF, 0xFF, 1, 0, 0, 0, 0, 0}));
        peer.socket.Send(AnswerFrame(1, 1));
    });
    ExpectAnswer(1);
    const RawSocket& socket = link_.At(0).socket;
    socket.Read(kHelloBytes);
    EXPECT_EQ(ToHex(socket.Read(33)), ToHex(LookupFrame("?", 0)));
    EXPECT_EQ(ToHex(socket.Read(64)), ToHex(CallFrame(1, 0, 0)));
    for (std::uint64_t number = 2; number < 60; ++number) {
        socket.Send(AnswerFrame(number, number));
        ExpectAnswer(number);
        ASSERT_EQ(ToHex(socket.Read(64)), ToHex(CallFrame(number, 0, 0)));
    }
    EXPECT_FALSE(socket.HasInput());
    EXPECT_EQ(link_.At(0).Requests().request.load(), 0U);
}

TEST_F(SharedChannelTest, DoesNotAskAServiceAgainAtOnceThatRefused) {
    link_.Prepare([](SharedPeer& peer) {
        peer.socket.Send(
            FrameOf({.kind = FrameKind::LookupAnswer}, Bytes{0xFF, 0xFF, 2, 0, 0, 0, 0, 0}));
        peer.socket.Send(StatusFrame(FrameKind::MemoryAnswer, 0, kStatusQuota));
        peer.socket.Send(AnswerFrame(1, 1));
    });
    ExpectAnswer(1);
    const RawSocket& socket = link_.At(0).socket;
    socket.Read(kHelloBytes + 33 + 32);
    EXPECT_EQ(ToHex(socket.Read(64)), ToHex(CallFrame(1, 0, 0)));
    socket.Send(AnswerFrame(2, 2));
    ExpectAnswer(2);
    EXPECT_EQ(ToHex(socket.Read(64)), ToHex(CallFrame(2, 0, 0))) << "without hints";
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(SharedChannelTest, LeavesItsRequestInTheseBytes) {
    SharedPeer& peer = Begin();
    peer.Answer(2, AnswerFrame(2, 102, Pattern(9), 5));
    TestCall call(5, 77);
    call.RequestArena(Pattern(1001)).ResponseArena(16);
    EXPECT_EQ(call.On(*link_), kStatusOk);
    EXPECT_EQ(peer.Requests().waiting.load(), 2U);
    Frame request = FrameIn(peer.Requests().slot);
    EXPECT_EQ(request.prelude.kind, FrameKind::Call);
    EXPECT_EQ(request.prelude.callNumber, 2U);
    EXPECT_NE(request.prelude.flags, 0U) << "hints";
    EXPECT_EQ(request.prelude.flags & 0xFFU, 0U);
    EXPECT_EQ(request.fixed, MessageBytes(MakeMessage(5, 77)));
    EXPECT_EQ(request.arena, Pattern(1001));
    EXPECT_FALSE(peer.socket.HasInput());
}

TEST_F(SharedChannelTest, SendsByTheSocketWhatDoesNotFitOrIsNotLookedFor) {
    SharedPeer& peer = Begin();
    peer.socket.Send(AnswerFrame(2, 0));
    TestCall large;
    large.RequestArena(Bytes(16321));
    EXPECT_EQ(large.On(*link_), kStatusOk);
    EXPECT_EQ(peer.socket.ReadFrame().arena.size(), 16321U);
    peer.Answers().polling.store(kAsleep);
    peer.socket.Send(AnswerFrame(3, 103));
    ExpectAnswer(103);
    EXPECT_EQ(peer.socket.ReadFrame().prelude.callNumber, 3U);
    peer.Answers().polling.store(kPolling);
    peer.Answer(4, 104);
    TestCall fits;
    fits.RequestArena(Bytes(16320));
    EXPECT_EQ(fits.On(*link_), kStatusOk);
    EXPECT_FALSE(peer.socket.HasInput());
}

TEST_F(SharedChannelTest, PollsOnlyWithTheLeaveThatAllOfItsProcessShare) {
    SharedPeer& peer = Begin();
    SharedLink other;
    const std::uint64_t before = other.Begin().Requests().request.load();
    ASSERT_EQ(before, 1U);
    const auto inAnHour = std::chrono::steady_clock::now() + std::chrono::hours(1);
    constexpr auto kHole = std::chrono::hours(25);
    EXPECT_TRUE(link_.Process().leave.NoticeHole(inAnHour, kHole));
    peer.socket.Send(AnswerFrame(2, 102));
    ExpectAnswer(102);
    EXPECT_EQ(peer.socket.ReadFrame().prelude.kind, FrameKind::Call);
    other.At(0).Answer(2, 202);
    TestCall call;
    EXPECT_EQ(call.On(*other), kStatusOk) << "of another process";
    EXPECT_EQ(call.Value(), 202U);
}

TEST_F(SharedChannelTest, CallsByTheSocketBehindTheEndOfAnotherConnection) {
    SharedPeer& peer = Begin();
    std::uint64_t number = 1;
    const auto expectBySocketOnce = [&](const char* what) {
        SCOPED_TRACE(what);
        ++number;
        peer.socket.Send(AnswerFrame(number, number));
        ExpectAnswer(number);
        Await("the call", [&peer] { return peer.socket.HasInput(); });
        EXPECT_EQ(peer.socket.ReadFrame().prelude.callNumber, number);
        ++number;
        peer.Answer(number, number);
        ExpectAnswer(number);
        EXPECT_FALSE(peer.socket.HasInput());
    };
    auto [mine, service] = MakePair();
    {
        SocketChannel other(mine.Release(), {});
        other.Interrupt();
        expectBySocketOnce("shut down");
    }
    expectBySocketOnce("closed");
}

TEST_F(SharedChannelTest, SaysThatItLooksNoMoreBeforeItBlocks) {
    SharedPeer& peer = Begin();
    const Background service([&peer] {
        peer.AwaitRequest(2);
        Await("the client's sleep", [&peer] { return peer.Requests().waiting.load() == 0; });
        peer.Answer(2, 102);
        peer.socket.Send(LookFrame(2));
    });
    ExpectAnswer(102);
}

TEST_F(SharedChannelTest, TakesAnAnswerByTheSocketBehindLateLooks) {
    SharedPeer& peer = Begin();
    {
        const Background service([&peer] {
            peer.AwaitRequest(2);
            Await("the client's sleep", [&peer] { return peer.Requests().waiting.load() == 0; });
            peer.socket.Send(LookFrame(1) + AnswerFrame(2, 102));
        });
        ExpectAnswer(102);
    }
    peer.Answer(3, 103);
    ExpectAnswer(103);
    EXPECT_EQ(link_.Connections(), 1U);
}

TEST_F(SharedChannelTest, FailsForLooksThatHaveNoPlaceInTheOrder) {
    const std::pair<const char*, Bytes> rows[] = {
        {"of the future", LookFrame(3)},
        {"of none", LookFrame(0)},
        {"twice", LookFrame(1) + LookFrame(1)},
        {"back", LookFrame(2)},
        {"with a body", FrameOf({.kind = FrameKind::Look, .callNumber = 1}, Bytes(1))},
        {"without an answer", LookFrame(2)},
    };
    for (const auto& [what, looks] : rows) {
        SCOPED_TRACE(what);
        SharedLink link;
        link.Begin().socket.Send(looks);
        EXPECT_EQ(TestCall().On(*link), kStatusProtocol);
        EXPECT_EQ(link.Connections(), 1U);
    }
}

TEST_F(SharedChannelTest, FallsBackToTheSocketWhenTheMemoryIsGivenUp) {
    SharedPeer& peer = Begin();
    peer.Answers().polling.store(kGivenUp);
    peer.socket.Send(AnswerFrame(2, 102));
    ExpectAnswer(102);
    EXPECT_EQ(MessageIn(peer.socket.ReadFrame().fixed).value, 0U);
    peer.Answers().polling.store(kPolling);
    peer.socket.Send(AnswerFrame(3, 103));
    ExpectAnswer(103);
    EXPECT_EQ(peer.socket.ReadFrame().prelude.callNumber, 3U) << "and does not ask again at once";
    EXPECT_EQ(link_.Connections(), 1U);
}

TEST_F(SharedChannelTest, GoesToANewConnectionWhenItsRequestIsSentBack) {
    for (const bool isTaken : {false, true}) {
        SCOPED_TRACE(isTaken);
        SharedLink link;
        SharedPeer& peer = link.Begin();
        link.PrepareAnswer(201);
        TestCall call;
        const Background service([&peer, isTaken] {
            peer.AwaitRequest(2);
            peer.Answers().taken.store(isTaken ? 2 : 1);
            peer.Answers().polling.store(kGivenUp);
            peer.socket.Send(LookFrame(2));
        });
        EXPECT_EQ(call.On(*link), isTaken ? kStatusProtocol : kStatusOk);
        EXPECT_EQ(link.Connections(), isTaken ? 1U : 2U);
    }
}

TEST_F(SharedChannelTest, GoesToTheSuccessorOnceWhenNothingWasTaken) {
    Begin().socket.Close();
    link_.PrepareAnswer(201);
    ExpectAnswer(201);
    EXPECT_EQ(link_.Connections(), 2U);
    EXPECT_EQ(link_.At(0).Requests().request.load(), 2U);
    EXPECT_EQ(link_.At(1).Requests().request.load(), 1U);
    EXPECT_TRUE(logger_.Records().empty());
    // A second one is not tried.
    link_.At(1).socket.Close();
    link_.Prepare([](SharedPeer& peer) { peer.socket.Close(); });
    EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
    EXPECT_EQ(link_.Connections(), 3U);
}

TEST_F(SharedChannelTest, FailsWhenTheServiceEndsThatTookTheRequest) {
    SharedPeer& peer = Begin();
    peer.Answers().taken.store(2);
    peer.socket.Close();
    EXPECT_EQ(TestCall().On(*link_), kStatusBroken);
    EXPECT_EQ(link_.Connections(), 1U);
}

TEST_F(SharedChannelTest, TakesTheLastAnswerOfAServiceThatEnds) {
    SharedPeer& peer = Begin();
    peer.Answers().taken.store(2);
    peer.Answer(2, 102);
    peer.socket.Close();
    ExpectAnswer(102);
    // And when it looks for it no more.
    link_.PrepareAnswer(201);
    ExpectAnswer(201);
    SharedPeer& next = link_.At(1);
    const Background service([&next] {
        next.AwaitRequest(2);
        Await("the client's sleep", [&next] { return next.Requests().waiting.load() == 0; });
        next.Answers().taken.store(2);
        next.Answer(2, 202);
        next.socket.Close();
    });
    ExpectAnswer(202);
}

TEST_F(SharedChannelTest, KeepsTheDeadlineOfACall) {
    Begin();
    EXPECT_EQ(TestCall().Timeout(std::chrono::milliseconds(20)).On(*link_), kStatusTimeout);
    EXPECT_EQ(link_.Connections(), 1U);
}

TEST_F(SharedChannelTest, EndsAWaitThatIsInterrupted) {
    auto [mine, theirs] = MakePair();
    SharedPeer peer{std::move(theirs), MakeServiceMemory()};
    peer.Answers().polling.store(kPolling);
    peer.Grant();
    const auto channel = NewHotChannel(mine.Release(), {}, link_.Process());
    const TestMessage request = MakeMessage(0, 1);
    TestMessage response{};
    ASSERT_TRUE(channel->Send(
        {.prelude = {.kind = FrameKind::Call, .callNumber = 1, .fixedBytes = sizeof(request)},
         .fixed = &request},
        {}));
    const Background interrupting([&] {
        Await("the sleep", [&peer] { return peer.Requests().waiting.load() == 0; });
        channel->Interrupt();
    });
    IncomingFrame answer{.callNumber = 1, .fixed = &response, .fixedBytes = sizeof(response)};
    EXPECT_FALSE(channel->Receive(answer, {}));
    peer.Answers().taken.store(1);
    EXPECT_THROW(channel->Receive(answer, {}), PlatformError);
}

TEST_F(SharedChannelTest, TellsThatItHasTheAnswerThatAnInterruptedWaitFinds) {
    auto [mine, theirs] = MakePair();
    SharedPeer peer{std::move(theirs), MakeServiceMemory()};
    peer.Answers().polling.store(kPolling);
    peer.Grant();
    const auto channel = NewHotChannel(mine.Release(), {}, link_.Process());
    const TestMessage request = MakeMessage(0, 1);
    TestMessage response{};
    ASSERT_TRUE(channel->Send(
        {.prelude = {.kind = FrameKind::Call, .callNumber = 1, .fixedBytes = sizeof(request)},
         .fixed = &request},
        {}));
    const Background interrupting([&] {
        Await("the sleep", [&peer] { return peer.Requests().waiting.load() == 0; });
        peer.Answers().taken.store(1);
        peer.Answer(1, 77);
        channel->Interrupt();
    });
    IncomingFrame answer{.callNumber = 1, .fixed = &response, .fixedBytes = sizeof(response)};
    EXPECT_TRUE(channel->Receive(answer, {}));
    EXPECT_EQ(response.value, 77U);
    EXPECT_EQ(peer.Requests().waiting.load(), 1U);
}

TEST_F(SharedChannelTest, LeavesNothingOfItsMemoryToAChild) {
    const std::size_t before = SharedMappings();
    SharedPeer& peer = Begin();
    ASSERT_EQ(SharedMappings(), before + 4) << "of both ends";
    link_.PrepareAnswer(201);
    (*link_).LockForFork();
    const pid_t child = ::fork();
    if (child == 0) {
        const bool hasNone = SharedMappings() == 0;
        (*link_).RestartInChild();
        TestCall call;
        ::_exit(hasNone && call.On(*link_) == kStatusOk && call.Value() == 201 ? 0 : 1);
    }
    (*link_).UnlockInParent();
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(peer.Requests().request.load(), 1U);
    peer.Answer(2, 102);
    ExpectAnswer(102);
    EXPECT_EQ(link_.Connections(), 1U);
}

/// Where this process has memory for calls mapped.
std::vector<std::pair<void*, std::size_t>> RangesOfMemory() {
    std::vector<std::pair<void*, std::size_t>> ranges;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("memfd:zam_") != std::string::npos) {
            std::size_t dash = 0;
            const std::uintptr_t begin = std::stoull(line, &dash, 16);
            const std::uintptr_t end = std::stoull(line.substr(dash + 1), nullptr, 16);
            ranges.emplace_back(reinterpret_cast<void*>(begin), end - begin);
        }
    }
    return ranges;
}

/// What an application does around `fork` by itself, such as an allocator, may come first.
TEST_F(SharedChannelTest, TakesNothingAwayThatAChildHasInThePlaceOfItsMemory) {
    Begin();
    const auto ranges = RangesOfMemory();
    ASSERT_GE(ranges.size(), 4U) << "of both ends";
    link_.PrepareAnswer(201);
    (*link_).LockForFork();
    const pid_t child = ::fork();
    if (child == 0) {
        for (const auto& [address, bytes] : ranges) {
            if (::mmap(address, bytes, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0) != address) {
                ::_exit(2);
            }
        }
        (*link_).RestartInChild();
        TestCall call;
        const bool isAnswered = call.On(*link_) == kStatusOk && call.Value() == 201;
        for (const auto& [address, bytes] : ranges) {
            std::memset(address, 1, bytes);
        }
        ::_exit(isAnswered ? 0 : 1);
    }
    (*link_).UnlockInParent();
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
}  // namespace zam_platform::testing
