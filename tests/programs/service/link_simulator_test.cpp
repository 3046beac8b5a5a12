#include "link/link_simulator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "link/sync_schedule.h"

namespace zam_service {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using State = zam_connector::ZamConnectorState;
using TimePoint = LinkSimulator::TimePoint;

TimePoint At(int time) {
    return TimePoint() + milliseconds(time);
}

ConnectionPlan Refusing(milliseconds after) {
    ConnectionPlan plan;
    plan.refuseAfter = after;
    return plan;
}

ConnectionPlan Flapping(milliseconds up, milliseconds down) {
    ConnectionPlan plan;
    plan.flap = FlapPlan{.up = up, .down = down};
    return plan;
}

/// The changes of state up to a time, in order.
std::vector<State> Advance(LinkSimulator& link, TimePoint time) {
    std::vector<State> changes;
    while (const std::optional<State> state = link.Advance(time)) {
        EXPECT_EQ(link.State(), *state);
        changes.push_back(*state);
    }
    return changes;
}

TEST(LinkSimulator, IsStoppedAndAtRestBeforeTheFirstStart) {
    LinkSimulator link;
    EXPECT_EQ(link.State(), State::Stopped);
    EXPECT_FALSE(link.IsStarted());
    EXPECT_TRUE(link.IsDown());
    EXPECT_FALSE(link.NextStep());
    EXPECT_THAT(Advance(link, At(1'000'000)), IsEmpty());
}

TEST(LinkSimulator, ConnectsInTheStepsOfThePlan) {
    LinkSimulator link;
    link.Start(At(1000));
    EXPECT_TRUE(link.IsStarted());
    EXPECT_EQ(link.NextStep(), At(1000));
    EXPECT_THAT(Advance(link, At(1000)), ElementsAre(State::Connecting));
    EXPECT_EQ(link.NextStep(), At(1300));
    EXPECT_THAT(Advance(link, At(1299)), IsEmpty());
    EXPECT_EQ(link.State(), State::Connecting);
    EXPECT_THAT(Advance(link, At(1300)), ElementsAre(State::Connected));
    EXPECT_FALSE(link.NextStep());
    EXPECT_THAT(Advance(link, At(9'000'000)), IsEmpty());
}

TEST(LinkSimulator, StopsInTheStepsOfThePlan) {
    LinkSimulator link;
    link.Start(At(0));
    Advance(link, At(0));
    Advance(link, At(300));
    link.Stop(At(1000));
    EXPECT_FALSE(link.IsStarted());
    EXPECT_TRUE(link.IsDown());
    EXPECT_THAT(Advance(link, At(1000)), ElementsAre(State::Stopping));
    EXPECT_THAT(Advance(link, At(1099)), IsEmpty());
    EXPECT_THAT(Advance(link, At(1100)), ElementsAre(State::Stopped));
    EXPECT_FALSE(link.NextStep());
}

TEST(LinkSimulator, StartsAgainInTheMiddleOfAStop) {
    LinkSimulator link;
    link.Start(At(0));
    Advance(link, At(0));
    link.Stop(At(100));
    EXPECT_THAT(Advance(link, At(100)), ElementsAre(State::Stopping));
    link.Start(At(150));
    EXPECT_TRUE(link.IsStarted());
    EXPECT_THAT(Advance(link, At(150)), ElementsAre(State::Connecting));
    EXPECT_THAT(Advance(link, At(200)), IsEmpty()) << "the stop's last step is still taken";
    EXPECT_THAT(Advance(link, At(450)), ElementsAre(State::Connected));
}

TEST(LinkSimulator, StopsInTheMiddleOfAStart) {
    LinkSimulator link;
    link.Start(At(0));
    Advance(link, At(0));
    link.Stop(At(200));
    EXPECT_THAT(Advance(link, At(200)), ElementsAre(State::Stopping));
    EXPECT_THAT(Advance(link, At(300)), ElementsAre(State::Stopped));
    EXPECT_THAT(Advance(link, At(10'000)), IsEmpty());
}

TEST(LinkSimulator, IsRefusedUntilTheNextStart) {
    LinkSimulator link;
    link.SetPlan(Refusing(milliseconds(50)));
    link.Start(At(0));
    EXPECT_THAT(Advance(link, At(0)), ElementsAre(State::Connecting));
    EXPECT_TRUE(link.IsStarted());
    EXPECT_THAT(Advance(link, At(50)), ElementsAre(State::Refused));
    EXPECT_FALSE(link.IsStarted());
    EXPECT_FALSE(link.IsDown());
    EXPECT_FALSE(link.NextStep());
    link.SetPlan({});
    link.Start(At(100));
    EXPECT_THAT(Advance(link, At(100)), ElementsAre(State::Connecting));
    EXPECT_THAT(Advance(link, At(400)), ElementsAre(State::Connected));
}

TEST(LinkSimulator, StopsFromRefused) {
    LinkSimulator link;
    link.SetPlan(Refusing(milliseconds(0)));
    link.Start(At(0));
    EXPECT_THAT(Advance(link, At(0)), ElementsAre(State::Connecting, State::Refused));
    link.Stop(At(10));
    EXPECT_TRUE(link.IsDown());
    EXPECT_THAT(Advance(link, At(10)), ElementsAre(State::Stopping));
    EXPECT_THAT(Advance(link, At(110)), ElementsAre(State::Stopped));
}

TEST(LinkSimulator, FlapsUntilTheStop) {
    LinkSimulator link;
    link.SetPlan(Flapping(milliseconds(1000), milliseconds(500)));
    link.Start(At(0));
    Advance(link, At(0));
    int now = 300;
    EXPECT_THAT(Advance(link, At(now)), ElementsAre(State::Connected));
    for (int round = 0; round < 3; ++round) {
        EXPECT_THAT(Advance(link, At(now + 999)), IsEmpty());
        EXPECT_THAT(Advance(link, At(now + 1000)), ElementsAre(State::WaitingForReconnect));
        EXPECT_THAT(Advance(link, At(now + 1499)), IsEmpty());
        EXPECT_THAT(Advance(link, At(now + 1500)), ElementsAre(State::Connecting));
        EXPECT_THAT(Advance(link, At(now + 1800)), ElementsAre(State::Connected));
        EXPECT_TRUE(link.IsStarted());
        now += 1800;
    }
    link.Stop(At(now));
    EXPECT_THAT(Advance(link, At(now)), ElementsAre(State::Stopping));
    EXPECT_THAT(Advance(link, At(now + 100)), ElementsAre(State::Stopped));
    EXPECT_THAT(Advance(link, At(now + 100'000)), IsEmpty());
}

TEST(LinkSimulator, DoesNotCatchUpAfterAHalt) {
    LinkSimulator link;
    link.SetPlan(Flapping(milliseconds(1), milliseconds(1)));
    link.Start(At(0));
    Advance(link, At(0));
    Advance(link, At(300));
    EXPECT_THAT(Advance(link, At(300) + hours(1)), ElementsAre(State::WaitingForReconnect));
}

TEST(LinkSimulator, TakesAllStepsWithoutADelayAtOnce) {
    ConnectionPlan plan;
    plan.start = {{State::Connecting, milliseconds(0)},
                  {State::Connecting, milliseconds(0)},
                  {State::WaitingForReconnect, milliseconds(0)},
                  {State::Connected, milliseconds(0)}};
    LinkSimulator link;
    link.SetPlan(plan);
    link.Start(At(5));
    EXPECT_THAT(Advance(link, At(5)),
                ElementsAre(State::Connecting, State::WaitingForReconnect, State::Connected))
        << "a step that repeats the state is no change";
}

TEST(LinkSimulator, LetsTheFirstStepWait) {
    ConnectionPlan plan;
    plan.start = {{State::Connected, milliseconds(10)}};
    LinkSimulator link;
    link.SetPlan(plan);
    link.Start(At(0));
    EXPECT_THAT(Advance(link, At(9)), IsEmpty());
    EXPECT_EQ(link.State(), State::Stopped);
    EXPECT_TRUE(link.IsStarted());
    EXPECT_THAT(Advance(link, At(10)), ElementsAre(State::Connected));
}

TEST(LinkSimulator, KeepsThePlanOfAStartUnderWay) {
    LinkSimulator link;
    link.Start(At(0));
    Advance(link, At(0));
    ConnectionPlan plan;
    plan.start = {{State::Refused, milliseconds(0)}};
    plan.stop = {{State::Stopped, milliseconds(7)}};
    link.SetPlan(plan);
    EXPECT_THAT(Advance(link, At(300)), ElementsAre(State::Connected));
    link.Stop(At(400));
    EXPECT_EQ(link.NextStep(), At(407));
}

constexpr milliseconds kTakes{200};

TEST(SyncSchedule, CarriesOutAConfirmedOneAfterItsTime) {
    SyncSchedule sync;
    const auto ticket = sync.Add();
    ASSERT_TRUE(ticket);
    EXPECT_FALSE(sync.Advance(true, kTakes, At(0))) << "not confirmed yet";
    EXPECT_FALSE(sync.Due());
    sync.Confirm(*ticket);
    EXPECT_FALSE(sync.Advance(true, kTakes, At(10)));
    EXPECT_EQ(sync.Due(), At(210));
    EXPECT_FALSE(sync.Advance(true, kTakes, At(209)));
    EXPECT_TRUE(sync.Advance(true, kTakes, At(210)));
    EXPECT_FALSE(sync.Advance(true, kTakes, At(1000))) << "carried out once";
    EXPECT_TRUE(sync.Add()) << "the next one may come";
}

TEST(SyncSchedule, KeepsOnePendingOnly) {
    SyncSchedule sync;
    ASSERT_TRUE(sync.Add());
    EXPECT_FALSE(sync.Add());
    EXPECT_TRUE(sync.Drop());
    EXPECT_FALSE(sync.Drop());
    EXPECT_TRUE(sync.Add());
}

TEST(SyncSchedule, WaitsForTheLinkAndStartsOverWhenItBreaks) {
    SyncSchedule sync;
    sync.Confirm(*sync.Add());
    EXPECT_FALSE(sync.Advance(false, kTakes, At(0)));
    EXPECT_FALSE(sync.Due());
    EXPECT_FALSE(sync.Advance(true, kTakes, At(1000)));
    EXPECT_EQ(sync.Due(), At(1200));
    EXPECT_FALSE(sync.Advance(false, kTakes, At(1200)));
    EXPECT_FALSE(sync.Due());
    EXPECT_FALSE(sync.Advance(true, kTakes, At(2000)));
    EXPECT_TRUE(sync.Advance(true, kTakes, At(2200)));
}

TEST(SyncSchedule, IgnoresTicketsOfDroppedOnes) {
    SyncSchedule sync;
    const auto dropped = sync.Add();
    sync.Drop();
    sync.Confirm(*dropped);
    EXPECT_FALSE(sync.Advance(true, milliseconds(0), At(0)));
    const auto pending = sync.Add();
    sync.Confirm(*dropped);
    sync.Cancel(*dropped);
    EXPECT_FALSE(sync.Add()) << "the new one is still pending";
    EXPECT_FALSE(sync.Advance(true, milliseconds(0), At(0)));
    sync.Confirm(*pending);
    EXPECT_TRUE(sync.Advance(true, milliseconds(0), At(0)));
}

TEST(SyncSchedule, TakesBackACancelledOne) {
    SyncSchedule sync;
    sync.Cancel(*sync.Add());
    EXPECT_FALSE(sync.Drop());
}

}  // namespace
}  // namespace zam_service
