#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "command_set.h"
#include "data_answers.h"

namespace zamctl {

/// Prints what the server has delivered, or writes it to a file.
class DataCommand final : public Command {
public:
    /// `offerPaths` is that of data which is a tree, and null for other data.
    using OfferPaths = Offer (*)(Context& context, const std::string& begun);

    DataCommand(DataFetch fetch, OfferPaths offerPaths) : fetch_(fetch), offerPaths_(offerPaths) {}

    void Declare(Options& options) override;

    /// Throws `UsageError` before anything is asked for when the file cannot be written.
    void Run(Context& context) override;

    /// The first option that the command line has; null when it has none.
    const char* GivenOption() const;

private:
    DataFetch fetch_;
    OfferPaths offerPaths_;
    std::optional<std::string> output_;  ///< a file in place of standard output; "-" for none
    std::optional<zuv::Path> path_;
    bool treeOnly_ = false;
};

/// Prints the hash of what the server has delivered.
class HashCommand final : public Command {
public:
    using Ask = int (zam_connector::IZamDataProvider::*)(unsigned long&) noexcept;

    /// `action` completes "cannot ..." and is of static storage. `data` is the command whose word
    /// stands before, with what options it was given.
    HashCommand(const char* action, Ask ask, std::shared_ptr<const DataCommand> data)
        : action_(action), ask_(ask), data_(std::move(data)) {}

    /// Throws `UsageError` when options ask for a form of the data: they mean nothing for its hash.
    void Run(Context& context) override;

private:
    const char* action_;
    Ask ask_;
    std::shared_ptr<const DataCommand> data_;
};

}  // namespace zamctl
