#include "call_scope.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "library/zor_ipc/notification/fake_call.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::proxy {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using test::FakeCall;

std::int64_t Ns(CallTime time) {
    return nanoseconds(time.time_since_epoch()).count();
}

/// Takes the process's time-out back at its end.
class DefaultTimeoutOf {
public:
    explicit DefaultTimeoutOf(milliseconds timeout) { SetDefaultTimeout(timeout); }
    DefaultTimeoutOf(const DefaultTimeoutOf&) = delete;
    DefaultTimeoutOf& operator=(const DefaultTimeoutOf&) = delete;
    ~DefaultTimeoutOf() { SetDefaultTimeout(milliseconds(0)); }
};

/// What bounds a close that begins now, in milliseconds from now rounded up; empty for nothing.
std::optional<std::int64_t> TimeOfAClose() {
    const std::int64_t before = Ns(steady_clock::now());
    const ChannelCloseScope scope;
    const VdCallBounds& bounds = *FakeCall::Bounds();
    if (bounds.deadlineNs == 0) {
        return std::nullopt;
    }
    EXPECT_EQ(bounds.withoutDefaultTimeout, 1);
    // The scope was made a moment after `before`, not before it.
    EXPECT_GE(bounds.deadlineNs, before);
    return (bounds.deadlineNs - before) / 1'000'000;
}

TEST(CallScope, EndsWithTheObject) {
    CallCanceller canceller;
    {
        const CallScope scope({.canceller = &canceller});
        EXPECT_NE(FakeCall::Bounds(), nullptr);
    }
    EXPECT_EQ(FakeCall::Bounds(), nullptr);
    canceller.Cancel();
    EXPECT_TRUE(FakeCall().isEntered);
}

TEST(CallScope, IsUnderTheCancellersOfThoseAroundIt) {
    CallCanceller outer;
    CallCanceller inner;
    const CallScope around({.canceller = &outer});
    {
        const CallScope within({.canceller = &inner});
        const FakeCall call;
        outer.Cancel();
        EXPECT_EQ(call.interruptions, 1);
        inner.Cancel();
        EXPECT_EQ(call.interruptions, 2);
    }
    CallCanceller fresh;
    const CallScope within({.canceller = &fresh});
    EXPECT_FALSE(FakeCall().isEntered);
    fresh.Cancel();
}

TEST(CallScope, ShortensWhatIsAroundItAndNeverLengthensIt) {
    const CallTime now = steady_clock::now();
    const CallScope around({.deadline = now + hours(2)});
    EXPECT_EQ(FakeCall::Bounds()->deadlineNs, Ns(now + hours(2)));
    {
        const CallScope shorter({.deadline = now + hours(1)});
        EXPECT_EQ(FakeCall::Bounds()->deadlineNs, Ns(now + hours(1)));
        const CallScope longer({.deadline = now + hours(3)});
        EXPECT_EQ(FakeCall::Bounds()->deadlineNs, Ns(now + hours(1)));
        const CallScope none({});
        EXPECT_EQ(FakeCall::Bounds()->deadlineNs, Ns(now + hours(1)));
    }
    EXPECT_EQ(FakeCall::Bounds()->deadlineNs, Ns(now + hours(2)));
}

TEST(CallScope, HasADeadlineAtAnyMoment) {
    const CallScope first({.deadline = CallTime(nanoseconds(0))});
    EXPECT_EQ(FakeCall::Bounds()->deadlineNs, 1) << "0 would be none";
    const CallScope last({.deadline = CallTime::min()});
    EXPECT_EQ(FakeCall::Bounds()->deadlineNs, 1);
}

TEST(CallScope, TakesWhatBoundsTheThreadAlready) {
    VdCallBounds bounds{};
    bounds.deadlineNs = 12345;
    bounds.withoutDefaultTimeout = 1;
    VdZorTransport_SetCallBounds(&bounds);
    {
        const CallScope scope({});
        EXPECT_NE(FakeCall::Bounds(), &bounds);
        EXPECT_EQ(FakeCall::Bounds()->deadlineNs, 12345);
        EXPECT_EQ(FakeCall::Bounds()->withoutDefaultTimeout, 1);
    }
    EXPECT_EQ(FakeCall::Bounds(), &bounds);
    VdZorTransport_SetCallBounds(nullptr);
}

TEST(CallScope, CostsNothingOfACallWithoutACanceller) {
    const CallScope scope({.deadline = steady_clock::now()});
    EXPECT_EQ(FakeCall::Bounds()->enter, nullptr);
    EXPECT_EQ(FakeCall::Bounds()->leave, nullptr);
}

