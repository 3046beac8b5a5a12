// When the transports go. This executable watches what is freed.

#include <gtest/gtest.h>

#include <array>
#include <atomic>

#include "assembly/parts.h"
#include "support/allocations.h"

namespace zam_connector::test {
namespace {

std::array<std::atomic<const void*>, 2> g_watched;
std::array<std::atomic<int>, 2> g_freedAs;  // 1 for the first that was freed; 0: not freed
std::atomic<int> g_freed{0};

void NoteFreed(const void* bytes) {
    for (std::size_t each = 0; each < g_watched.size(); ++each) {
        if (bytes != nullptr && g_watched[each] == bytes) {
            g_watched[each] = nullptr;
            g_freedAs[each] = ++g_freed;
        }
    }
}

class TransportOrder : public ::testing::Test {
protected:
    void Watch(const Parts& parts) {
        for (std::size_t each = 0; each < g_watched.size(); ++each) {
            g_watched[each] = parts.transports[each].get();
            g_freedAs[each] = 0;
        }
        g_freed = 0;
        zam_test::g_onFree = &NoteFreed;
    }

    void TearDown() override { zam_test::g_onFree = nullptr; }
};

TEST_F(TransportOrder, IsThatOfTheVector) {
    Parts parts;
    Watch(parts);
    std::unique_ptr<IZamConnector> connector = parts.Assemble();
    EXPECT_EQ(g_freed, 0);
    connector.reset();
    EXPECT_EQ(g_freedAs[0], 1);
    EXPECT_EQ(g_freedAs[1], 2);
}

TEST_F(TransportOrder, IsTheSameWhenThePartsAreRefused) {
    Parts parts;
    Watch(parts);
    parts.controller.reset();
    EXPECT_ANY_THROW(parts.Assemble());
    EXPECT_EQ(g_freedAs[0], 1);
    EXPECT_EQ(g_freedAs[1], 2);
}

/// A client that still holds interfaces keeps no transport alive.
TEST_F(TransportOrder, DoesNotWaitForInterfacesOutside) {
    Parts parts;
    const auto controller = parts.controller;
    const auto subscriber = parts.dataChangeSubscriber;
    Watch(parts);
    parts.Assemble().reset();
    EXPECT_EQ(g_freed, 2);
}

TEST_F(TransportOrder, WaitsForAnObserverThatDropsTheConnector) {
    DataPipeline pipeline;
    std::unique_ptr<IZamConnector> connector;
    std::promise<void> ready;
    std::shared_future<void> isReady = ready.get_future().share();
    std::atomic<int> freedInside{-1};
    const auto observer = std::make_shared<PolicyObserver>([&, isReady](const PolicyChange&) {
        isReady.wait();
        connector.reset();
        freedInside = g_freed.load();
    });
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnPolicyChange(observer, cookie), 0);
    ThreadsEnd end(*pipeline.proxy);
    Parts parts;
    parts.dataChangeSubscriber = std::move(pipeline.proxy);
    Watch(parts);
    connector = parts.Assemble();
    pipeline.ChangePolicy(1);
    ready.set_value();
    ASSERT_TRUE(end.Wait());
    while (g_freed < 2) {
        std::this_thread::yield();  // what a thread keeps goes in no order of its own
    }
    EXPECT_EQ(freedInside, 0);
    EXPECT_EQ(g_freedAs[0], 1);
    EXPECT_EQ(g_freedAs[1], 2);
}

/// The client's thread drops the connector while an observer runs.
TEST_F(TransportOrder, WaitsForAnObserverOnAnotherThread) {
    StatePipeline pipeline;
    std::promise<void> inside;
    std::promise<void> go;
    std::shared_future<void> isGo = go.get_future().share();
    const auto observer = std::make_shared<StateObserver>([&, isGo](const ZamConnectorState&) {
        inside.set_value();
        isGo.wait();
    });
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    Parts parts;
    parts.stateSubscriber = std::move(pipeline.proxy);
    Watch(parts);
    std::unique_ptr<IZamConnector> connector = parts.Assemble();
    pipeline.notifier->Tell(1);
    inside.get_future().wait();
    connector.reset();
    EXPECT_EQ(g_freed, 0);
    go.set_value();
    while (g_freed < 2) {
        std::this_thread::yield();
    }
    EXPECT_EQ(g_freedAs[0], 1);
    EXPECT_EQ(g_freedAs[1], 2);
}

TEST_F(TransportOrder, DoesNotWaitForThreadsThatCanBeStopped) {
    StatePipeline pipeline;
    const auto observer = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
    Parts parts;
    parts.stateSubscriber = std::move(pipeline.proxy);
    Watch(parts);
    parts.Assemble().reset();
    EXPECT_EQ(g_freed, 2);
}

}  // namespace
}  // namespace zam_connector::test
