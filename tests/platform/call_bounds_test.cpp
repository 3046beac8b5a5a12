#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "support/background.h"
#include "support/scoped_environment.h"
#include "support/shared_link.h"
#include "support/signal_storm.h"
#include "support/temporary_folder.h"
#include "support/test_call.h"
#include "vd/call_bounds.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// Bounds whose calls the test may end. One call at a time.
class TestBounds : public VdCallBounds {
public:
    TestBounds() : VdCallBounds{0, 0, &TestBounds::Enter, &TestBounds::Leave, nullptr} {}

    void EndCall() {
        ASSERT_TRUE(Await("a call", [this] {
            const qor::MutexLock lock(mutex_);
            return call_ != nullptr;
        }));
        const qor::MutexLock lock(mutex_);
        call_->interrupt(call_);
        call_->interrupt(call_);  // once more changes nothing
    }

    void RefuseCalls() {
        const qor::MutexLock lock(mutex_);
        refuses_ = true;
    }

    int Entered() {
        const qor::MutexLock lock(mutex_);
        return entered_;
    }

    int Left() {
        const qor::MutexLock lock(mutex_);
        return left_;
    }

private:
    static int Enter(VdCallBounds* bounds, VdCallUnderWay* call) {
        auto& self = *static_cast<TestBounds*>(bounds);
        const qor::MutexLock lock(self.mutex_);
        ++self.entered_;
        self.call_ = call;
        return self.refuses_ ? 0 : 1;
    }

    static void Leave(VdCallBounds* bounds, VdCallUnderWay* call) {
        auto& self = *static_cast<TestBounds*>(bounds);
        const qor::MutexLock lock(self.mutex_);
        EXPECT_EQ(self.call_, call);
        ++self.left_;
        self.call_ = nullptr;
    }

    qor::Mutex mutex_;
    VdCallUnderWay* call_ QOR_GUARDED_BY(mutex_) = nullptr;
    int entered_ QOR_GUARDED_BY(mutex_) = 0;
    int left_ QOR_GUARDED_BY(mutex_) = 0;
    bool refuses_ QOR_GUARDED_BY(mutex_) = false;
};

std::int64_t InFuture(milliseconds time) {
    return std::chrono::nanoseconds((steady_clock::now() + time).time_since_epoch()).count();
}

class CallBounds : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_;
    PairedLink link_;
    TestBounds bounds_;
    TestCall call_;
};

TEST_F(CallBounds, AreToldOfEveryCallAndWhatCameOfIt) {
    link_.Prepare(AnswerFrame(1, 7));
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusOk);
    EXPECT_EQ(bounds_.Entered(), 1);
    EXPECT_EQ(bounds_.Left(), 1);
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusOk);
    link_.Next().Close();
    link_.FailToConnect(kStatusUnavailable);
    EXPECT_EQ(call_.On(*link_), kStatusUnavailable);
    EXPECT_EQ(bounds_.Entered(), 2);
    EXPECT_EQ(bounds_.Left(), 2);
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusUnavailable);
}

TEST_F(CallBounds, RefuseACallBeforeItIsTried) {
    bounds_.RefuseCalls();
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusCancelled);
    EXPECT_EQ(link_.Attempts(), 0U);
    EXPECT_EQ(bounds_.Left(), 0) << "what was not entered is not left";
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusCancelled);
}

TEST_F(CallBounds, EndACallThatWaitsForItsAnswer) {
    Background client([this] { EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusCancelled); });
    const RawSocket peer = link_.Next();
    peer.Read(HelloFrame().size());
    peer.ReadFrame();
    bounds_.EndCall();
    client.Join();
    EXPECT_TRUE(peer.EndsNow()) << "its connection is closed";
    EXPECT_EQ(bounds_.Left(), 1);
}

