// When the transports go. This executable watches what is freed.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <vector>

#include "library/zor_ipc/assembly/parts.h"
#include "library/zor_ipc/assembly/scripted_service.h"
#include "library/zor_ipc/notification/thread_state.h"
#include "support/allocations.h"
#include "zam_connector/zam_connector.h"

namespace zam_connector::test {
namespace {

// Interfaces that were released when the first transport was freed.
const std::vector<std::string>* g_released = nullptr;
std::size_t g_releasedBefore = 0;

std::array<std::atomic<const void*>, 2> g_watched;
std::array<std::atomic<int>, 2> g_freedAs;  // 1 for the first that was freed; 0: not freed
std::atomic<int> g_freed{0};

void NoteFreed(const void* bytes) {
    for (std::size_t each = 0; each < g_watched.size(); ++each) {
        if (bytes != nullptr && g_watched[each] == bytes) {
            g_watched[each] = nullptr;
            g_freedAs[each] = ++g_freed;
            if (g_freed == 1 && g_released != nullptr) {
                g_releasedBefore = g_released->size();
            }
        }
    }
}

// The blocks of a transport's size, in the order of their allocation. The two that an assembly
// makes are told from passers-by at the same address by their longer life.
struct Block {
    const void* bytes;
    int allocatedAt;
    int freedAt;  // 0: not freed
};
std::array<Block, 1000> g_blocks;
std::size_t g_blockCount = 0;
int g_blockEvents = 0;

void NoteBlockAllocated(const void* bytes, std::size_t size) {
    if (size == sizeof(VdZorTransport) && g_blockCount < g_blocks.size()) {
        g_blocks[g_blockCount++] = {bytes, ++g_blockEvents, 0};
    }
}

void NoteBlockFreed(const void* bytes) {
    for (std::size_t each = 0; each < g_blockCount; ++each) {
        if (g_blocks[each].bytes == bytes && g_blocks[each].freedAt == 0) {
            g_blocks[each].freedAt = ++g_blockEvents;
        }
    }
}

/// The ages at which the transports of a failing assembly went: events of blocks since its begin,
/// 0 for never.
std::vector<int> EndsOfTransports(const ScriptedService& service) {
    g_blockCount = 0;
    g_blockEvents = 0;
    zam_test::g_onAllocate = &NoteBlockAllocated;
    zam_test::g_onFree = &NoteBlockFreed;
    std::shared_ptr<IZamConnector> connector;
    CreateZamConnector(connector, {});
    zam_test::g_onAllocate = nullptr;
    zam_test::g_onFree = nullptr;
    EXPECT_EQ(connector, nullptr);
    std::vector<int> ends;
    for (const testing::PlatformCall& call : service.platform.Calls()) {
        if (call.function != testing::PlatformCall::Function::VdZorTransportInit) {
            continue;
        }
        Block longest{};
        for (std::size_t each = 0; each < g_blockCount; ++each) {
            const Block& block = g_blocks[each];
            if (block.bytes == call.transport &&
                (block.freedAt == 0 ||
                 block.freedAt - block.allocatedAt > longest.freedAt - longest.allocatedAt)) {
                longest = block;
            }
        }
        EXPECT_NE(longest.bytes, nullptr);
        ends.push_back(longest.freedAt);
    }
    EXPECT_EQ(ends.size(), 2U);
    ends.resize(2);
    return ends;
}

class TransportOrder : public ::testing::Test {
protected:
    void Watch(const Parts& parts) {
        Watch({parts.transports[0].get(), parts.transports[1].get()});
    }

    void Watch(const std::array<const void*, 2>& transports) {
        for (std::size_t each = 0; each < g_watched.size(); ++each) {
            g_watched[each] = transports[each];
            g_freedAs[each] = 0;
        }
        g_freed = 0;
        zam_test::g_onFree = &NoteFreed;
    }

