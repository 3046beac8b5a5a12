#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "shared/cpu_share.h"
#include "support/calling_logger.h"
#include "support/scoped_environment.h"
#include "support/shared_link.h"
#include "support/test_server.h"
#include "vd/service_locator.h"
#include "vd/transport_features.h"
#include "zam_platform/spin_setting.h"

namespace zam_platform::testing {
namespace {

using std::chrono::microseconds;
using zam_test::ScopedEnvironment;

/// A link whose calls go through memory, and a service that a test writes down.
class LinkUseTest : public ::testing::Test {
protected:
    void ExpectAnswer(std::uint64_t value) {
        TestCall call;
        EXPECT_EQ(call.On(*link_), kStatusOk);
        EXPECT_EQ(call.Value(), value);
    }

    ChannelUse Use() { return (*link_).Use().channels; }
    std::uint64_t Calls() { return (*link_).Use().calls; }

    SharedLink link_;
};

/// In a process of its own, which has not read the variable before.
TEST(ClientSpinCapTest, WarnsOnceAndLetsTheLoggerMakeCalls) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::alarm(static_cast<unsigned>(kBound.count()));
            const ScopedEnvironment wrong("ZAM_SPIN", "many");
            const zam_test::CallingLogger logger([] { ClientSpinCap(); },
                                                 zor::logger::kLevelWarning);
            ClientSpinCap();
            ClientSpinCap();
            std::exit(logger.records);
        },
        ::testing::ExitedWithCode(HasFastChannel() ? 1 : 0), "");
}

TEST_F(LinkUseTest, BeginsWithNothing) {
    EXPECT_FALSE(Use().offers);
    EXPECT_FALSE(Use().hasMemory);
    EXPECT_EQ(Calls(), 0U);
    EXPECT_EQ(Use().memoryCalls, 0U);
    EXPECT_EQ(Use().vainPolls, 0U);
    EXPECT_EQ(Use().vainTime.count(), 0);
}

TEST_F(LinkUseTest, CountsCallsByTheWayThatTheirRequestsWent) {
    SharedPeer& peer = link_.Begin();
    EXPECT_EQ(Use().offers, kOfferSharedMemory);
    EXPECT_TRUE(Use().hasMemory);
    EXPECT_EQ(Calls(), 1U);
    EXPECT_EQ(Use().memoryCalls, 1U);
    peer.Answers().polling.store(kAsleep);
    peer.socket.Send(AnswerFrame(2, 102));
    ExpectAnswer(102);
    peer.socket.Send(StatusFrame(FrameKind::Answer, 3, 99));
    EXPECT_EQ(TestCall().On(*link_), 99);
    EXPECT_EQ(Calls(), 3U);
    EXPECT_EQ(Use().memoryCalls, 1U);
    EXPECT_EQ(Use().vainPolls, 0U);
    EXPECT_EQ(Use().vainTime.count(), 0);
}

TEST_F(LinkUseTest, CountsALookThatEndedBeforeItsAnswerWasThere) {
    SharedPeer& peer = link_.Begin();
    peer.socket.Send(AnswerFrame(2, 102));
    ExpectAnswer(102);
    EXPECT_EQ(Calls(), 2U);
    EXPECT_EQ(Use().memoryCalls, 2U);
    EXPECT_EQ(Use().vainPolls, 1U);
    EXPECT_GT(Use().vainTime.count(), 0);
}

TEST_F(LinkUseTest, SeesAtOnceThatTheServiceHasGivenTheMemoryUp) {
    SharedPeer& peer = link_.Begin();
    peer.Answers().polling.store(kGivenUp);
    EXPECT_FALSE(Use().hasMemory);
    EXPECT_EQ(Use().offers, kOfferSharedMemory);
}

TEST_F(LinkUseTest, KeepsTheCountsOfConnectionsThatHaveEnded) {
    SharedPeer& peer = link_.Begin();
    peer.socket.Close();
    link_.Prepare([](SharedPeer& next) {
        next.socket.Send(
            FrameOf({.kind = FrameKind::LookupAnswer}, Bytes{0xFF, 0xFF, 1, 0, 0, 0, 0, 0}));
        next.socket.Send(AnswerFrame(1, 201));
    });
    ExpectAnswer(201);
    EXPECT_EQ(link_.Connections(), 2U);
    EXPECT_EQ(Use().offers, kOfferFailedTransfer) << "the successor's";
    EXPECT_FALSE(Use().hasMemory);
    EXPECT_EQ(Calls(), 2U);
    EXPECT_EQ(Use().memoryCalls, 1U);
}

TEST_F(LinkUseTest, BeginsAnewInAChildAfterFork) {
    link_.Begin();
    (*link_).LockForFork();
    (*link_).RestartInChild();
    EXPECT_FALSE(Use().hasMemory);
    EXPECT_EQ(Calls(), 0U);
    EXPECT_EQ(Use().memoryCalls, 0U);
}

