#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "process.h"
#include "service.h"
#include "suites.h"
#include "support/real_subscribers.h"
#include "support/temporary_folder.h"
#include "zam_connector/zam_connector.h"

namespace zam_bench {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kAway{10};

/// What a client does over and over while no service is there. `prepare` connects it to one before.
struct Retry {
    const char* name;
    std::function<void()> prepare;
    std::function<void()> once;
};

struct Cost {
    double cpuPercent;  ///< of a core
    double lines;       ///< on standard error, in a second
};

std::size_t LinesIn(const std::string& path) {
    std::ifstream file(path);
    std::size_t lines = 0;
    for (std::string line; std::getline(file, line);) {
        ++lines;
    }
    return lines;
}

/// In a process of its own, with the default logger.
Cost Measure(const Retry& retry) {
    void* const shared =
        ::mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::runtime_error("no shared memory");
    }
    auto* const cpu = new (shared) double(0);
    const zam_test::TemporaryFolder folder;
    const std::string log = folder.Path("stderr");
    std::optional<Service> service(std::in_place);
    int ready[2];
    int go[2];
    if (::pipe(ready) != 0 || ::pipe(go) != 0) {
        throw std::runtime_error("no pipe");
    }
    Child child([&] {
        const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        ::dup2(file, STDERR_FILENO);
        retry.prepare();
        char byte = 0;
        if (::write(ready[1], &byte, 1) != 1 || ::read(go[0], &byte, 1) != 1) {
            throw std::runtime_error("nobody waits");
        }
        const double before = CpuMicroseconds(0);
        for (const auto end = steady_clock::now() + kAway; steady_clock::now() < end;) {
            retry.once();
        }
        *cpu = CpuMicroseconds(0) - before;
        ::_exit(0);
    });
    char byte = 0;
    if (::read(ready[0], &byte, 1) != 1) {
        throw std::runtime_error("the client did not connect");
    }
    service.reset();
    const std::size_t linesBefore = LinesIn(log);
    if (::write(go[1], &byte, 1) != 1) {
        throw std::runtime_error("the client has gone");
    }
    child.Join();
    for (const int end : {ready[0], ready[1], go[0], go[1]}) {
        ::close(end);
    }
    const auto seconds = static_cast<double>(kAway.count());
    const Cost cost{*cpu / (seconds * 1e6) * 100,
                    static_cast<double>(LinesIn(log) - linesBefore) / seconds};
    ::munmap(shared, sizeof(double));
    return cost;
}

class Silent final : public qor::observer::IChangeObserver<zam_connector::ZamConnectorState, int> {
    int OnChange(const zam_connector::ZamConnectorState& /*state*/) override { return 0; }
};

}  // namespace

void MeasureRetries(Report& report) {
    std::optional<zam_connector::test::RealConnection> connection;
    std::optional<zam_connector::test::RealSubscribers> subscribers;
    const auto observer = std::make_shared<Silent>();
    const Retry retries[] = {
        {"calls", [&] { connection.emplace(); },
         [&] {
             zam_connector::ZamConnectorState state{};
             connection->Controller().GetState(state);
         }},
        {"connectors", [] {},
         [] {
             std::shared_ptr<zam_connector::IZamConnector> connector;
             zam_connector::CreateZamConnector(connector, {});
         }},
        {"subscription",
         [&] {
             zam_connector::SubscriptionCookie cookie;
             subscribers.emplace();
             subscribers->States()->SubscribeOnStateChange(observer, cookie);
         },
         [] { ::usleep(100'000); }},
    };
    for (const Retry& retry : retries) {
        const Cost cost = Measure(retry);
        const std::string name = retry.name;
        // The floors are what they are to stay below.
        report.Add({"retry.away", name + ".cpu", "%", cost.cpuPercent, 1.0});
        report.Add({"retry.away", name + ".lines", "1/s", cost.lines, 1.0});
    }
}

}  // namespace zam_bench