    void TearDown() override {
        zam_test::g_onFree = nullptr;
        g_released = nullptr;
    }
};

TEST_F(TransportOrder, IsThatOfTheVector) {
    Parts parts;
    Watch(parts);
    std::unique_ptr<IZamConnector> connector = parts.Assemble();
    EXPECT_EQ(g_freed, 0);
    g_released = &parts.released;
    connector.reset();
    EXPECT_EQ(g_freedAs[0], 1);
    EXPECT_EQ(g_freedAs[1], 2);
    EXPECT_EQ(g_releasedBefore, 11U);
}

TEST_F(TransportOrder, IsTheSameWhenThePartsAreRefused) {
    for (int part = 0; part < 3; ++part) {
        Parts parts;
        Watch(parts);
        if (part == 0) {
            parts.transports[1]->ops = nullptr;
        } else if (part == 1) {
            parts.transports[0]->handle = VD_ZOR_INVALID_HANDLE;
        } else {
            parts.clientCertsDownloader.reset();
        }
        parts.released.clear();
        g_released = &parts.released;
        EXPECT_ANY_THROW(parts.Assemble());
        EXPECT_EQ(g_freedAs[0], 1);
        EXPECT_EQ(g_freedAs[1], 2);
        EXPECT_EQ(g_releasedBefore, part == 2 ? 10U : 11U);
        g_released = nullptr;
    }
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

/// A subscriber that the client still holds needs them until it goes, also when its handler thread
/// ended at an observer that threw.
TEST_F(TransportOrder, WaitsForASubscriberOutsideThatIsStarted) {
    for (const bool doesThrow : {false, true}) {
        StatePipeline pipeline;
        std::atomic<pid_t> thread{0};
        const auto observer =
            std::make_shared<StateObserver>([&thread, doesThrow](const ZamConnectorState&) {
                thread = ThreadNumber();
                if (doesThrow) {
                    throw std::runtime_error("not mine");
                }
            });
        SubscriptionCookie cookie;
        ASSERT_EQ(pipeline.proxy->SubscribeOnStateChange(observer, cookie), 0);
        pipeline.notifier->Tell(1);
        ASSERT_TRUE(observer->WaitForCount(1));
        ASSERT_TRUE(!doesThrow || WaitUntilGone(thread));
        Parts parts;
        parts.stateSubscriber = pipeline.proxy;
        Watch(parts);
        parts.Assemble().reset();
        EXPECT_EQ(g_freed, 0);
        pipeline.proxy.reset();
        while (g_freed < 2) {
            std::this_thread::yield();  // the handler thread may be the last that holds it
        }
        EXPECT_EQ(g_freedAs[0], 1);
        EXPECT_EQ(g_freedAs[1], 2);
    }
}

/// Its transport is the file downloader's own.
TEST_F(TransportOrder, FreesTheDownloadersWithIt) {
    testing::ScriptedTransport service;
    for (const bool isThere : {true, false}) {
        testing::ScriptedPlatform platform;
        if (isThere) {
            platform.SetRiid(qx::kFileDownloaderEndpoint, 7);
        }
        auto transport = std::make_unique<VdZorTransport>();
        service.Attach(transport.get());
        Watch({transport.get(), nullptr});
        if (isThere) {
            auto downloader = std::make_unique<proxy::ZamFileDownloaderProxy>(
                std::move(transport), 1, qx::kFileDownloaderEndpoint);
            EXPECT_EQ(g_freed, 0);
            downloader.reset();
        } else {
            EXPECT_ANY_THROW(proxy::ZamFileDownloaderProxy(std::move(transport), 1,
                                                           qx::kFileDownloaderEndpoint));
        }
        EXPECT_EQ(g_freed, 1);
    }
}

/// Whatever an assembly fails at, both transports go, behind everything else.
TEST_F(TransportOrder, FreesBothOnceWhenTheAssemblyFails) {
    for (std::size_t missing = 0; missing < std::size(kEndpoints); ++missing) {
        ScriptedService service;
        service.platform.SetRiid(kEndpoints[missing], VD_UNKNOWN_RIID);
        const std::vector<int> ends = EndsOfTransports(service);
        EXPECT_GT(ends[1], 0);
        EXPECT_GT(ends[0], ends[1]);
    }
    struct Fault {
        std::uint32_t handle;
        testing::InitFault fault;
    };
    for (const Fault& fault : {Fault{kConnectorHandle, testing::InitFault::NoOps},
                               Fault{kFilesHandle, testing::InitFault::NoOps},
                               Fault{kConnectorHandle, testing::InitFault::NoHandle},
                               Fault{kFilesHandle, testing::InitFault::NoHandle}}) {
        ScriptedService service;
        service.platform.SetInitFault(fault.handle, fault.fault);
        const std::vector<int> ends = EndsOfTransports(service);
        EXPECT_GT(ends[0], 0);
        EXPECT_GT(ends[1], ends[0]);
    }
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
