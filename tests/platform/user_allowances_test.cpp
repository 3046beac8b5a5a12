#include "server/user_allowances.h"

#include <gtest/gtest.h>

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
