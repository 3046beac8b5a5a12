#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/read.hpp>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "daemon/connector_daemon.h"
#include "ping_pong.h"
#include "process.h"
#include "suites.h"
#include "support/real_subscribers.h"
#include "vocabulary/notice_kinds.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 5;
constexpr int kWarmUp = 200;
constexpr int kNotices = 2000;
/// Between two notices: by then the client waits for the next.
constexpr auto kPause = std::chrono::microseconds(300);

constexpr std::array<Placement, 2> kPinnedPlacements = {{{"two_cores", 0, 1}, {"one_core", 0, 0}}};

/// What a notice of kind 7 puts on the wire: the waiting call and its answer, the fetch and its.
constexpr Exchange kWait{32 + 32, 32 + 32};
constexpr Exchange kFetch{32 + 24, 32 + 40};

/// When a notice was decided on in one process and told in the other, in microseconds.
struct Stamps {
    std::atomic<double> decided{0};
    std::atomic<double> told{0};
};

class SharedStamps {
public:
    SharedStamps()
        : memory_(::mmap(nullptr, sizeof(Stamps), PROT_READ | PROT_WRITE,
                         MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED) {
            throw std::runtime_error("no shared memory");
        }
        new (memory_) Stamps;
    }
    SharedStamps(const SharedStamps&) = delete;
    SharedStamps& operator=(const SharedStamps&) = delete;
    ~SharedStamps() { ::munmap(memory_, sizeof(Stamps)); }

    Stamps& operator*() const noexcept { return *static_cast<Stamps*>(memory_); }
    Stamps* operator->() const noexcept { return static_cast<Stamps*>(memory_); }

private:
    void* memory_;
};

/// Waits for the end of one notice.
class Told {
public:
    void Set() {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isSet_ = true;
        }
        changed_.notify_one();
    }

    void Wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, std::chrono::seconds(10), [this] { return isSet_; })) {
            throw std::runtime_error("a notice was lost");
        }
        isSet_ = false;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isSet_ = false;
};

struct Latency {
    double p50;
    double p99;
};

/// Tells notices one by one. `decide` has the service decide on one.
template <typename Decide>
Latency Measure(const Stamps& stamps, Told& told, const Decide& decide) {
    std::vector<double> times;
    for (int notice = 0; notice < kWarmUp + kNotices; ++notice) {
        std::this_thread::sleep_for(kPause);
        decide();
        told.Wait();
        if (notice >= kWarmUp) {
            times.push_back(stamps.told - stamps.decided);
        }
    }
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

/// The service in a process of its own, which tells of synchronised settings for each byte that it
/// is sent.
void RunService(const std::string& folder, int orders, Stamps& stamps) {
    zam_service::ConnectorDaemon daemon(
        {.dataFolder = folder + "/data", .runtimeDirectory = folder + "/run", .group = {}});
    asio::posix::stream_descriptor input(daemon.Context(), ::dup(orders));
    char byte = 0;
    std::function<void()> next = [&] {
        asio::async_read(input, asio::buffer(&byte, 1), [&](const std::error_code& error, auto) {
            if (error) {
                daemon.Stop();
                return;
            }
            stamps.decided = NowMicroseconds();
            daemon.ClientNotices().Tell(zam_vocabulary::NoticeKind::SettingsSynced);
            next();
        });
    };
    next();
    SendAll(orders, reinterpret_cast<const unsigned char*>("r"), 1);
    daemon.Run();
}

class Anchor final : public zam_connector::IPolicyObserver {
public:
    int OnChange(const std::pair<std::uint64_t, zam_connector::ZamPolicy>& /*policy*/) override {
        return 0;
    }
};

class SyncedObserver final : public zam_connector::ISettingsSyncedObserver {
public:
    SyncedObserver(Stamps& stamps, Told& told) : stamps_(stamps), told_(told) {}

    int OnChange(const std::uint64_t& /*hash*/) override {
        stamps_.told = NowMicroseconds();
        told_.Set();
        return 0;
    }

private:
    Stamps& stamps_;
    Told& told_;
};

/// The same messages between threads laid out the same way: one of the server's for both
/// connections, and two of the client's with a hand-over.
void RunBareServer(int orders, int waits, int fetches, Stamps& stamps) {
    std::array<unsigned char, 256> bytes{};
    std::array<pollfd, 3> polled = {
        {{orders, POLLIN, 0}, {waits, POLLIN, 0}, {fetches, POLLIN, 0}}};
    while (::poll(polled.data(), polled.size(), -1) > 0) {
        if (polled[0].revents != 0) {
            if (!ReceiveAll(orders, bytes.data(), 1)) {
                return;
            }
            stamps.decided = NowMicroseconds();
            SendAll(waits, bytes.data(), kWait.responseBytes);
        }
        if (polled[1].revents != 0 && !ReceiveAll(waits, bytes.data(), kWait.requestBytes)) {
            return;
        }
        if (polled[2].revents != 0) {
            if (!ReceiveAll(fetches, bytes.data(), kFetch.requestBytes)) {
                return;
            }
            SendAll(fetches, bytes.data(), kFetch.responseBytes);
        }
    }
}

class BareClient {
public:
    BareClient(int waits, int fetches, Stamps& stamps, Told& told)
        : waits_(waits),
          fetches_(fetches),
          waiter_([this, waits] { RunWaits(waits); }),
          handler_([this, fetches, &stamps, &told] { RunFetches(fetches, stamps, told); }) {}

    ~BareClient() {
        ::shutdown(waits_, SHUT_RDWR);
        ::shutdown(fetches_, SHUT_RDWR);
        waiter_.join();
        handler_.join();
    }

private:
    void RunWaits(int waits) {
        std::array<unsigned char, 256> bytes{};
        bool goesOn = true;
        while (goesOn) {
            goesOn = SendAll(waits, bytes.data(), kWait.requestBytes) &&
                     ReceiveAll(waits, bytes.data(), kWait.responseBytes);
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                (goesOn ? handed_ : ended_) = true;
            }
            changed_.notify_one();
        }
    }

    void RunFetches(int fetches, Stamps& stamps, Told& told) {
        std::array<unsigned char, 256> bytes{};
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(mutex_);
                changed_.wait(lock, [this] { return handed_ || ended_; });
                if (ended_) {
                    return;
                }
                handed_ = false;
            }
            if (!SendAll(fetches, bytes.data(), kFetch.requestBytes) ||
                !ReceiveAll(fetches, bytes.data(), kFetch.responseBytes)) {
                return;
            }
            stamps.told = NowMicroseconds();
            told.Set();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool handed_ = false;
    bool ended_ = false;
    const int waits_;
    const int fetches_;
    std::thread waiter_;
    std::thread handler_;
};

