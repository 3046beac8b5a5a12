#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/calling_logger.h"
#include "support/descriptors.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using ::testing::StartsWith;

constexpr std::uint32_t kRoomBytes = 16;
constexpr int kAllSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

/// What a service may do wrong with the memory that it gives.
class SharedChannelFaults : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
};

UniqueFd MemoryFile(off_t bytes, int seals) {
    UniqueFd file(::memfd_create("zam_test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(::ftruncate(file.Get(), bytes), 0);
    EXPECT_EQ(::fcntl(file.Get(), F_ADD_SEALS, seals), 0);
    return file;
}

struct GrantRow {
    const char* name;
    std::vector<UniqueFd> files;
    MemoryGrant grant = kSoundGrant;
};

std::vector<GrantRow> BadGrants() {
    std::vector<GrantRow> rows;
    const auto add = [&rows](const char* name, MemoryGrant grant, auto... files) {
        rows.push_back({name, {}, grant});
        (rows.back().files.push_back(std::move(files)), ...);
    };
    const auto sound = [] { return MemoryFile(kRequestFileBytes, kAllSeals); };
    const auto soundAnswers = [] { return MemoryFile(kAnswerFileBytes, kAllSeals); };
    const auto null = [] { return UniqueFd(::open("/dev/null", O_RDWR | O_CLOEXEC)); };
    const auto zero = [] { return UniqueFd(::open("/dev/zero", O_RDWR | O_CLOEXEC)); };
    const auto pipe = [] {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        ::close(ends[1]);
        return UniqueFd(ends[0]);
    };
    add("no file", kSoundGrant);
    add("one file", kSoundGrant, sound());
    add("pipes", kSoundGrant, pipe(), pipe());
    add("a pipe for answers", kSoundGrant, sound(), pipe());
    add("null devices", kSoundGrant, null(), null());
    add("zero devices", kSoundGrant, zero(), zero());
    add("too short", kSoundGrant, MemoryFile(kRequestFileBytes - 4096, kAllSeals), soundAnswers());
    add("too long", kSoundGrant, sound(), MemoryFile(kAnswerFileBytes + 4096, kAllSeals));
    add("a byte short", kSoundGrant, sound(), MemoryFile(kAnswerFileBytes - 1, kAllSeals));
    add("empty", kSoundGrant, MemoryFile(0, kAllSeals), MemoryFile(0, kAllSeals));
    for (const int missing : {F_SEAL_SHRINK, F_SEAL_GROW, F_SEAL_SEAL, kAllSeals}) {
        add("a seal of the requests", kSoundGrant,
            MemoryFile(kRequestFileBytes, kAllSeals & ~missing), soundAnswers());
        add("a seal of the answers", kSoundGrant, sound(),
            MemoryFile(kAnswerFileBytes, kAllSeals & ~missing));
    }
    add("written by nobody", kSoundGrant, MemoryFile(kRequestFileBytes, kAllSeals | F_SEAL_WRITE),
        soundAnswers());
    add("requests' slot of no bytes", {0, kAnswerSlotBytes}, sound(), soundAnswers());
    add("answers' slot of no bytes", {kRequestSlotBytes, 0}, sound(), soundAnswers());
    add("larger requests", {kRequestSlotBytes + 1, kAnswerSlotBytes}, sound(), soundAnswers());
    add("larger answers", {kRequestSlotBytes, kAnswerSlotBytes + 1}, sound(), soundAnswers());
    add("smaller requests", {kRequestSlotBytes - 1, kAnswerSlotBytes}, sound(), soundAnswers());
    add("smaller answers", {kRequestSlotBytes, kAnswerSlotBytes - 1}, sound(), soundAnswers());
    return rows;
}

void GrantWith(SharedPeer& peer, const std::vector<UniqueFd>& files, MemoryGrant grant) {
    peer.socket.Send(
        FrameOf({.kind = FrameKind::LookupAnswer}, Bytes{0xFF, 0xFF, 2, 0, 0, 0, 0, 0}));
    std::vector<int> numbers;
    for (const UniqueFd& file : files) {
        numbers.push_back(file.Get());
    }
    SendWithFiles(peer.socket, MemoryAnswerFrame(0, grant), numbers);
    peer.socket.Send(AnswerFrame(1, 11));
}

TEST_F(SharedChannelFaults, InFilesLeaveTheSocketAndNoDescriptor) {
    for (const GrantRow& row : BadGrants()) {
        SCOPED_TRACE(row.name);
        SharedLink link;
        std::set<int> before;
        link.Prepare([&](SharedPeer& peer) {
            GrantWith(peer, row.files, row.grant);
            before = OpenDescriptors();
        });
        TestCall call;
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Value(), 11U);
        EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
        // Nor is it asked for again.
        link.At(0).socket.Send(AnswerFrame(2, 12));
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Value(), 12U);
        EXPECT_EQ(link.Connections(), 1U);
        ASSERT_EQ(logger_.Records().size(), 1U);
        EXPECT_EQ(logger_.Records()[0].level, 0);
        EXPECT_THAT(logger_.Records()[0].text, StartsWith("no shared memory, failure 1: "));
        EXPECT_TRUE(link.Process().failed.Allows(std::chrono::steady_clock::now()))
            << "other services are asked";
        logger_.Clear();
    }
}

