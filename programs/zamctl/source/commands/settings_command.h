#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "command.h"
#include "settings_fields.h"

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
    struct Options {
        std::vector<std::string> assignments;  ///< NAME=VALUE, each name once
        std::optional<std::string> file;       ///< read before the assignments; "-" for stdin
    };

    /// Throws `UsageError` when there is nothing to set, and for every wrong assignment.
    explicit SettingsSetCommand(const Options& options);

    /// Throws `UsageError` before anything is sent when the file is no good.
    void Run(Context& context) override;

private:
    std::vector<SettingsChange> assignments_;
    std::optional<std::string> file_;
};

}  // namespace zamctl
