#pragma once

#include <sys/types.h>

#include <chrono>
#include <iosfwd>
#include <optional>
#include <string>

namespace zam_service {

/// What `zam_connectord` was asked to do.
struct DaemonOptions {
    std::string dataFolder;        ///< empty: the built-in sample in a private folder
    std::string initFolder;        ///< not empty: write the sample there, and no more
    std::string runtimeDirectory;  ///< where the socket goes
    std::optional<gid_t> group;    ///< whose members are served besides the own user and root
    std::optional<std::chrono::microseconds> spin;  ///< longest look for a call in shared memory
    int readyFd = -1;                               ///< told when calls are accepted; -1: nobody
};

/// Exit statuses of `zam_connectord`.
enum ExitStatus : int {
    kExitDone = 0,
    kExitUsage = 1,    ///< wrong options
    kExitFailure = 2,  ///< could not start
};

/// Reads the command line. Empty when there is nothing more to do: help or version went to `out`,
/// or what is wrong and what to do instead to `err`; `status` is the exit status then.
std::optional<DaemonOptions> ParseOptions(int argc, const char* const* argv, std::ostream& out,
                                          std::ostream& err, int& status);

}  // namespace zam_service