TEST_F(SharedChannelFaults, LeaveTheNextConnectionToItsCalls) {
    SharedLink link;
    link.Prepare([](SharedPeer& peer) {
        peer.socket.Send(FrameOf({.kind = FrameKind::LookupAnswer}, Bytes{0, 0, 2, 0, 0, 0, 0, 0}) +
                         AnswerFrame(0, 1));
    });
    EXPECT_NE(TestCall().On(*link), kStatusOk);
    ASSERT_FALSE(logger_.Records().empty());
    EXPECT_EQ(logger_.Records()[0].text,
              "no shared memory, failure 1: answer of frame kind 5, not 8");
    link.Prepare(
        [](SharedPeer& peer) { peer.socket.Send(AnswerFrame(1, 11) + AnswerFrame(2, 12)); });
    for (const std::uint64_t number : {1U, 2U}) {
        TestCall call;
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Value(), 10 + number);
    }
    const RawSocket& socket = link.At(1).socket;
    EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::Hello);
    EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::Call) << "memory is not asked for";
    EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::Call);
    EXPECT_EQ(link.Process().failures.Get(), 1U);
    EXPECT_FALSE(link.Process().failed.Allows(std::chrono::steady_clock::now()));
}

TEST(SharedChannelFiles, LeaveTheStandardDescriptorsToOthers) {
    bool isTaken = false;
    const zam_test::CallingLogger logger(
        [&isTaken] { isTaken = isTaken || ::fcntl(STDERR_FILENO, F_GETFD) >= 0; },
        zor::logger::kLevelTrace);
    SharedLink link;
    std::vector<UniqueFd> files;
    files.push_back(MemoryFile(kRequestFileBytes, kAllSeals));
    files.push_back(MemoryFile(kAnswerFileBytes, kAllSeals));
    const UniqueFd before(::dup(STDERR_FILENO));
    ASSERT_TRUE(before);
    link.Prepare([&](SharedPeer& peer) {
        GrantWith(peer, files, {});  // is told while they are there
        ::close(STDERR_FILENO);
    });
    TestCall().On(*link);
    ::dup2(before.Get(), STDERR_FILENO);
    EXPECT_GT(logger.records, 0);
    EXPECT_FALSE(isTaken);
}

TEST_F(SharedChannelFaults, OfMoreFilesThanTwoLeaveNoDescriptor) {
    SharedLink link;
    std::set<int> before;
    std::vector<UniqueFd> files;
    for (int count = 0; count < 5; ++count) {
        files.push_back(MemoryFile(kRequestFileBytes, kAllSeals));
    }
    link.Prepare([&](SharedPeer& peer) {
        GrantWith(peer, files, kSoundGrant);
        before = OpenDescriptors();
    });
    EXPECT_EQ(TestCall().On(*link), kStatusOk);
    EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
}

