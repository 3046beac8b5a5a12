#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <list>

#include "daemon_fixture.h"
#include "raw_notifier.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using zam_service::testing::RawNotifier;
using zam_service::testing::Value;

constexpr std::uint32_t kClients = 1000;
constexpr std::size_t kMostBytesPerClient = 16384;

using NoticeLoadTest = zam_service::testing::DaemonFixture;

std::size_t Threads() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

bool HasDescriptors(rlim_t count) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur >= count;
}

TEST_F(NoticeLoadTest, AThousandClientsWaitWithoutThreadsAndAreAllTold) {
    // Both ends of every connection, of which one user may have half.
    if (!HasDescriptors(3 * kClients + 500)) {
        GTEST_SKIP() << "the limit of open files is too low";
    }
    Begin();
    struct Registered {
        RawNotifier notifier;
        std::uint32_t id = 0;
    };
    std::list<Registered> clients;
    clients.push_back({RawNotifier(daemon_->SocketPath(), "ZamDataNotifier", 0), 0});
    clients.back().notifier.Sync();
    const std::size_t threads = Threads();
    const std::size_t before = ::mallinfo2().uordblks;
    for (std::uint32_t client = 1; client <= kClients; ++client) {
        clients.push_back({RawNotifier(daemon_->SocketPath(), "ZamDataNotifier", client), 0});
        clients.back().id = clients.back().notifier.Register();
        clients.back().notifier.Ask(clients.back().id);
        clients.back().notifier.Sync();
    }
    const std::size_t after = ::mallinfo2().uordblks;
    clients.pop_front();
    EXPECT_LE(after - std::min(before, after), kClients * kMostBytesPerClient);
    EXPECT_EQ(Threads(), threads);

    for (const char* const version : {"1", "2"}) {
        data_.Write("policy.json", version);
        for (Registered& client : clients) {
            ASSERT_EQ(client.notifier.Read(), Value(1));
            client.notifier.Ask(client.id);
        }
    }
}

}  // namespace
}  // namespace zam_service
