#pragma once

#include <optional>
#include <string>
#include <utility>

#include "command.h"
#include "data_answers.h"

namespace zamctl {

/// Prints what the server has delivered, or writes it to a file.
class DataCommand final : public Command {
public:
    struct Options {
        std::optional<std::string> output;  ///< a file in place of standard output; "-" for none
        zuv::Path path;
        bool treeOnly = false;
    };

    DataCommand(DataFetch fetch, Options options) : fetch_(fetch), options_(std::move(options)) {}

    /// Throws `UsageError` before anything is asked for when the file cannot be written.
    void Run(Context& context) override;

private:
    DataFetch fetch_;
    Options options_;
};

/// Prints the hash of what the server has delivered.
class HashCommand final : public Command {
public:
    using Ask = int (zam_connector::IZamDataProvider::*)(unsigned long&) noexcept;

    /// `action` completes "cannot ..." and is of static storage.
    HashCommand(const char* action, Ask ask) : action_(action), ask_(ask) {}

    void Run(Context& context) override;

private:
    const char* action_;
    Ask ask_;
};

}  // namespace zamctl