std::vector<BrokenAnswer> SlotAnswers() {
    const Prelude answer{.kind = FrameKind::Answer, .callNumber = 1};
    const Prelude failed{.kind = FrameKind::Answer, .callNumber = 1, .status = 3};
    const Bytes message = MessageBytes(MakeMessage(0, 5));
    return {
        {"zeros", Bytes(64), kStatusProtocol, "frame magic is 0x00000000, not 0x464d415a"},
        {"version", ChangedAnswer(4, {2}), kStatusVersion, "frame version is 2, not 1"},
        {"kind 10", ChangedAnswer(6, {10}), kStatusProtocol, "frame kind is 10, not 1 to 9"},
        {"a call", ChangedAnswer(6, {4}), kStatusProtocol, "answer of frame kind 4, not 5"},
        {"a look", ChangedAnswer(6, {9}), kStatusProtocol, "answer of frame kind 9, not 5"},
        {"the next call", ChangedAnswer(8, {2}), kStatusProtocol, "answer to call 2, not 1"},
        {"the last call", ChangedAnswer(8, {0}), kStatusProtocol, "answer to call 0, not 1"},
        {"fixed part beyond the cap", ChangedAnswer(16, {1, 0x10}), kStatusProtocol,
         "fixed part of 4097 bytes exceeds 4096"},
        {"flags", ChangedAnswer(28, {1}), kStatusProtocol, "unknown flags 0x1 of the frame"},
        {"fixed part too small", FrameOf(answer, Head(message, 24)), kStatusProtocol,
         "answer with a fixed part of 24 bytes, not 32"},
        {"fixed part too large", FrameOf(answer, message + Bytes(8)), kStatusProtocol,
         "answer with a fixed part of 40 bytes, not 32"},
        {"arena beyond the room", FrameOf(answer, message, Bytes(kRoomBytes + 1, 7)),
         kStatusAnswerTooLarge, "answer with an arena of 17 bytes, more than 16"},
        {"status with a fixed part", FrameOf(failed, message), kStatusProtocol,
         "answer with a fixed part of 32 bytes, not 0"},
        {"another operation", FrameOf(answer, MessageBytes(MakeMessage(1, 5))), kStatusProtocol,
         "the answer's header is not that of its request"},
        {"refusal", StatusFrame(FrameKind::Refusal, 0, 19), kStatusBadRequest,
         "the service refused the connection: the service found the request to break a rule"},
        {"refusal without a reason", StatusFrame(FrameKind::Refusal, 0, 0), kStatusProtocol,
         "answer of frame kind 6, not 5"},
    };
}

TEST_F(SharedChannelFaults, InAnswersFailTheCallAndCloseTheConnection) {
    for (const BrokenAnswer& row : SlotAnswers()) {
        SCOPED_TRACE(row.name);
        logger_.Clear();
        SharedLink link;
        link.Prepare([&row](SharedPeer& peer) {
            peer.Grant();
            peer.Answer(1, row.answer);
        });
        TestCall call;
        call.ResponseArena(kRoomBytes);
        EXPECT_EQ(call.On(*link), row.status);
        ASSERT_EQ(logger_.Records().size(), 1U);
        EXPECT_EQ(logger_.Records()[0].text, row.text);
        EXPECT_TRUE(call.OnlyUsedIsWritten());
        EXPECT_EQ(link.Connections(), 1U);
        link.At(0).socket.Read(48 + 33 + 32);
        EXPECT_TRUE(link.At(0).socket.EndsNow());
    }
}

