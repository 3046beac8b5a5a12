#include "command_set.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <utility>

#include "values.h"

namespace zamctl {

Offerer OfferWords(std::vector<std::string> words) {
    return [words = std::move(words)](Context& /*context*/, const std::string& /*begun*/) {
        return Offer{.words = words};
    };
}

Offerer OfferFiles() {
    return [](Context& /*context*/, const std::string& /*begun*/) {
        return Offer{.kind = Offer::Kind::Files};
    };
}

Option Option::Required() const {
    option_->required();
    return *this;
}

Option Option::Needs(const Option& other) const {
    option_->needs(other.option_);
    return *this;
}

Option Option::Excludes(const Option& other) const {
    option_->excludes(other.option_);
    return *this;
}

Option Option::Offers(Offerer offerer) const {
    declared_->offers[option_] = std::move(offerer);
    return *this;
}

Option Options::Flag(const std::string& names, bool& target, const std::string& description) {
    return {*command_.add_flag(names, target, description), declared_};
}

Option Options::Value(const std::string& names, const char* type, const Store& store,
                      const std::string& description) {
    CLI::Option* const option =
        command_.add_option_function<std::string>(names, store, description);
    return {*option->type_name(type), declared_};
}

Option Options::Text(const std::string& names, const char* type, std::string& target,
                     const std::string& description) {
    return Value(
        names, type, [&target](const std::string& text) { target = text; }, description);
}

Option Options::Values(const std::string& name, const char* type, Store store,
                       const std::string& description) {
    const auto storeAll = [store = std::move(store)](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            store(text);
        }
    };
    CLI::Option* const option =
        command_.add_option_function<std::vector<std::string>>(name, storeAll, description);
    return {*option->type_name(type), declared_};
}

Option Options::File(const std::string& names, const Store& store, const std::string& description) {
    return Value(names, "FILE", store, description).Offers(OfferFiles());
}

Option Options::Number(const std::string& name, const char* type, Range range,
                       std::function<void(std::uint64_t)> store, const std::string& description) {
    const auto parse = [name, range, store = std::move(store)](const std::string& text) {
        store(ParseInRange(name, text, range.least, range.most));
    };
    return Value(name, type, parse,
                 fmt::format("{}, {} to {}", description, range.least, range.most));
}

CLI::App& CommandSet::Word(const std::string& name, const std::string& description,
                           const std::shared_ptr<Command>& command) {
    CLI::App& word = *parent_.add_subcommand(name, description);
    // The global options may stand behind a command's name as well as before it.
    word.fallthrough();
    if (command != nullptr) {
        declared_.commands[&word] = command;
        Options options(word, declared_);
        command->Declare(options);
    }
    return word;
}

void CommandSet::Add(const std::string& name, const std::string& description,
                     const std::shared_ptr<Command>& command) {
    Word(name, description, command);
}

CommandSet CommandSet::Group(const std::string& name, const std::string& description,
                             const std::shared_ptr<Command>& bare) {
    CLI::App& word = Word(name, description, bare);
    word.require_subcommand(bare == nullptr ? 1 : 0, 1);
    return {word, declared_};
}

}  // namespace zamctl
