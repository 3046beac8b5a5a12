#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace zam_connector::test {

/// What a program that has ended left behind.
struct ProgramResult {
    int status = 0;  ///< exit status, or 128 and the number of the signal that ended it
    std::string out;
    std::string err;
};

struct ProgramOptions {
    std::string input = {};  ///< standard input
    /// `NAME=value` variables in place of this process's own, besides what sanitizers need.
    std::optional<std::vector<std::string>> environment = {};
};

/// Runs a program to its end; kills it after a minute. Throws `std::system_error` when it cannot be
/// run.
ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const ProgramOptions& options = {});

/// Pointers into `texts`, and the null pointer that ends arguments and environments.
std::vector<char*> Pointers(std::vector<std::string>& texts);

/// The environment, and the variables that sanitizers need out of this process's own.
std::vector<std::string> WithSanitizerOptions(std::vector<std::string> environment);

/// Waits for the end of a child process: its status as in `ProgramResult`. Kills it after a minute.
int WaitFor(pid_t process);

}  // namespace zam_connector::test
