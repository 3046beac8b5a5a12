#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <optional>
#include <set>
#include <string>

#include "support/descriptors.h"
#include "support/memory_peer.h"
#include "support/no_descriptors_left.h"
#include "support/require.h"
#include "support/shared_link.h"
#include "zam_connector_testing/recording_logger.h"

// A sanitizer maps memory of its own, and ends the process when it gets none.
#if defined(__has_feature)
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
#define ZAM_BOUNDED_ADDRESS_SPACE
#endif
#elif !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ZAM_BOUNDED_ADDRESS_SPACE
#endif

namespace zam_platform::testing {
namespace {

using ::testing::StartsWith;

/// Another limit of the process until the end of the scope.
class ScopedLimit {
public:
    using Resource = decltype(RLIMIT_AS);

    ScopedLimit(Resource resource, rlim_t soft) : resource_(resource) {
        zam_test::Require(::getrlimit(resource, &before_) == 0, "getrlimit");
        rlimit limit = before_;
        limit.rlim_cur = soft;
        zam_test::Require(::setrlimit(resource, &limit) == 0, "setrlimit");
    }
    ScopedLimit(const ScopedLimit&) = delete;
    ScopedLimit& operator=(const ScopedLimit&) = delete;
    ~ScopedLimit() { ::setrlimit(resource_, &before_); }

private:
    const Resource resource_;
    rlimit before_{};
};

#ifdef ZAM_BOUNDED_ADDRESS_SPACE
/// Leaves the process address space for new mappings of so many bytes.
class AddressSpaceLeft {
public:
    explicit AddressSpaceLeft(std::size_t bytes) {
        // Neither stack nor heap can grow.
        std::array<volatile char, std::size_t{128} << 10U> stack;
        for (std::size_t at = 0; at < stack.size(); at += kSharedPage) {
            stack[at] = 0;
        }
        std::string heap(std::size_t{64} << 10U, '\0');
        heap = {};
        limit_.emplace(RLIMIT_AS, Used() + bytes);
    }

private:
    static std::size_t Used() {
        std::ifstream file("/proc/self/statm");
        std::size_t pages = 0;
        file >> pages;
        return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    }

    std::optional<ScopedLimit> limit_;
};
#endif

/// A client that has no room for the memory that its service gives.
class ClientMemoryLimits : public ::testing::Test {
protected:
    template <typename Limit, typename... Arguments>
    void ExpectGoesOnBySocket(const std::string& why, Arguments... arguments) {
        SCOPED_TRACE(why);
        SharedLink().Begin();  // sanitizers meet the types of channels while there is room
        SharedLink link;
        std::optional<Limit> limit;
        std::set<int> before;
        std::size_t mappings = 0;
        link.Prepare([&](SharedPeer& peer) {
            peer.Grant();
            peer.socket.Send(AnswerFrame(1, 11));
            before = OpenDescriptors();
            mappings = SharedMappings();
            limit.emplace(arguments...);
            logger_.Clear();
        });
        TestCall call;
        EXPECT_EQ(call.On(*link), kStatusOk);
        limit.reset();
        EXPECT_EQ(call.Value(), 11U);
        EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
        EXPECT_EQ(SharedMappings(), mappings);
        EXPECT_EQ(link.Process().failures.Get(), 1U);
        const auto records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 0);
        EXPECT_EQ(records[0].text, "no shared memory, failure 1: " + why);
        ExpectDoesNotAskAgain(link);
        ExpectMemoryLater(link);
    }

    static void ExpectDoesNotAskAgain(SharedLink& link) {
        const RawSocket& socket = link.At(0).socket;
        socket.Read(kPreludeBytes + kTokenBytes + 33 + 32 + 64);
        socket.Send(AnswerFrame(2, 12));
        TestCall call;
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Value(), 12U);
        EXPECT_EQ(socket.ReadFrame().prelude.kind, FrameKind::Call);
        EXPECT_EQ(link.Connections(), 1U);
    }

