#include "qor/utils/cancellation_token.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <type_traits>

#include "library/zor_ipc/notification/thread_state.h"

namespace qor::utils {
namespace {

using std::chrono::milliseconds;
using zam_connector::test::kBound;
using zam_connector::test::ThreadNumber;
using zam_connector::test::WaitUntilAsleep;
using Action = ICancellationToken::ExecutionAction;

static_assert(std::is_same_v<std::underlying_type_t<Action>, std::int32_t>);
static_assert(static_cast<int>(Action::Continue) == 0);
static_assert(static_cast<int>(Action::Pause) == 1);
static_assert(static_cast<int>(Action::Cancel) == 2);

/// One way to tell a token something, and what it is told with it.
struct Telling {
    const char* name;
    int (*tell)(CancellationToken& token);
    Action told;
};

constexpr Telling kTellings[] = {
    {"Pause", [](CancellationToken& token) { return token.Pause(); }, Action::Pause},
    {"Resume", [](CancellationToken& token) { return token.Resume(); }, Action::Continue},
    {"Cancel",
     [](CancellationToken& token) {
         token.Cancel();
         return 0;
     },
     Action::Cancel},
};

constexpr Action kActions[] = {Action::Continue, Action::Pause, Action::Cancel};

/// The action that a token tells without waiting; starts from a wrong one.
Action ActionOf(const CancellationToken& token, Action wrong) {
    Action action = wrong;
    EXPECT_EQ(token.GetExecutionAction(action), 0);
    return action;
}

void ExpectState(const CancellationToken& token, Action state) {
    for (const Action wrong : kActions) {
        EXPECT_EQ(ActionOf(token, wrong), state);
    }
    EXPECT_EQ(token.IsContinued(), state == Action::Continue);
    EXPECT_EQ(token.IsPaused(), state == Action::Pause);
    EXPECT_EQ(token.IsCanceled(), state == Action::Cancel);
}

TEST(CancellationToken, ContinuesAtFirst) {
    ExpectState(CancellationToken(), Action::Continue);
}

TEST(CancellationToken, BeginsWithTheStateThatItsOwnerGives) {
    for (const Action state : kActions) {
        ExpectState(CancellationToken(state), state);
    }
}

TEST(CancellationToken, HasToldNobodyAtFirst) {
    for (const Action state : kActions) {
        const CancellationToken token(state);
        Action action{};
        EXPECT_EQ(token.GetExecutionAction(action, milliseconds(0)), 1);
        EXPECT_EQ(action, state);
    }
}

TEST(CancellationToken, TakesEveryStateFromEveryOther) {
    for (const Action from : kActions) {
        for (const Telling& telling : kTellings) {
            SCOPED_TRACE(std::string(telling.name) + " from " +
                         std::to_string(static_cast<int>(from)));
            CancellationToken token(from);
            EXPECT_EQ(telling.tell(token), 0);
            ExpectState(token, telling.told);
        }
    }
}

TEST(CancellationToken, IsNotCanceledAfterAResume) {
    CancellationToken token;
    token.Cancel();
    ASSERT_TRUE(token.IsCanceled());
    token.Resume();
    ExpectState(token, Action::Continue);
}

TEST(CancellationToken, EndsOneWaitWithEachThingTold) {
    for (const Telling& telling : kTellings) {
        SCOPED_TRACE(telling.name);
        CancellationToken token(Action::Pause);
        telling.tell(token);
        Action action{};
        EXPECT_EQ(token.GetExecutionAction(action, milliseconds(0)), 0);
        EXPECT_EQ(action, telling.told);
        action = Action::Pause;
        EXPECT_EQ(token.GetExecutionAction(action, milliseconds(0)), 1);
        EXPECT_EQ(action, telling.told);
    }
}

TEST(CancellationToken, KeepsWhatIsToldForAWaitWhenItIsAskedWithoutOne) {
    CancellationToken token;
    token.Cancel();
    Action action{};
    EXPECT_EQ(token.GetExecutionAction(action), 0);
    EXPECT_EQ(token.GetExecutionAction(action, milliseconds(0)), 0);
}

TEST(CancellationToken, WakesWhoWaits) {
    for (const Telling& telling : kTellings) {
        SCOPED_TRACE(telling.name);
        CancellationToken token(telling.told == Action::Pause ? Action::Cancel : Action::Pause);
        std::atomic<pid_t> number{0};
        Action action{};
        int result = -1;
        std::thread waiter([&] {
            number = ThreadNumber();
            result = token.GetExecutionAction(action, kBound);
        });
        EXPECT_TRUE(WaitUntilAsleep(number));
        telling.tell(token);
        waiter.join();
        EXPECT_EQ(result, 0);
        EXPECT_EQ(action, telling.told);  // written before the wake-up
    }
}

}  // namespace
}  // namespace qor::utils