TEST_F(CallBounds, EndACallThatThePeerDoesNotTake) {
    link_.UseTinyBuffers();
    call_.RequestArena(Pattern(1'000'000));
    Background client([this] { EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusCancelled); });
    const RawSocket peer = link_.Next();
    bounds_.EndCall();
    client.Join();  // the peer stays, so nothing else ends the call
}

TEST_F(CallBounds, LeaveTheConnectionOfACallThatHasEndedAlone) {
    link_.Prepare(AnswerFrame(1, 7));
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusOk);
    const RawSocket peer = link_.Next();
    peer.Read(HelloFrame().size());
    peer.ReadFrame();
    Background client([this] {
        EXPECT_EQ(call_.On(*link_), kStatusOk);
        EXPECT_EQ(call_.Value(), 8U);
    });
    peer.ReadFrame();
    peer.Send(AnswerFrame(2, 8));
    client.Join();
    EXPECT_EQ(link_.Connections(), 1U);
}

TEST_F(CallBounds, EndACallAtTheirDeadline) {
    bounds_.deadlineNs = InFuture(milliseconds(20));
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusTimeout);
    EXPECT_GE(InFuture(milliseconds(0)), bounds_.deadlineNs);
}

TEST_F(CallBounds, LeaveACallUnmadeThatWouldBeginBehindTheirDeadline) {
    bounds_.deadlineNs = InFuture(milliseconds(0));
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusTimeout);
    EXPECT_EQ((*link_).Lookup("endpoint", &bounds_), VD_UNKNOWN_RIID);
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusTimeout);
    EXPECT_THROW((*link_).Open(&bounds_), PlatformError);
    EXPECT_EQ(link_.Attempts(), 0U);
    EXPECT_THAT(logger_.Records(), ::testing::Each(::testing::Field(
                                       &zam_connector::testing::LogRecord::text,
                                       "the time for the call had run out before it began")));
}

/// The kernel is told of a bound once; deadlines of all lengths must still hold.
TEST_F(CallBounds, EndCallsAtDeadlinesThatGrowAndShrinkOnOneConnection) {
    std::uint64_t number = 0;
    std::unique_ptr<RawSocket> peer;
    for (const int ms : {5000, 900, 0, 60'000, 300, 500}) {
        bounds_.deadlineNs = ms == 0 ? 0 : InFuture(milliseconds(ms));
        call_.Bounds(bounds_);
        Background client([this] { EXPECT_EQ(call_.On(*link_), kStatusOk); });
        if (!peer) {
            peer = std::make_unique<RawSocket>(link_.Next());
            peer->Read(HelloFrame().size());
        }
        peer->ReadFrame();
        peer->Send(AnswerFrame(++number, 1));
        client.Join();
    }
    bounds_.deadlineNs = InFuture(milliseconds(700));  // longer than what the kernel was told
    EXPECT_EQ(call_.On(*link_), kStatusTimeout);
    EXPECT_GE(InFuture(milliseconds(0)), bounds_.deadlineNs);
    EXPECT_EQ(link_.Connections(), 1U);
}

/// Each of them ends the read in the kernel, bound and all.
TEST_F(CallBounds, EndACallAtTheirDeadlineThoughSignalsInterruptIt) {
    bounds_.deadlineNs = InFuture(milliseconds(300));
    const SignalStorm storm;
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusTimeout);
    EXPECT_GE(InFuture(milliseconds(0)), bounds_.deadlineNs);
    EXPECT_GT(storm.Sent(), 10U);
}

/// Takes the process's time-out back at its end.
class DefaultTimeout : public CallBounds {
protected:
    ~DefaultTimeout() override { VdZorTransport_SetDefaultTimeout(0); }
};

TEST_F(DefaultTimeout, EndsCallsAndLookupsThatHaveNoBounds) {
    VdZorTransport_SetDefaultTimeout(20);
    const auto before = steady_clock::now();
    EXPECT_EQ(call_.On(*link_), kStatusTimeout);
    EXPECT_GE(steady_clock::now() - before, milliseconds(20));
    EXPECT_EQ((*link_).Lookup("endpoint"), VD_UNKNOWN_RIID);
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusTimeout);
}

