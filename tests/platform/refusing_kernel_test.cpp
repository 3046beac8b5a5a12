#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/memfd.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "shared/preemption.h"
#include "shared/shared_file.h"
#include "support/background.h"
#include "support/descriptors.h"
#include "support/memory_peer.h"
#include "support/refused_system_calls.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

// Newer than the oldest headers that this is built with.
#ifndef F_SEAL_FUTURE_WRITE
#define F_SEAL_FUTURE_WRITE 0x0010
#endif
#ifndef F_SEAL_EXEC
#define F_SEAL_EXEC 0x0020
#endif
#ifndef MFD_NOEXEC_SEAL
#define MFD_NOEXEC_SEAL 0x0008U
#endif

namespace zam_platform::testing {
namespace {

#ifdef SYS_fcntl64
constexpr long kFcntl = SYS_fcntl64;
#else
constexpr long kFcntl = SYS_fcntl;
#endif

/// A system call that a kernel, or a sandbox, refuses.
struct RefusedCall {
    long number;
    int error;
    std::vector<ArgumentIs> where;

    void Begin() const { RefuseSystemCall(number, error, where); }
};

/// That a mapping of so many bytes is no child's.
RefusedCall WithoutDontFork(int error, std::size_t bytes) {
    return {SYS_madvise,
            error,
            {{.index = 1, .bits = static_cast<std::uint32_t>(bytes)},
             {.index = 2, .bits = MADV_DONTFORK}}};
}

RefusedCall WithoutNoExec(int error) {
    return {
        SYS_memfd_create, error, {{.index = 1, .bits = MFD_NOEXEC_SEAL, .mask = MFD_NOEXEC_SEAL}}};
}

RefusedCall WithoutSeal(std::uint32_t seal, int error) {
    return {kFcntl,
            error,
            {{.index = 1, .bits = F_ADD_SEALS}, {.index = 2, .bits = seal, .mask = seal}}};
}

/// A service on a kernel that knows or allows less than others.
class RefusingKernelOfTheService : public ::testing::Test {
protected:
    void Refuse(const RefusedCall& call) {
        server_.OnLoop([&call] {
            call.Begin();
            return 0;
        });
    }

    static void ExpectServed(const RawSocket& client, std::uint64_t number) {
        client.Send(CallFrame(number, kEcho, 70 + number));
        EXPECT_EQ(MessageIn(client.ReadFrame().fixed).value, 70 + number);
    }

