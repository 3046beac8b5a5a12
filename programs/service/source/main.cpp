#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <asio/signal_set.hpp>
#include <exception>
#include <iostream>
#include <optional>
#include <sstream>

#include "daemon/connector_daemon.h"
#include "daemon/daemon_options.h"
#include "daemon/service_manager.h"
#include "data/sample_data.h"
#include "descriptors/standard_descriptors.h"
#include "zam_platform/server/service_log.h"
#include "zam_platform/unique_fd.h"

namespace {

using zam_platform::SayOnStderr;
using zam_service::DaemonOptions;

sigset_t EndSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    return signals;
}

/// The number goes to no client's connection: when the service is killed, the kernel ends its
/// descriptors from the greatest number down and takes some 15 ms for those that watch folders, so
/// that a client whose connection has a lower one would know of the end that much later.
void CloseAndKeepNumber(int descriptor) {
    const zam_platform::UniqueFd nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!nothing || ::dup3(nothing.Get(), descriptor, O_CLOEXEC) < 0) {
        ::close(descriptor);
    }
}

void TellReady(const DaemonOptions& options, const zam_service::ConnectorDaemon& daemon) {
    SayOnStderr(fmt::format("zam_connectord: serving {} on {}\n", daemon.DataFolderPath(),
                            daemon.SocketPath()));
    if (options.readyFd >= 0) {
        if (::write(options.readyFd, "\n", 1) != 1) {
            SayOnStderr("zam_connectord: nobody listens on --ready-fd\n");
        }
        CloseAndKeepNumber(options.readyFd);
    }
}

void Init(const std::string& folder) {
    zam_service::WriteSample(folder);
    for (const zam_service::SampleFile& file : zam_service::SampleFiles()) {
        std::cout << fmt::format("{}/{}\n", folder, file.name);
    }
    std::cout << std::flush;
}

/// Every client needs a descriptor for each of its calls, and the usual soft limit is far below
/// what a machine allows. Failing leaves the limit as it is, which the quotas follow.
void RaiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void Serve(const DaemonOptions& options) {
    RaiseDescriptorLimit();
    // An end that is asked for early waits until there is a loop that can end in order.
    const sigset_t endSignals = EndSignals();
    ::pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    std::optional<zam_service::TemporarySample> sample;
    if (options.dataFolder.empty()) {
        sample.emplace();
    }
    zam_service::ConnectorDaemon daemon({.dataFolder = sample ? sample->Path() : options.dataFolder,
                                         .runtimeDirectory = options.runtimeDirectory,
                                         .group = options.group,
                                         .spin = options.spin});
    zam_service::ServiceManager manager(daemon.Context());
    const zam_platform::ServiceLog log(daemon.Context());
    asio::signal_set signals(daemon.Context(), SIGINT, SIGTERM);
    signals.async_wait([&daemon, &manager](const std::error_code& error, int /*signal*/) {
        if (!error) {
            manager.TellStopping();
            daemon.Stop();
        }
    });
    ::pthread_sigmask(SIG_UNBLOCK, &endSignals, nullptr);
    TellReady(options, daemon);
    manager.TellReady();
    daemon.Run();
}

}  // namespace

int main(int argc, char** argv) {
    zam_descriptors::OccupyStandardDescriptors();
    // A client that goes away is an error of its connection, not the end of the service.
    static_cast<void>(::signal(SIGPIPE, SIG_IGN));
    try {
        int status = zam_service::kExitDone;
        std::ostringstream complaints;
        const auto options = zam_service::ParseOptions(argc, argv, std::cout, complaints, status);
        if (!options) {
            SayOnStderr(complaints.str());
            return status;
        }
        if (!options->initFolder.empty()) {
            Init(options->initFolder);
        } else {
            Serve(*options);
        }
        return zam_service::kExitDone;
    } catch (const std::exception& exception) {
        SayOnStderr(fmt::format("zam_connectord: {}\n", exception.what()));
        return zam_service::kExitFailure;
    }
}
