#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "steps/stepping_server.h"
#include "support/memory_peer.h"
#include "support/refusal.h"
#include "support/require.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

void PunchHole(const UniqueFd& file, off_t from, off_t bytes) {
    zam_test::Require(
        ::fallocate(file.Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, from, bytes) == 0,
        "fallocate");
}

/// A service one of whose clients takes pages out of what it may write, between two of its reads.
class MissingRequestPages : public ::testing::Test {
protected:
    static constexpr std::uint64_t kNumber = 3;

    MissingRequestPages() { stage_.PollFor(kPollsForEver); }

    static Bytes CallWithHints(std::uint64_t number, const Bytes& arena = {}) {
        return FrameOf({.kind = FrameKind::Call, .callNumber = number, .flags = kElsewhere.Flags()},
                       MessageBytes(MakeMessage(kEcho, number)), arena);
    }

    /// Call 3, at a step of which the service is held; `takeOut` runs then.
    void CallAndTakeOut(MemoryPeer& peer, Step step, const std::function<void()>& takeOut,
                        const Bytes& arena = {}) {
        peer.Socket().Send(CallWithHints(1));
        peer.Socket().ReadFrame();
        peer.Put(2, CallWithHints(2));
        peer.AwaitAnswer(2);
        stage_.Go(Side::Service, Stage::BitOf(step));
        if (step == Step::ServiceLooks) {
            AwaitSoon("a look", [this] { return stage_.IsHeld(Side::Service); });
        }
        peer.Put(kNumber, CallWithHints(kNumber, arena));
        AwaitSoon("the service", [this] { return stage_.IsHeld(Side::Service); });
        takeOut();
        stage_.Go(Side::Service);
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
    SteppingServer server_;
};

TEST_F(MissingRequestPages, AreReadAsZerosAndEndTheirConnection) {
    const std::pair<Step, const char*> rows[] = {
        {Step::ServiceLooks, "request 0 in shared memory, not 3"},
        {Step::ServiceTakes, "frame magic is 0x00000000, not 0x464d415a"},
        {Step::ServiceReads, "frame magic is 0x00000000, not 0x464d415a"},
        // The call has been copied, and is served.
        {Step::ServiceHandles, "request 0 in shared memory, not 4"},
        {Step::ServiceAnswers, "request 0 in shared memory, not 4"},
    };
    for (const bool isByMapping : {false, true}) {
        for (const auto& [step, text] : rows) {
            SCOPED_TRACE(text);
            const std::size_t before = server_->Endpoint().Calls().size();
            MemoryPeer peer(*server_);
            CallAndTakeOut(peer, step, [&, isByMapping = isByMapping] {
                if (isByMapping) {
                    zam_test::Require(
                        ::madvise(&peer.Requests(), kRequestFileBytes, MADV_REMOVE) == 0,
                        "madvise");
                } else {
                    PunchHole(peer.RequestFile(), 0, kRequestFileBytes);
                }
            });
            const bool isServed = step > Step::ServiceReads;
            if (isServed) {
                // Nobody waits, as far as can be read there.
                EXPECT_EQ(ToHex(peer.Socket().Read(kPreludeBytes)), ToHex(LookFrame(kNumber)));
                EXPECT_EQ(MessageIn(peer.AwaitAnswer(kNumber).fixed).value, kNumber);
            }
            ExpectRefused(peer.Socket(), logger_, kStatusBadRequest, text);
            EXPECT_EQ(server_->Endpoint().Calls().size(), before + (isServed ? 3U : 2U));
        }
    }
}

/// It spoils what it sends, and nothing else.
TEST_F(MissingRequestPages, AreZerosWithinACallOfTheirClientsOwn) {
    MemoryPeer peer(*server_);
    const Bytes arena = Pattern(3 * kSharedPage);
    CallAndTakeOut(
        peer, Step::ServiceReads,
        [&peer] { PunchHole(peer.RequestFile(), kSharedPage, kSharedPage); }, arena);
    const Frame answer = peer.AwaitAnswer(kNumber);
    // In front of the arena stand the numbers, a prelude and a message.
    const std::size_t hole = kSharedPage - kSharedLine - kPreludeBytes - sizeof(TestMessage);
    const Bytes wanted = Head(arena, hole) + Bytes(kSharedPage) + Tail(arena, hole + kSharedPage);
    EXPECT_TRUE(answer.arena == wanted);
    peer.Put(kNumber + 1, CallWithHints(kNumber + 1));
    EXPECT_EQ(MessageIn(peer.AwaitAnswer(kNumber + 1).fixed).value, kNumber + 1);
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(MissingRequestPages, CannotBeThoseOfTheAnswers) {
    MemoryPeer peer(*server_);
    CallAndTakeOut(peer, Step::ServiceAnswers, [&peer] {
        void* const answers = const_cast<AnswerPages*>(&peer.Answers());
        EXPECT_EQ(::madvise(answers, kAnswerFileBytes, MADV_REMOVE), -1);
        EXPECT_EQ(::fallocate(peer.AnswerFile().Get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                              0, kAnswerFileBytes),
                  -1);
        // Of its own view alone.
        EXPECT_EQ(::madvise(answers, kAnswerFileBytes, MADV_DONTNEED), 0);
    });
    EXPECT_EQ(MessageIn(peer.AwaitAnswer(kNumber).fixed).value, kNumber);
    EXPECT_TRUE(logger_.Records().empty());
}

/// A client whose service takes pages out of both files, between two of the client's reads.
class MissingAnswerPages : public ::testing::Test {
protected:
    MissingAnswerPages() {
        stage_.Reset();
        stage_.WaitForEver(false);
    }
    ~MissingAnswerPages() override { stage_.Reset(); }

    /// Memory out of which the service may take pages, too.
    static void GiveOwnFiles(SharedPeer& peer) {
        constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
        const auto newFile = [](std::size_t bytes) {
            UniqueFd file(::memfd_create("zam_test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
            zam_test::Require(::ftruncate(file.Get(), static_cast<off_t>(bytes)) == 0 &&
                                  ::fcntl(file.Get(), F_ADD_SEALS, kSeals) == 0,
                              "memfd");
            return file;
        };
        const auto map = [](const UniqueFd& file, std::size_t bytes) {
            void* const address =
                ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
            zam_test::Require(address != MAP_FAILED, "mmap");
            return address;
        };
        ServiceMemory memory;
        memory.requestFile = newFile(kRequestFileBytes);
        memory.answerFile = newFile(kAnswerFileBytes);
        memory.requests = SharedMapping<const RequestPages>(
            static_cast<const RequestPages*>(map(memory.requestFile, kRequestFileBytes)),
            kRequestFileBytes);
        memory.answers = SharedMapping<AnswerPages>(
            static_cast<AnswerPages*>(map(memory.answerFile, kAnswerFileBytes)), kAnswerFileBytes);
        peer.memory = std::move(memory);
    }

    /// A connection whose call 1 has gone through memory.
    SharedPeer& Begin(SharedLink& link) {
        link.Prepare([](SharedPeer& peer) {
            GiveOwnFiles(peer);
            peer.Answers().polling.store(kPolling);
            peer.Grant();
            peer.Answer(1, 101);
        });
        TestCall call;
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Value(), 101U);
        return link.At(0);
    }

    static void TakeOut(const SharedPeer& peer) {
        PunchHole(peer.memory.requestFile, 0, kRequestFileBytes);
        PunchHole(peer.memory.answerFile, 0, kAnswerFileBytes);
    }

    /// Call 2, which is held at a step while `meanwhile` runs.
    std::int32_t StatusHeldAt(Step step, TestCall& call, SharedLink& link,
                              const std::function<void()>& meanwhile) {
        std::int32_t status = -1;
        stage_.Go(Side::Client, Stage::BitOf(step));
        {
            const Background calling([&] { status = call.Timeout(kBound).On(*link); });
            AwaitSoon("the client", [this] { return stage_.IsHeld(Side::Client); });
            meanwhile();
            stage_.Go(Side::Client);
        }
        return status;
    }

    Stage& stage_ = Stage::Get();
    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(MissingAnswerPages, SayThatNobodyLooksAndLeaveTheCallToTheSocket) {
    for (const Step step : kClientPlaces) {
        if (step == Step::ClientRings) {
            continue;  // whoever looks needs no look frame
        }
        SCOPED_TRACE(static_cast<int>(step));
        SharedLink link;
        SharedPeer& peer = Begin(link);
        TestCall call;
        EXPECT_EQ(StatusHeldAt(step, call, link,
                               [&peer] {
                                   TakeOut(peer);
                                   peer.socket.Send(AnswerFrame(2, 102));
                               }),
                  kStatusOk);
        EXPECT_EQ(call.Value(), 102U);
        // With its pages back the memory is as good as it was.
        peer.Answers().polling.store(kPolling);
        peer.Answer(3, 103);
        TestCall next;
        EXPECT_EQ(next.On(*link), kStatusOk);
        EXPECT_EQ(next.Value(), 103U);
        EXPECT_EQ(link.Connections(), 1U);
    }
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(MissingAnswerPages, AreZerosInAnAnswerAndEndItsConnection) {
    SharedLink link;
    SharedPeer& peer = Begin(link);
    peer.Answer(2, 102);
    TestCall call;
    EXPECT_EQ(StatusHeldAt(Step::ClientTakes, call, link, [&peer] { TakeOut(peer); }),
              kStatusProtocol);
    ASSERT_EQ(logger_.Records().size(), 1U);
    EXPECT_EQ(logger_.Records()[0].text, "frame magic is 0x00000000, not 0x464d415a");
    EXPECT_EQ(call.Value(), 0U);
    link.PrepareAnswer(201);
    TestCall next;
    EXPECT_EQ(next.On(*link), kStatusOk);
    EXPECT_EQ(next.Value(), 201U);
    EXPECT_EQ(link.Connections(), 2U);
}

}  // namespace
}  // namespace zam_platform::testing