/// The functions of the seam, over a server in this process.
class TransportFeatures : public ::testing::Test {
protected:
    /// A transport to a server that polls for at most so long.
    VdZorTransport& Serve(microseconds spinCap) {
        server_.emplace(ServerLimits{.spinCap = spinCap});
        runtime_.emplace("ZAM_RUNTIME_DIR", server_->Directory());
        handle_ = ServiceLocatorConnect(kTestService);
        VdZorTransport_Init(&transport_, handle_, 0, 0);
        return transport_;
    }

    /// What this process would do by itself.
    static std::uint32_t OwnFeatures() {
        const bool isOn =
            ClientSpinCap().count() > 0 && HasCpuForPolling(std::chrono::steady_clock::now());
        return (HasFastChannel() ? std::uint32_t{VD_TRANSPORT_FAST_CHANNEL} : 0) |
               (isOn ? std::uint32_t{VD_TRANSPORT_FAST_CHANNEL_ON} : 0);
    }

    VdTransportStatistics Statistics() {
        VdTransportStatistics statistics{};
        statistics.size = sizeof(statistics);
        VdZorTransport_Statistics(&transport_, &statistics);
        return statistics;
    }

    std::optional<TestServer> server_;
    std::optional<ScopedEnvironment> runtime_;
    std::uint32_t handle_ = VD_ZOR_INVALID_HANDLE;
    VdZorTransport transport_{};
};

TEST_F(TransportFeatures, KnowWhatTheServiceOffersOnceAnEndpointWasLookedUp) {
    const VdZorTransport& transport = Serve(microseconds(50));
    EXPECT_EQ(VdZorTransport_Features(&transport), OwnFeatures());
    ServiceLocatorGetRiid(handle_, kTestEndpoint);
    EXPECT_EQ(VdZorTransport_Features(&transport),
              OwnFeatures() | VD_TRANSPORT_FAST_CHANNEL_TOLD | VD_TRANSPORT_FAST_CHANNEL_OFFERED);
}

TEST_F(TransportFeatures, TellOfAServiceThatDoesNotOfferTheFastChannel) {
    const VdZorTransport& transport = Serve(microseconds(0));
    ServiceLocatorGetRiid(handle_, kTestEndpoint);
    EXPECT_EQ(VdZorTransport_Features(&transport), OwnFeatures() | VD_TRANSPORT_FAST_CHANNEL_TOLD);
}

TEST_F(TransportFeatures, CountCallsAndNoLookups) {
    VdZorTransport& transport = Serve(microseconds(0));
    ServiceLocatorGetRiid(handle_, kTestEndpoint);
    for (std::uint64_t value = 1; value < 30; ++value) {
        ASSERT_EQ(TestCall(kEcho, value).On(transport), kStatusOk);
        ASSERT_EQ(Statistics().calls, value);
    }
    EXPECT_EQ(Statistics().memoryCalls, 0U);
    EXPECT_EQ(Statistics().vainPolls, 0U);
}

TEST_F(TransportFeatures, WriteNoByteBeyondTheRecordThatTheCallerKnows) {
    VdZorTransport& transport = Serve(microseconds(0));
    ASSERT_EQ(TestCall(kEcho, 1).On(transport), kStatusOk);
    constexpr std::size_t kLonger = sizeof(VdTransportStatistics) + 16;
    for (const std::size_t size :
         {offsetof(VdTransportStatistics, calls), offsetof(VdTransportStatistics, memoryCalls),
          sizeof(VdTransportStatistics), kLonger}) {
        SCOPED_TRACE(size);
        alignas(VdTransportStatistics) std::array<unsigned char, kLonger + 8> bytes;
        bytes.fill(0xA5);
        auto* const statistics = reinterpret_cast<VdTransportStatistics*>(bytes.data());
        statistics->size = static_cast<std::uint32_t>(size);
        VdZorTransport_Statistics(&transport, statistics);
        EXPECT_EQ(statistics->size, size);
        std::array<unsigned char, kLonger + 8> wanted{};
        std::memcpy(wanted.data(), &statistics->size, sizeof(statistics->size));
        if (size > offsetof(VdTransportStatistics, calls)) {
            wanted[offsetof(VdTransportStatistics, calls)] = 1;
        }
        std::fill(wanted.begin() + static_cast<std::ptrdiff_t>(size), wanted.end(), 0xA5);
        EXPECT_EQ(bytes, wanted);
    }
}

TEST_F(TransportFeatures, AreNoneWithoutAHandleAndForTransportsOfOthers) {
    VdZorTransport_Init(&transport_, VD_ZOR_INVALID_HANDLE, 0, 0);
    EXPECT_EQ(VdZorTransport_Features(&transport_), 0U);
    EXPECT_EQ(Statistics().calls, 0U);
    constexpr VdZorTransportOps kOthers{};
    transport_.ops = &kOthers;
    transport_.platform = this;
    EXPECT_EQ(VdZorTransport_Features(&transport_), 0U);
    EXPECT_EQ(Statistics().calls, 0U);
}

}  // namespace
}  // namespace zam_platform::testing
