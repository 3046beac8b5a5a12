#pragma once

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

}  // namespace zam_connector::test
