#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

#include "ping_pong.h"
#include "process.h"
#include "service.h"
#include "suites.h"
#include "way.h"

namespace zam_bench {
namespace {

constexpr auto kHot = std::chrono::seconds(1);
/// Longer than memory that is not used any more is kept, 10 s: that it goes is the last thing that
/// happens.
constexpr auto kSettling = std::chrono::seconds(13);
constexpr auto kWatched = std::chrono::seconds(10);

/// How often the threads of a process have gone to sleep, and so been woken.
std::uint64_t SleepsOf(pid_t process) {
    constexpr char kField[] = "voluntary_ctxt_switches:";
    std::uint64_t sleeps = 0;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream status(task.path() / "status");
        std::string word;
        while (status >> word && word != kField) {
        }
        std::uint64_t count = 0;
        if (!(status >> count)) {
            throw std::runtime_error("a process that idles has ended");
        }
        sleeps += count;
    }
    return sleeps;
}

/// A service and a client of it that has called without a pause and does not any more.
class IdlePair {
public:
    explicit IdlePair(Way way)
        : service_([way] {
              const auto environment = Take(way);
              return Service();
          }()),
          sockets_(MakeSocketPair()),
          client_([this, way] {
              const auto environment = Take(way);
              sockets_.client.Reset();
              Call();
              constexpr Exchange kEnd{1, 1};
              Ping(sockets_.server.Get(), kEnd);  // waits for an answer that does not come
          }) {
        sockets_.server.Reset();
    }

    /// Returns when it idles.
    void AwaitIdleness() const {
        unsigned char byte = 0;
        if (!ReceiveAll(sockets_.client.Get(), &byte, 1)) {
            throw std::runtime_error("a client ended instead of idling");
        }
    }

    std::uint64_t Sleeps() const { return SleepsOf(service_.Pid()) + SleepsOf(client_.Pid()); }

private:
    /// The process stays connected, as `connection` is of static storage.
    void Call() const {
        service_.PointClients();
        static zam_connector::test::RealConnection connection;
        const auto end = std::chrono::steady_clock::now() + kHot;
        while (std::chrono::steady_clock::now() < end) {
            GetState(connection);
        }
    }

    Service service_;
    SocketPair sockets_;
    Child client_;
};

}  // namespace

void MeasureIdleness(Report& report) {
    const IdlePair free(Way::Free);
    const IdlePair socket(Way::Socket);
    free.AwaitIdleness();
    socket.AwaitIdleness();
    std::this_thread::sleep_for(kSettling);
    const std::uint64_t freeBefore = free.Sleeps();
    const std::uint64_t socketBefore = socket.Sleeps();
    std::this_thread::sleep_for(kWatched);
    const auto count = [](std::uint64_t sleeps) { return static_cast<double>(sleeps); };
    report.Add({"call.idle", "wakeups", "in 10 s", count(free.Sleeps() - freeBefore)});
    report.Add({"call.idle", "socket.wakeups", "in 10 s", count(socket.Sleeps() - socketBefore)});
}

}  // namespace zam_bench