/// As a logger makes them, for the record of a call that has not ended yet.
TEST(CallScope, HasCallsInsideACallEndWithThat) {
    CallCanceller canceller;
    const CallScope scope({.canceller = &canceller});
    {
        const FakeCall call;
        {
            const FakeCall inside;
            EXPECT_TRUE(inside.isEntered);
        }
        canceller.Cancel();
        EXPECT_EQ(call.interruptions, 1);
    }
    EXPECT_FALSE(FakeCall().isEntered);
    canceller.Cancel();  // finds nobody
}

TEST(CallScope, BeginsNoCallBehindACancelHoweverOftenItIsTried) {
    CallCanceller outer;
    CallCanceller inner;
    const CallScope around({.canceller = &outer});
    outer.Cancel();
    EXPECT_FALSE(FakeCall().isEntered);
    EXPECT_FALSE(FakeCall().isEntered);
    const CallScope within({.canceller = &inner});
    EXPECT_FALSE(FakeCall().isEntered);
    EXPECT_FALSE(FakeCall().isEntered);
}

TEST(CallScope, BoundsNothingInAChild) {
    CallCanceller canceller;
    EXPECT_EXIT(
        {
            std::optional<CallScope> outer(std::in_place,
                                           CallScope::Bounds{.canceller = &canceller});
            std::optional<CallScope> inner(std::in_place,
                                           CallScope::Bounds{.deadline = steady_clock::now()});
            const pid_t child = ::fork();
            if (child == 0) {
                canceller.Cancel();
                bool isFree = FakeCall::Bounds() == nullptr && FakeCall().isEntered;
                {
                    CallCanceller own(CallCanceller::Closes::Allowed);
                    const CallScope scope({.canceller = &own});
                    own.Cancel();
                    const ChannelCloseScope close;
                    isFree = isFree && FakeCall().isEntered;
                }
                inner.reset();
                isFree = isFree && FakeCall::Bounds() == nullptr;
                isFree = isFree && TimeOfAClose() == std::nullopt;
                outer.reset();
                isFree = isFree && FakeCall::Bounds() == nullptr;
                ::_exit(isFree ? 0 : 1);
            }
            int status = 1;
            ::waitpid(child, &status, 0);
            const bool isKept = FakeCall::Bounds() != nullptr && FakeCall().isEntered;
            std::exit(status == 0 && isKept ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(LibraryThreadScope, IsExemptFromTheProcesssTimeoutButForObservers) {
    CallCanceller canceller;
    const LibraryThreadScope thread(&canceller);
    EXPECT_EQ(FakeCall::Bounds()->withoutDefaultTimeout, 1);
    {
        const CallScope within({});
        EXPECT_EQ(FakeCall::Bounds()->withoutDefaultTimeout, 1);
    }
    {
        const ObserverScope observer;
        EXPECT_EQ(FakeCall::Bounds()->withoutDefaultTimeout, 0);
        const FakeCall call;
        canceller.Cancel();
        EXPECT_EQ(call.interruptions, 1) << "the thread's end is the observer's, too";
    }
    EXPECT_EQ(FakeCall::Bounds()->withoutDefaultTimeout, 1);
}

TEST(SetUpScope, HasTenSeconds) {
    const std::int64_t before = Ns(steady_clock::now());
    const SetUpScope scope;
    EXPECT_GE(FakeCall::Bounds()->deadlineNs, before + 10'000'000'000);
    EXPECT_LE(FakeCall::Bounds()->deadlineNs, Ns(steady_clock::now()) + 10'000'000'000);
}

TEST(ChannelCloseScope, HasNoBoundWhereNothingHas) {
    EXPECT_EQ(TimeOfAClose(), std::nullopt);
    const LibraryThreadScope thread(nullptr);
    const DefaultTimeoutOf timeout(milliseconds(1));
    EXPECT_EQ(TimeOfAClose(), std::nullopt);
}

TEST(ChannelCloseScope, HasThreeQuartersOfASecondAtLeast) {
    const CallTime now = steady_clock::now();
    for (const CallTime deadline : {now - hours(1), now, now + milliseconds(100)}) {
        const CallScope passed({.deadline = deadline});
        EXPECT_GE(TimeOfAClose(), 750);
        EXPECT_LT(TimeOfAClose(), 60'000);
    }
    const CallScope left({.deadline = now + hours(1)});
    EXPECT_GT(TimeOfAClose(), 3'000'000);
    EXPECT_LE(TimeOfAClose(), 3'600'000);
}

TEST(ChannelCloseScope, HasTheProcesssTimeoutWhenThatIsLonger) {
    {
        const DefaultTimeoutOf timeout(milliseconds(10));
        EXPECT_GE(TimeOfAClose(), 750);
        EXPECT_LT(TimeOfAClose(), 60'000);
    }
    const DefaultTimeoutOf timeout(hours(1));
    EXPECT_GE(TimeOfAClose(), 3'600'000);
}

/// The code of a call that others may end, by `cancel` while it is under way.
int CallThatEnds(CallCanceller* cancel) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    const FakeCall call;
    if (!call.isEntered) {
        last = 10;
        return -1;
    }
    if (cancel != nullptr) {
        cancel->Cancel();
    }
    last = call.interruptions == 0 ? 0 : 10;
    return call.interruptions == 0 ? 0 : -1;
}

TEST(ChannelCloseScope, IsTriedBehindACancel) {
    CallCanceller canceller(CallCanceller::Closes::Allowed);
    const CallScope scope({.canceller = &canceller});
    canceller.Cancel();
    EXPECT_GE(TimeOfAClose(), 750);
    EXPECT_LT(TimeOfAClose(), 60'000);
    const ChannelCloseScope close;
    EXPECT_TRUE(FakeCall().isEntered);
}

/// A close of a channel under calls that may be cancelled, of whose tries it keeps the number.
class CancellableClose {
public:
    /// The code of the close, by what `call` returns for each try.
    template <typename Call>
    int By(Call&& call) {
        return close_.Close([this, &call] {
            ++tries;
            return call();
        });
    }

    CallCanceller canceller{CallCanceller::Closes::Allowed};
    int tries = 0;

private:
    const CallScope scope_{{.canceller = &canceller}};
    ChannelCloseScope close_;
};

TEST(ChannelCloseScope, IsTriedOnceMoreWhenACancelEndsIt) {
    int tries = 0;
    {
        CancellableClose close;
        EXPECT_EQ(close.By([&close] { return CallThatEnds(&close.canceller); }), 0);
        tries = close.tries;
        EXPECT_EQ(FakeCall::Bounds()->enter, nullptr);
        EXPECT_GT(FakeCall::Bounds()->deadlineNs, Ns(steady_clock::now()));
        EXPECT_LE(FakeCall::Bounds()->deadlineNs, Ns(steady_clock::now() + kCloseTimeout));
    }
    EXPECT_EQ(tries, 2);
    EXPECT_EQ(*VdZorTransport_LastStatus(), 0);
}

TEST(ChannelCloseScope, IsTriedOnceMoreWhenACancelComesBeforeItBegins) {
    CancellableClose close;
    close.canceller.Cancel();
    EXPECT_EQ(close.By([] { return CallThatEnds(nullptr); }), 0);
    EXPECT_EQ(close.tries, 2);
}

/// The service may have closed the channel before the cancel came.
TEST(ChannelCloseScope, FailsAsTheFirstTimeWhenItFailsAgain) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    {
        CancellableClose close;
        const int code = close.By([&close, &last] {
            if (close.tries == 1) {
                return CallThatEnds(&close.canceller);
            }
            last = 0;
            return -7;
        });
        EXPECT_EQ(code, -1);
        EXPECT_EQ(close.tries, 2);
    }
    EXPECT_EQ(last, 10);
    last = 0;
}

TEST(ChannelCloseScope, IsTriedOnceWhenTheServiceRefusesItBesideACancel) {
    CancellableClose close;
    const int code = close.By([&close] {
        close.canceller.Cancel();
        *VdZorTransport_LastStatus() = 0;
        return -7;
    });
    EXPECT_EQ(code, -7);
    EXPECT_EQ(close.tries, 1);
}

TEST(ChannelCloseScope, IsTriedOnceWhenNobodyCancelsIt) {
    CallCanceller canceller(CallCanceller::Closes::Allowed);
    std::int32_t& last = *VdZorTransport_LastStatus();
    const auto fail = [&last](int& calls, std::int32_t status) {
        ChannelCloseScope close;
        EXPECT_EQ(close.Close([&] {
            ++calls;
            last = status;
            return -7;
        }),
                  -7);
    };
    int calls = 0;
    fail(calls, 3);
    EXPECT_EQ(calls, 1);
    const CallScope scope({.canceller = &canceller});
    fail(calls, 3);
    EXPECT_EQ(calls, 2);
    canceller.Cancel();
    fail(calls, 3);
    EXPECT_EQ(calls, 3) << "it was outside of cancelling from the first";
    last = 0;
}

TEST(ChannelCloseScope, IsNotTriedWhenTheThreadIsToEnd) {
    CallCanceller run;
    CallCanceller own(CallCanceller::Closes::Allowed);
    const LibraryThreadScope thread(&run);
    const CallScope scope({.canceller = &own});
    own.Cancel();
    run.Cancel();
    ChannelCloseScope close;
    int calls = 0;
    EXPECT_LT(close.Close([&] {
        ++calls;
        return CallThatEnds(nullptr);
    }),
              0);
    EXPECT_EQ(calls, 1);
    *VdZorTransport_LastStatus() = 0;
}

TEST(ChannelCloseScope, TellsOfAFailedTransfer) {
    {
        const ChannelCloseScope sound;
        EXPECT_EQ(FakeCall::Bounds()->failedTransfer, nullptr);
    }
    const ChannelCloseScope failed({.riid = 7, .operation = 6, .channel = -5});
    const VdFailedTransfer* const told = FakeCall::Bounds()->failedTransfer;
    ASSERT_NE(told, nullptr);
    EXPECT_EQ(told->riid, 7);
    EXPECT_EQ(told->operation, 6);
    EXPECT_EQ(told->channel, -5);
    const CallScope within({});
    EXPECT_EQ(FakeCall::Bounds()->failedTransfer, nullptr) << "of one call alone";
}

TEST(ChannelCloseScope, LeavesTheStatusOfWhatFailedBefore) {
    std::int32_t& last = *VdZorTransport_LastStatus();
    last = 4;
    {
        const ChannelCloseScope close;
        last = 0;
    }
    EXPECT_EQ(last, 4);
    {
        const ChannelCloseScope close;
        last = 3;
    }
    EXPECT_EQ(last, 3) << "the close failed, too";
    last = 0;
    { const ChannelCloseScope close; }
    EXPECT_EQ(last, 0);
}

/// In a process of its own, because the environment is read once: exits with 0 when closes have
/// this time at least in the end, in milliseconds, or no bound, and this was logged.
void ReadTimeoutAndExit(const char* text, std::optional<std::int64_t> expected,
                        const std::string& logged) {
    const testing::RecordingLogger logger;
    ::setenv("ZAM_CALL_TIMEOUT_MS", text, 1);
    ReadDefaultTimeout();
    ::setenv("ZAM_CALL_TIMEOUT_MS", "77777777", 1);
    ReadDefaultTimeout();
    const std::optional<std::int64_t> time = TimeOfAClose();
    const auto records = logger.Records();
    const bool isLogged = logged.empty() ? records.empty()
                                         : records.size() == 1 && records.front().text == logged &&
                                               records.front().level == zor::logger::kLevelError;
    std::exit(isLogged && time.has_value() == expected.has_value() &&
                      (!time || (*time >= *expected && *time < *expected + 60'000))
                  ? 0
                  : 1);
}

TEST(DefaultTimeoutDeathTest, IsTakenFromTheEnvironmentOnce) {
    const ::testing::ExitedWithCode done(0);
    EXPECT_EXIT(ReadTimeoutAndExit("100000", 100'000, ""), done, "");
    EXPECT_EXIT(ReadTimeoutAndExit("2147483647", 2'147'483'647, ""), done, "");
    EXPECT_EXIT(ReadTimeoutAndExit("0", std::nullopt, ""), done, "");
    for (const char* const text :
         {"", "x", "-1", "2147483648", "10 ", " 10", "1e3", "99999999999999999999"}) {
        EXPECT_EXIT(ReadTimeoutAndExit(text, std::nullopt,
                                       "ZAM_CALL_TIMEOUT_MS: '" + std::string(text) +
                                           "' is no number of milliseconds, 0 to 2147483647; calls "
                                           "have no time-out"),
                    done, "")
            << text;
    }
}

TEST(DefaultTimeoutDeathTest, OfTheProgramComesBeforeThatOfTheEnvironment) {
    EXPECT_EXIT(
        {
            SetDefaultTimeout(milliseconds(500'000));
            ReadTimeoutAndExit("100000", 500'000, "");
        },
        ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            SetDefaultTimeout(milliseconds(0));
            ReadTimeoutAndExit("100000", std::nullopt, "");
        },
        ::testing::ExitedWithCode(0), "")
        << "none is a choice, too";
}

TEST(DefaultTimeout, IsMovedToTheNearestThatThereIs) {
    {
        const DefaultTimeoutOf none(milliseconds(-5));
        EXPECT_GE(TimeOfAClose(), 750) << "1 ms, and the least of a close";
    }
    const DefaultTimeoutOf longest(milliseconds::max());
    EXPECT_GE(TimeOfAClose(), 2'147'483'647);
    EXPECT_LT(TimeOfAClose(), std::int64_t{2'147'483'647} + 60'000);
}

}  // namespace
}  // namespace zam_connector::proxy