TEST_F(DefaultTimeout, IsAnewForEveryCallAndTheEarlierBoundHolds) {
    VdZorTransport_SetDefaultTimeout(60'000);
    bounds_.deadlineNs = InFuture(milliseconds(20));
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusTimeout);
    VdZorTransport_SetDefaultTimeout(20);
    bounds_.deadlineNs = InFuture(std::chrono::hours(1));
    EXPECT_EQ(call_.On(*link_), kStatusTimeout);
}

TEST_F(DefaultTimeout, IsNoneForThoseWhoWaitForHours) {
    VdZorTransport_SetDefaultTimeout(1);
    bounds_.withoutDefaultTimeout = 1;
    bounds_.deadlineNs = InFuture(milliseconds(40));
    EXPECT_EQ(call_.Bounds(bounds_).On(*link_), kStatusTimeout);
    EXPECT_GE(InFuture(milliseconds(0)), bounds_.deadlineNs);
}

TEST_F(CallBounds, AreNoneOfAFarewells) {
    bounds_.RefuseCalls();
    bounds_.deadlineNs = InFuture(milliseconds(0));
    link_.Prepare(AnswerFrame(1, 7));
    EXPECT_EQ(call_.Bounds(bounds_).Farewell().On(*link_), kStatusOk);
    EXPECT_EQ(call_.Value(), 7U) << "it was said";
    EXPECT_EQ(bounds_.Entered(), 0);
}

TEST_F(CallBounds, LeaveACallItsOwnEarlierTimeout) {
    bounds_.deadlineNs = InFuture(std::chrono::hours(1));
    EXPECT_EQ(call_.Bounds(bounds_).Timeout(milliseconds(5)).On(*link_), kStatusTimeout);
}

TEST_F(CallBounds, EndALookup) {
    bounds_.deadlineNs = InFuture(milliseconds(20));
    EXPECT_EQ((*link_).Lookup("endpoint", &bounds_), VD_UNKNOWN_RIID);
    bounds_.deadlineNs = 0;
    Background client(
        [this] { EXPECT_EQ((*link_).Lookup("endpoint", &bounds_), VD_UNKNOWN_RIID); });
    bounds_.EndCall();
}

/// A service whose queue of connections is full keeps those who connect waiting in the kernel.
TEST(CallBoundsOfAThread, EndAConnect) {
    zam_connector::testing::RecordingLogger logger;
    const zam_test::TemporaryFolder temp;
    const zam_test::ScopedEnvironment runtime("ZAM_RUNTIME_DIR", temp.Path());
    const RawListener listener(temp.Path("full.sock"), 0);
    EXPECT_NE(ServiceLocatorConnect("full"), VD_ZOR_INVALID_HANDLE);
    TestBounds bounds;
    Background client([&] {
        EXPECT_EQ(VdZorTransport_SetCallBounds(&bounds), nullptr);
        EXPECT_EQ(ServiceLocatorConnect("full"), VD_ZOR_INVALID_HANDLE);
        EXPECT_EQ(VdZorTransport_SetCallBounds(nullptr), &bounds);
    });
    bounds.EndCall();
}

/// What ends it is found on the socket, as it is where a service has gone.
TEST_F(CallBounds, EndACallThroughMemoryWithoutAnotherConnection) {
    SharedLink hot;
    SharedPeer& peer = hot.Begin();
    Background client([&] { EXPECT_EQ(call_.Bounds(bounds_).On(*hot), kStatusCancelled); });
    Await("the sleep", [&peer] { return peer.Requests().waiting.load() == 0; });
    bounds_.EndCall();
    client.Join();
    EXPECT_EQ(hot.Connections(), 1U);
}

}  // namespace
}  // namespace zam_platform::testing