    /// Calls go through memory, and both files have the seals that clients ask for.
    void ExpectMemory(int without) {
        constexpr int kSizes = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;
        MemoryPeer peer(server_);
        EXPECT_EQ(MessageIn(peer.Call(1, CallFrame(1, kEcho, 5)).fixed).value, 5U);
        for (const UniqueFd* file : {&peer.RequestFile(), &peer.AnswerFile()}) {
            EXPECT_EQ(::fcntl(file->Get(), F_GET_SEALS) & (kSizes | without), kSizes);
        }
        EXPECT_TRUE(logger_.Records().empty());
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_{{.spinCap = std::chrono::microseconds(50)}};
};

TEST_F(RefusingKernelOfTheService, MayNotKnowFilesThatNobodyCanRun) {
    Refuse(WithoutNoExec(EINVAL));
    ExpectMemory(F_SEAL_EXEC);
}

TEST_F(RefusingKernelOfTheService, MayNotKnowTheSealAgainstLaterWrites) {
    Refuse(WithoutSeal(F_SEAL_FUTURE_WRITE, EINVAL));
    ExpectMemory(F_SEAL_FUTURE_WRITE);
}

/// What is not there, then, leaves nothing behind, and nobody is told: the socket carries on.
TEST_F(RefusingKernelOfTheService, LeavesItsClientsTheSocketWhereItRefusesMore) {
    const RefusedCall rows[] = {
        {SYS_memfd_create, ENOSYS, {}},
        {SYS_memfd_create, EINVAL, {}},
        WithoutDontFork(EINVAL, kRequestFileBytes),
        WithoutDontFork(ENOMEM, kAnswerFileBytes),
        WithoutSeal(F_SEAL_SHRINK, EPERM),
        WithoutSeal(F_SEAL_FUTURE_WRITE, EPERM),
    };
    for (const RefusedCall& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.number << ' ' << row.error);
        TestServer server({.spinCap = std::chrono::microseconds(50)});
        const RawSocket client = server.Greet();
        ExpectServed(client, 1);
        const std::set<int> before = OpenDescriptors();
        const std::size_t mappings = SharedMappings();
        server.OnLoop([&row] {
            row.Begin();
            return 0;
        });
        client.Send(MemoryRequestFrame(1));
        const Frame answer = client.ReadFrame();
        EXPECT_EQ(answer.prelude.kind, FrameKind::MemoryAnswer);
        EXPECT_EQ(answer.prelude.status, kStatusQuota);
        ExpectServed(client, 2);
        EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
        EXPECT_EQ(SharedMappings(), mappings);
    }
    EXPECT_TRUE(logger_.Records().empty());
}

/// A client may take pages out of its answers again then, and would have the service bring them in.
TEST_F(RefusingKernelOfTheService, GetsNoAnswersBeyondTheFirstPageWithoutThatSeal) {
    Refuse(WithoutSeal(F_SEAL_FUTURE_WRITE, EINVAL));
    MemoryPeer peer(server_);
    constexpr std::size_t kMost =
        kSharedPage - offsetof(AnswerPages, slot) - kPreludeBytes - sizeof(TestMessage);
    std::uint64_t number = 0;
    for (const std::size_t size : {kMost, kMost + 1, std::size_t{0}, 2 * kSharedPage, kMost}) {
        ++number;
        peer.Put(number, CallFrame(number, kFill, size));
        peer.Look(number);
        const Frame answer = size <= kMost ? peer.AwaitAnswer(number) : peer.Socket().ReadFrame();
        EXPECT_EQ(answer.prelude.callNumber, number);
        EXPECT_TRUE(answer.arena == Pattern(size)) << size;
        EXPECT_EQ(peer.Answers().answer.load() == number, size <= kMost) << size;
    }
    EXPECT_TRUE(logger_.Records().empty());
}

struct ClientRow {
    RefusedCall call;
    const char* why;
    bool isForAll;  ///< what no other service's memory would change
};

TEST(RefusingKernelOfTheClient, LeavesItsCallsToTheSocket) {
    const ClientRow rows[] = {
        {WithoutDontFork(EINVAL, kRequestFileBytes), "mapping of shared memory: Invalid argument",
         true},
        {WithoutDontFork(ENOMEM, kAnswerFileBytes),
         "mapping of shared memory: Cannot allocate memory", true},
        {{kFcntl, EINVAL, {{.index = 1, .bits = F_GET_SEALS}}},
         "seals of a file of shared memory: Invalid argument",
         false},
    };
    for (const ClientRow& row : rows) {
        SCOPED_TRACE(row.why);
        const zam_connector::testing::RecordingLogger logger;
        SharedLink link;
        TestCall call;
        std::set<int> before;
        std::size_t mappings = 0;
        link.Prepare([&](SharedPeer& peer) {
            peer.Grant();
            peer.socket.Send(AnswerFrame(1, 11) + AnswerFrame(2, 12));
            before = OpenDescriptors();
            mappings = SharedMappings();
            row.call.Begin();
        });
        Background([&] {
            EXPECT_EQ(call.On(*link), kStatusOk);
            EXPECT_EQ(call.Value(), 11U);
            EXPECT_EQ(call.On(*link), kStatusOk);
            EXPECT_EQ(call.Value(), 12U);
        });
        EXPECT_EQ(link.Connections(), 1U);
        EXPECT_EQ(link.At(0).Requests().request.load(), 0U);
        EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
        EXPECT_EQ(SharedMappings(), mappings);
        EXPECT_EQ(link.Process().failures.Get(), 1U);
        EXPECT_NE(link.Process().failed.Allows(std::chrono::steady_clock::now()), row.isForAll);
        const auto records = logger.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 0);
        EXPECT_EQ(records[0].text, std::string("no shared memory, failure 1: ") + row.why);
    }
}

TEST(RefusingKernel, CountsAsOneThatPromisesNoMoreMemoryThanItHas) {
    Background([] {
        RefuseSystemCall(SYS_sysinfo, ENOSYS);
        EXPECT_TRUE(IsCommitStrict());
    });
}

TEST(RefusingKernel, CountsAsABusyOneThatDoesNotTellOfSwitches) {
    Background([] {
        RefuseSystemCall(SYS_getrusage, ENOSYS);
        EXPECT_TRUE(HasBeenPreempted({}));
    });
}

}  // namespace
}  // namespace zam_platform::testing
