// Whole pipelines, from the notice to the observer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "library/zor_ipc/notification/pipelines.h"
#include "library/zor_ipc/notification/thread_state.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

std::vector<std::uint64_t> Hashes(const PolicyObserver& observer) {
    std::vector<std::uint64_t> hashes;
    for (const PolicyChange& change : observer.Values()) {
        hashes.push_back(change.first);
    }
    return hashes;
}

TEST(Pipelines, TellAKindOnceThatChangesOftenWhileAnObserverIsBusy) {
    Flag leave;
    DataPipeline pipeline;
    const auto observer =
        std::make_shared<PolicyObserver>([&](const PolicyChange&) { leave.Wait(); });
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    pipeline.ChangePolicy(1);
    ASSERT_TRUE(observer->WaitForCount(1));
    for (std::uint64_t hash = 2; hash <= 5; ++hash) {
        pipeline.ChangePolicy(hash);
    }
    pipeline.notifier->WaitUntilIdle();
    leave.Raise();
    ASSERT_TRUE(observer->WaitForCount(2));
    pipeline.ChangePolicy(6);
    ASSERT_TRUE(observer->WaitForCount(3));
    EXPECT_THAT(Hashes(*observer), ElementsAre(1, 5, 6));
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);  // the last call looks at the flag
}

TEST(Pipelines, TellEveryStateInOrder) {
    Flag leave;
    StatePipeline pipeline;
    const auto observer =
        std::make_shared<StateObserver>([&](const ZamConnectorState&) { leave.Wait(); });
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    for (const int state : {2, 2, 99, 1, 2}) {  // one is no state
        pipeline.notifier->Tell(state);
    }
    pipeline.notifier->WaitUntilIdle();
    leave.Raise();
    ASSERT_TRUE(observer->WaitForCount(4));
    EXPECT_THAT(observer->Values(),
                ElementsAre(ZamConnectorState::Connected, ZamConnectorState::Connected,
                            ZamConnectorState::Connecting, ZamConnectorState::Connected));
    EXPECT_EQ(pipeline.proxy->Unsubscribe(cookie), 0);  // the last call looks at the flag
}

TEST(Pipelines, ServeOtherKindsOnlyUntilTheDecidingOnesAreGone) {
    DataPipeline pipeline;
    const auto observer = std::make_shared<ServerDataObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnZamServerDataChange(observer, cookie), 0);
    pipeline.notifier->Tell(kServerDataKind);
    ASSERT_TRUE(observer->WaitForCount(1));
    EXPECT_EQ(pipeline.proxy->Unsubscribe(SubscriptionCookie(99)), 0);
    EXPECT_THAT(pipeline.notifier->Calls(), ElementsAre("Register", "Unregister"));
    EXPECT_TRUE(pipeline.proxy->IsZamServerDataSubscriberExist());
    ASSERT_EQ(pipeline.proxy->SubscribeOnSettingsSynced({}, cookie), 0);
    pipeline.notifier->Tell(kServerDataKind);
    EXPECT_TRUE(observer->WaitForCount(2));
}

TEST(Pipelines, HaveThreadsThatAreToldByTheirNames) {
    StatePipeline pipeline;
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange({}, cookie), 0);
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    std::set<std::string> names;
    const std::set<std::string> expected{"zam_handler", "zam_subscriber"};
    // A thread names itself as the first thing that it does.
    while (!std::includes(names.begin(), names.end(), expected.begin(), expected.end()) &&
           std::chrono::steady_clock::now() < deadline) {
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            names.insert(ThreadState::Of(std::stoi(task.path().filename().string())).name);
        }
    }
    EXPECT_THAT(names, IsSupersetOf(expected));
}

}  // namespace
}  // namespace zam_connector::test