TEST_F(SharedChannelFaults, InSizesThatFitTheRoomAndNotTheSlotFailTheCall) {
    for (const std::uint32_t size : {131008U, 131009U, 1000000U}) {
        SharedLink link;
        link.Prepare([size](SharedPeer& peer) {
            peer.Grant();
            peer.Answer(1, AnswerFrame(1, 5, Bytes(size, 7)));
        });
        TestCall call;
        call.ResponseArena(1U << 20U);
        const bool fits = size == 131008;
        EXPECT_EQ(call.On(*link), fits ? kStatusOk : kStatusProtocol) << size;
        EXPECT_TRUE(call.OnlyUsedIsWritten());
        EXPECT_EQ(call.responseArena.used, fits ? size : 0);
    }
}

TEST_F(SharedChannelFaults, OfPagesThatChangeWhileTheyAreReadGiveWhatWasChecked) {
    const std::vector<std::pair<std::size_t, std::uint64_t>> flips = {
        {0, ~std::uint64_t{0}},  {1, 3},
        {2, 0x001FFFFF00001FFF}, {3, ~std::uint64_t{0}},
        {4, ~std::uint64_t{0}},  {7, 0x2222222222222222}};
    constexpr int kRounds = 60;
    int succeeded = 0;
    for (int round = 0; round < kRounds; ++round) {
        SharedLink link;
        link.Prepare([](SharedPeer& peer) {
            peer.Grant();
            peer.Answer(1, AnswerFrame(1, 0x1111111111111111, Bytes(9, 0x11)));
        });
        TestCall first;
        first.ResponseArena(64);
        ASSERT_EQ(first.On(*link), kStatusOk);
        SharedPeer& peer = link.At(0);
        peer.Answer(2, AnswerFrame(2, 0x1111111111111111, Bytes(9, 0x11)));
        std::atomic<bool> isDone{false};
        std::atomic<bool> hasBegun{false};
        const auto [word, mask] = flips[static_cast<std::size_t>(round) % flips.size()];
        const Background flipping([&, at = word, bits = mask] {
            while (!isDone) {
                peer.Answers().slot[at].fetch_xor(bits, std::memory_order_relaxed);
                hasBegun = true;
            }
        });
        Await("the changes", [&hasBegun] { return hasBegun.load(); });
        TestCall call;
        call.ResponseArena(64);
        const std::int32_t status = call.On(*link);
        isDone = true;
        EXPECT_TRUE(call.OnlyUsedIsWritten());
        if (status == kStatusOk) {
            ++succeeded;
            EXPECT_TRUE(call.Value() == 0x1111111111111111 || call.Value() == 0x3333333333333333);
        }
    }
    EXPECT_GT(succeeded, 0);
}

/// One that lies about looking, and about who is to be told.
TEST_F(SharedChannelFaults, InWhatAServiceSaysOfItselfCostNoCall) {
    SharedLink link;
    SharedPeer& peer = link.Begin();
    TestCall call;
    peer.socket.Read(48 + 33 + 32);
    constexpr std::uint64_t kCalls = 300;
    std::atomic<bool> isDone{false};
    const Background flipping([&] {
        while (!isDone) {
            peer.Answers().polling.store(kAsleep);
            peer.Answers().polling.store(kPolling);
        }
    });
    // It serves what it is told of by a look or a frame, and what it finds in memory.
    const Background serving([&] {
        std::uint64_t last = 1;
        while (last < kCalls) {
            if (peer.Requests().request.load() == last + 1) {
                peer.Answers().taken.store(++last);
                peer.Answer(last, last);
                if (peer.Requests().waiting.load() < last) {
                    peer.socket.Send(LookFrame(last));
                }
            } else if (peer.socket.HasInput()) {
                const Frame frame = peer.socket.ReadFrame();
                if (frame.prelude.kind == FrameKind::Call) {
                    last = frame.prelude.callNumber;
                    peer.socket.Send(AnswerFrame(last, last));
                }
            }
        }
    });
    for (std::uint64_t number = 2; number <= kCalls; ++number) {
        ASSERT_EQ(call.On(*link), kStatusOk) << number;
        ASSERT_EQ(call.Value(), number);
    }
    isDone = true;
    EXPECT_EQ(link.Connections(), 1U);
}

}  // namespace
}  // namespace zam_platform::testing
