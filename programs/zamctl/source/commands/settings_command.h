#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command.h"
#include "settings_changes.h"

namespace zamctl {

/// Prints the settings.
class SettingsGetCommand final : public Command {
public:
    void Run(Context& context) override;
};

/// Reads the settings, changes some, writes them and prints what differs. What others write between
/// the reading and the writing is lost.
class SettingsSetCommand final : public Command {
public:
    void Declare(Options& options) override;

    /// Throws `UsageError` before anything is sent when there is nothing to set or the file is no
    /// good.
    void Run(Context& context) override;

private:
    std::vector<std::string> assignments_;  ///< NAME=VALUE, each name once
    std::optional<std::string> file_;       ///< read before the assignments; "-" for stdin
};

}  // namespace zamctl
