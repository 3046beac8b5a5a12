#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "command.h"

namespace zamctl {

/// Prints the description of a file of the server.
class FileInfoCommand final : public Command {
public:
    explicit FileInfoCommand(std::string path) : path_(std::move(path)) {}

    void Run(Context& context) override;

private:
    std::string path_;
};

/// Fetches a file of the server. What has come of it is kept when that fails, and is gone on with
/// by the next run.
class FileGetCommand final : public Command {
public:
    struct Options {
        std::string path;
        std::optional<std::string> output;  ///< none: the last part of `path`
        std::optional<std::chrono::milliseconds> timeout;
    };

    explicit FileGetCommand(Options options) : options_(std::move(options)) {}

    void Run(Context& context) override;

private:
    Options options_;
};

}  // namespace zamctl
