#include "server/user_allowances.h"

#include <gtest/gtest.h>

#include <chrono>

#include "common/polling_policy.h"

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;

constexpr UserAllowances::Time kMorning{std::chrono::hours(1)};
constexpr std::chrono::nanoseconds kInstant{1};
constexpr uid_t kTaker = 1000;

int TakenAtOnce(UserAllowances& allowances, uid_t user, UserAllowances::Time now) {
    int taken = 0;
    while (taken < 1000 && allowances.Take(user, now)) {
        ++taken;
    }
    return taken;
}

TEST(UserAllowances, AreTakenAtOnceAndComeBackOneByOne) {
    UserAllowances allowances(5, milliseconds(10));
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning), 5);
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning + milliseconds(10) - kInstant), 0);
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning + milliseconds(10)), 1);
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning + milliseconds(39)), 2);
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning + milliseconds(40)), 1);
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning + std::chrono::hours(1000)), 5);
}

TEST(UserAllowances, AreEachUsersOwn) {
    UserAllowances allowances(5, milliseconds(10));
    EXPECT_EQ(TakenAtOnce(allowances, kTaker, kMorning), 5);
    EXPECT_EQ(TakenAtOnce(allowances, 0, kMorning), 5);
    EXPECT_FALSE(allowances.Has(kTaker, kMorning));
}

TEST(UserAllowances, OweNoMoreThanMayBeTakenAtOnce) {
    UserAllowances allowances(5, milliseconds(10));
    EXPECT_TRUE(allowances.Has(kTaker, kMorning, 5));
    EXPECT_FALSE(allowances.Has(kTaker, kMorning + kInstant, 6));
    allowances.Charge(kTaker, kMorning, 1'000'000);
    EXPECT_FALSE(allowances.Has(kTaker, kMorning + milliseconds(60) - kInstant));
    EXPECT_TRUE(allowances.Has(kTaker, kMorning + milliseconds(60)));
    EXPECT_FALSE(allowances.Has(kTaker, kMorning + milliseconds(60), 2));
}

TEST(UserAllowances, OfMemoryAreBoundInTheLongRun) {
    UserAllowances grants(MemoryGranting::kMostOfLong, MemoryGranting::kTimeOfLong);
    int taken = 0;
    for (auto now = kMorning; now < kMorning + std::chrono::hours(24);
         now += MemoryGranting::kTime) {
        taken += grants.Take(kTaker, now) ? 1 : 0;
    }
    EXPECT_NEAR(taken, 4096 + 24 * 360, 1);
    EXPECT_TRUE(grants.Has(0, kMorning + std::chrono::hours(24)));
}

TEST(UserAllowances, LeaveOthersHalfOfAServicesPolls) {
    PollingLeave leave(kGreatestCap, kGreatestCap, kMorning);
    UserAllowances inVain(UserPolling::kMostPieces, UserPolling::kPieceTime);
    constexpr int kPieces = kGreatestCap / UserPolling::kPiece;
    std::chrono::nanoseconds polled{0};
    int refused = 0;
    for (int step = 0; step < 100'000; ++step) {
        const auto now = kMorning + step * std::chrono::microseconds(100);
        if (step % 25 == 0) {
            refused += leave.Allows(now) ? 0 : 1;  // two hundredths of the time
            leave.EndPoll(now, kGreatestCap, false);
        } else if (leave.Allows(now) && inVain.Has(kTaker, now, kPieces)) {
            inVain.Charge(kTaker, now, kPieces);
            leave.EndPoll(now, kGreatestCap, false);
            polled += kGreatestCap;
        }
    }
    EXPECT_EQ(refused, 0);
    EXPECT_LE(polled, milliseconds(251)) << "of ten seconds";
    EXPECT_GE(polled, milliseconds(249));
}

TEST(UserAllowances, ForgetWhoHasTheMostLeft) {
    UserAllowances allowances(5, milliseconds(10));
    for (uid_t user = 0; user < UserAllowances::kMaxUsers; ++user) {
        allowances.Charge(user, kMorning, user == 7 ? 1 : 5);
    }
    allowances.Charge(kTaker, kMorning, 5);
    EXPECT_TRUE(allowances.Has(7, kMorning, 5));
    EXPECT_FALSE(allowances.Has(0, kMorning));
    EXPECT_FALSE(allowances.Has(kTaker, kMorning));
}

}  // namespace
}  // namespace zam_platform::testing
