#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

/// What commands say of themselves: their names, their options, and what may stand there. The
/// parser, the help and the completion all live on this, and nothing beside it knows a command.

namespace zamctl {

/// What the options say that every command takes.
struct Globals {
    Output::Format format;
    bool verbose = false;
    std::optional<std::chrono::milliseconds> timeout{};  ///< for the command as a whole
};

/// What may stand at a place of a command line.
struct Offer {
    enum class Kind {
        Words,
        Parts,  ///< words that end in '/' or '=' can go on
        Files,  ///< names of files here, which the shell knows best; without words
    };
    Kind kind = Kind::Words;
    std::vector<std::string> words{};
};

/// Gives what may stand where `begun` stands now. What does not begin with that is left out later.
/// May ask the service, and may throw.
using Offerer = std::function<Offer(Context& context, const std::string& begun)>;

/// An offer that is always the same.
Offerer OfferWords(std::vector<std::string> words);
/// Names of files, where the shell completes better than this program could.
Offerer OfferFiles();

/// What has been declared, beside what the parser keeps.
struct Declared {
    std::map<const CLI::App*, std::shared_ptr<Command>> commands;
    std::map<const CLI::Option*, Offerer> offers;
};

/// An option or a positional argument that has been declared. A handle, cheap to copy; each
/// function gives it back, so that calls can be joined. What it refers to belongs to the parser.
class Option {
public:
    Option(CLI::Option& option, Declared& declared) : option_(&option), declared_(&declared) {}

    /// The command line is refused without it.
    Option Required() const;
    /// It is refused unless the other one is given too.
    Option Needs(const Option& other) const;
    /// It is refused together with the other one.
    Option Excludes(const Option& other) const;
    /// What completion offers as its value.
    Option Offers(Offerer offerer) const;

private:
    CLI::Option* option_;
    Declared* declared_;
};

/// Both bounds are allowed.
struct Range {
    std::uint64_t least;
    std::uint64_t most;
};

/// Takes the text of an option's value. Throws `UsageError` when it is no good.
using Store = std::function<void(const std::string& text)>;

/// Declares the options of one command. What is referred to must outlive the parse. Names without
/// a dash are those of positional arguments. `type` is what the help calls a value.
class Options {
public:
    Options(CLI::App& command, Declared& declared) : command_(command), declared_(declared) {}

    /// Sets `target` when it is given.
    Option Flag(const std::string& names, bool& target, const std::string& description);
    /// One value, which `store` checks and takes.
    Option Value(const std::string& names, const char* type, const Store& store,
                 const std::string& description);
    /// One value that may be any text.
    Option Text(const std::string& names, const char* type, std::string& target,
                const std::string& description);

    /// As many values as there are.
    Option Values(const std::string& name, const char* type, Store store,
                  const std::string& description);

    /// A file's name. An empty name is taken as such: whoever opens it refuses it.
    Option File(const std::string& names, const Store& store, const std::string& description);

    /// A whole number within the range, which the help tells.
    Option Number(const std::string& name, const char* type, Range range,
                  std::function<void(std::uint64_t)> store, const std::string& description);

private:
    CLI::App& command_;
    Declared& declared_;
};

/// The commands at one level of words.
class CommandSet {
public:
    CommandSet(CLI::App& parent, Declared& declared) : parent_(parent), declared_(declared) {}

    /// Adds a command; it declares its options itself.
    void Add(const std::string& name, const std::string& description,
             const std::shared_ptr<Command>& command);

    /// Adds a word behind which others stand. Without them it is `bare`; without that one of them
    /// must be there.
    CommandSet Group(const std::string& name, const std::string& description,
                     const std::shared_ptr<Command>& bare = nullptr);

private:
    CLI::App& Word(const std::string& name, const std::string& description,
                   const std::shared_ptr<Command>& command);

    CLI::App& parent_;
    Declared& declared_;
};

}  // namespace zamctl