class Folder {
public:
    Folder() {
        std::string path = (std::filesystem::temp_directory_path() / "zam_bench_XXXXXX").string();
        if (::mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = path;
        std::filesystem::create_directory(path_ + "/data");
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    const std::string& Path() const noexcept { return path_; }

private:
    std::string path_;
};

}  // namespace

void MeasureNotices(Report& report) {
    const Folder folder;
    const SharedStamps stamps;
    const SharedStamps bareStamps;
    Told told;
    Told bareTold;
    const unsigned char order = 1;

    SocketPair bareOrders = MakeSocketPair();
    SocketPair waits = MakeSocketPair();
    SocketPair fetches = MakeSocketPair();
    const Child bareServer([&] {
        bareOrders.client.Reset();
        waits.client.Reset();
        fetches.client.Reset();
        RunBareServer(bareOrders.server.Get(), waits.server.Get(), fetches.server.Get(),
                      *bareStamps);
    });
    bareOrders.server.Reset();
    waits.server.Reset();
    fetches.server.Reset();

    SocketPair orders = MakeSocketPair();
    const Child service([&] {
        orders.client.Reset();
        RunService(folder.Path(), orders.server.Get(), *stamps);
    });
    orders.server.Reset();
    unsigned char ready = 0;
    if (!ReceiveAll(orders.client.Get(), &ready, 1)) {
        throw std::runtime_error("the service does not start");
    }
    ::setenv("ZAM_RUNTIME_DIR", (folder.Path() + "/run").c_str(), 1);

    const auto observer = std::make_shared<SyncedObserver>(*stamps, told);
    const auto anchor = std::make_shared<Anchor>();
    const auto subscribers = std::make_unique<zam_connector::test::RealSubscribers>();
    zam_connector::SubscriptionCookie cookie;
    if (subscribers->Data()->SubscribeOnPolicyChange(anchor, cookie) != 0 ||
        subscribers->Data()->SubscribeOnSettingsSynced(observer, cookie) != 0) {
        throw std::runtime_error("no subscription");
    }
    const BareClient bareClient(waits.client.Get(), fetches.client.Get(), *bareStamps, bareTold);

    for (const Placement& placement : kPinnedPlacements) {
        Pin(0, placement.client);
        Pin(service.Pid(), placement.server);
        Pin(bareServer.Pid(), placement.server);
        std::array<std::vector<double>, 4> times;
        for (int round = 0; round < kRounds; ++round) {
            const Latency bare = Measure(*bareStamps, bareTold,
                                         [&] { SendAll(bareOrders.client.Get(), &order, 1); });
            const Latency library =
                Measure(*stamps, told, [&] { SendAll(orders.client.Get(), &order, 1); });
            times[0].push_back(library.p50);
            times[1].push_back(bare.p50);
            times[2].push_back(library.p99);
            times[3].push_back(bare.p99);
        }
        const std::string where = placement.name;
        report.Add({"notice.latency", where + ".p50", "us", Median(times[0]), Median(times[1])});
        report.Add({"notice.latency", where + ".p99", "us", Median(times[2]), Median(times[3])});
    }
    Pin(0, -1);
}

}  // namespace zam_bench
