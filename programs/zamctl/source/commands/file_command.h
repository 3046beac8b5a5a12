#pragma once

#include <optional>
#include <string>

#include "command.h"

namespace zamctl {

/// Prints the description of a file of the server.
class FileInfoCommand final : public Command {
public:
    void Declare(Options& options) override;
    void Run(Context& context) override;

private:
    std::string path_;
};

/// Fetches a file of the server. What has come of it is kept when that fails, and is gone on with
/// by the next run.
class FileGetCommand final : public Command {
public:
    void Declare(Options& options) override;
    void Run(Context& context) override;

private:
    std::string Target() const;

    std::string path_;
    std::optional<std::string> output_;  ///< none: the last part of the path
};

}  // namespace zamctl