    /// On another connection, when some time has gone.
    static void ExpectMemoryLater(SharedLink& link) {
        link.At(0).socket.Close();
        link.Process().failed = {};
        link.PrepareAnswer(201);
        TestCall call;
        EXPECT_EQ(call.On(*link), kStatusOk);
        EXPECT_EQ(call.Value(), 201U);
        EXPECT_EQ(link.At(1).Requests().request.load(), 1U);
    }

    zam_connector::testing::RecordingLogger logger_;
};

TEST_F(ClientMemoryLimits, OfDescriptorsLeaveTheCallToTheSocket) {
    const std::string why = "seals of a file of shared memory: Bad file descriptor";
    for (const rlim_t left : {rlim_t{0}, rlim_t{1}}) {
        ExpectGoesOnBySocket<NoDescriptorsLeft>(why, left);
    }
}

#ifdef ZAM_BOUNDED_ADDRESS_SPACE
TEST_F(ClientMemoryLimits, OfAddressSpaceLeaveTheCallToTheSocket) {
    const std::string why = "mapping of shared memory: Cannot allocate memory";
    // For none of the files, for the first, for both but a page.
    for (const std::size_t room :
         {std::size_t{0}, kRequestFileBytes, kRequestFileBytes + kAnswerFileBytes - kSharedPage}) {
        ExpectGoesOnBySocket<AddressSpaceLeft>(why, room);
    }
}
#endif

/// A service that has no room for the memory that it would give.
class ServiceMemoryLimits : public ::testing::Test {
protected:
    static void ExpectServed(const RawSocket& client, std::uint64_t number) {
        client.Send(CallFrame(number, kEcho, 70 + number));
        EXPECT_EQ(MessageIn(client.ReadFrame().fixed).value, 70 + number);
    }

    /// Memory is refused under the limit, nothing is left of it, and there is some behind it.
    template <typename Limit, typename... Arguments>
    void ExpectRefusesMemory(Arguments... arguments) {
        TestServer server({.spinCap = std::chrono::microseconds(50)});
        const RawSocket client = server.Greet();
        ExpectServed(client, 1);
        const std::set<int> before = OpenDescriptors();
        const std::size_t mappings = SharedMappings();
        {
            const Limit limit(arguments...);
            client.Send(MemoryRequestFrame(1));
            const Frame answer = client.ReadFrame();
            EXPECT_EQ(answer.prelude.kind, FrameKind::MemoryAnswer);
            EXPECT_EQ(answer.prelude.status, kStatusQuota);
            ExpectServed(client, 2);
        }
        EXPECT_TRUE(NewSince(before).empty()) << Describe(NewSince(before));
        EXPECT_EQ(SharedMappings(), mappings);
        EXPECT_TRUE(logger_.Records().empty());
        client.Send(MemoryRequestFrame(2));
        EXPECT_EQ(ReadFrameWithFiles(client).files.size(), 2U);
        ExpectServed(client, 3);
    }

    zam_connector::testing::RecordingLogger logger_;
};

#ifdef ZAM_BOUNDED_ADDRESS_SPACE
TEST_F(ServiceMemoryLimits, OfAddressSpaceLeaveItsClientsTheSocket) {
    for (const std::size_t room :
         {std::size_t{0}, kRequestFileBytes, kRequestFileBytes + kAnswerFileBytes - kSharedPage}) {
        SCOPED_TRACE(room);
        ExpectRefusesMemory<AddressSpaceLeft>(room);
    }
}
#endif

/// Whoever makes a file larger than the limit is ended by a signal, unless it says otherwise.
TEST_F(ServiceMemoryLimits, OfTheSizesOfFilesLeaveItsClientsTheSocket) {
    for (const std::size_t limit :
         {std::size_t{0}, kRequestFileBytes - 1, kRequestFileBytes, kAnswerFileBytes - 1}) {
        SCOPED_TRACE(limit);
        ExpectRefusesMemory<ScopedLimit>(RLIMIT_FSIZE, rlim_t{limit});
    }
    const ScopedLimit enough(RLIMIT_FSIZE, kAnswerFileBytes);
    const TestServer server({.spinCap = std::chrono::microseconds(50)});
    EXPECT_EQ(MemoryPeer(server).Answers().answer.load(), 0U);
}

}  // namespace
}  // namespace zam_platform::testing
