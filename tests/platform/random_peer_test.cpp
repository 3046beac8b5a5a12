#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <string>

#include "support/test_call.h"
#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t kRoomBytes = 3000;
constexpr int kExchanges = 1500;
/// Tells the peer to end.
constexpr std::uint16_t kLastOperation = 0xFFFF;

/// Statuses that a client may return whatever its peer does.
const std::set<std::int32_t>& ListedStatuses() {
    static const std::set<std::int32_t> statuses = {
        kStatusOk,       kStatusUnavailable,    kStatusBroken,      kStatusTimeout,
        kStatusProtocol, kStatusAnswerTooLarge, kStatusNotAdmitted, kStatusQuota,
        kStatusVersion,  kStatusBadRequest,     kStatusUnanswered,
    };
    return statuses;
}

/// A peer that misbehaves by dice. Each connection serves until it has done something wrong.
class RandomPeer {
public:
    explicit RandomPeer(std::uint32_t seed) : dice_(seed) {}

    /// True once it has been told to end.
    bool Finished() const { return finished_; }

    /// Serves one connection to its end.
    void Serve(const RawSocket& peer) {
        try {
            if (Roll(20) == 0) {
                return;  // not even the greeting is read
            }
            peer.ReadFrame();
            while (ServeOne(peer)) {
            }
        } catch (const std::runtime_error&) {
            // The client has closed the connection, which is its right.
        }
    }

private:
    std::uint32_t Roll(std::uint32_t sides) { return static_cast<std::uint32_t>(dice_() % sides); }

    bool ServeOne(const RawSocket& peer) {
        if (Roll(15) == 0) {
            peer.Read(Roll(60) + 1);
            return false;
        }
        const Frame call = peer.ReadFrame();
        if (MessageIn(call.fixed).header.operation == kLastOperation) {
            finished_ = true;
            return false;
        }
        Bytes answer = EchoOf(call);
        switch (Roll(24)) {
            case 0:  // damaged somewhere
                for (std::uint32_t count = Roll(4) + 1; count > 0; --count) {
                    answer[Roll(static_cast<std::uint32_t>(answer.size()))] =
                        static_cast<unsigned char>(Roll(256));
                }
                return peer.TrySend(answer);
            case 1:  // cut, and the end
                peer.TrySend(Head(answer, Roll(static_cast<std::uint32_t>(answer.size()))));
                return false;
            case 2:  // cut, and silence
                peer.TrySend(Head(answer, Roll(static_cast<std::uint32_t>(answer.size()))));
                peer.ReadToEnd();
                return false;
            case 3:  // something behind it
                return peer.TrySend(answer + Pattern(Roll(100) + 1));
            case 4:  // anything at all
                return peer.TrySend(Pattern(Roll(5000) + 1, Roll(1000)));
            case 5:
                return peer.TrySend(
                    StatusFrame(FrameKind::Refusal, 0, static_cast<std::int32_t>(16 + Roll(5))));
            case 6:
                return peer.TrySend(StatusFrame(FrameKind::Answer, call.prelude.callNumber,
                                                static_cast<std::int32_t>(16 + Roll(5))));
            case 7:  // lengths by dice
                return peer.TrySend(WithLengths(answer));
            case 8:  // two answers
                return peer.TrySend(answer + answer);
            case 9:
                return InPieces(peer, answer);
            default:
                return peer.TrySend(answer);
        }
    }

    Bytes WithLengths(const Bytes& answer) {
        Prelude prelude;
        DecodePrelude(answer.data(), prelude);
        prelude.fixedBytes = Roll(3) == 0 ? Roll(5000) : prelude.fixedBytes;
        prelude.arenaBytes = Roll(2 * kRoomBytes);
        Bytes changed = answer;
        EncodePrelude(prelude, changed.data());
        return changed;
    }

    bool InPieces(const RawSocket& peer, const Bytes& answer) {
        std::size_t sent = 0;
        while (sent < answer.size()) {
            const std::size_t piece = std::min<std::size_t>(Roll(200) + 1, answer.size() - sent);
            if (!peer.TrySend(Head(Tail(answer, sent), piece))) {
                return false;
            }
            sent += piece;
        }
        return true;
    }

    std::mt19937 dice_;
    std::atomic<bool> finished_{false};
};

class RandomPeerTest : public ::testing::TestWithParam<std::uint32_t> {
protected:
    zam_connector::testing::RecordingLogger logger_{zor::logger::kLevelError + 1};
};

TEST_P(RandomPeerTest, NeverMakesTheClientFailOtherwiseThanListed) {
    PairedLink link(milliseconds(15));
    RandomPeer peer(GetParam());
    const Background peers([&] {
        while (!peer.Finished()) {
            peer.Serve(link.Next());
        }
    });
    std::mt19937 dice(GetParam() + 1);
    int answered = 0;
    for (int exchange = 0; exchange < kExchanges; ++exchange) {
        const auto value = static_cast<std::uint64_t>(exchange);
        const Bytes arena = Pattern(dice() % kRoomBytes, static_cast<std::uint32_t>(exchange));
        TestCall call(kEcho, value);
        call.RequestArena(arena).ResponseArena(kRoomBytes);
        // Half a greeting and then silence has no end of its own.
        call.Timeout(milliseconds(dice() % 4 == 0 ? 20 : 200));
        const std::int32_t status = call.On(*link);
        ASSERT_TRUE(ListedStatuses().count(status) == 1) << exchange << ": " << status;
        ASSERT_TRUE(call.OnlyUsedIsWritten()) << exchange;
        answered += status == kStatusOk ? 1 : 0;
    }
    EXPECT_GT(answered, kExchanges / 5);
    while (!peer.Finished()) {
        TestCall(kLastOperation).Timeout(milliseconds(200)).On(*link);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomPeerTest, ::testing::Values(1U, 2U));

}  // namespace
}  // namespace zam_platform::testing
