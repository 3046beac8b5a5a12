#include "commands/complete_command.h"

#include <algorithm>
#include <exception>
#include <string_view>

#include "command_tree.h"
#include "printable.h"

namespace zamctl {
namespace {

/// Whether a byte means nothing but itself to a shell; bytes beyond ASCII are parts of letters.
bool IsPlain(char character) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,+@%";
    return static_cast<unsigned char>(character) >= 0x80U ||
           kPlain.find(character) != std::string_view::npos;
}

/// As a shell reads it back. Names of files and keys are others' texts: what they hold must not
/// become a command.
std::string Escaped(std::string_view word) {
    std::string escaped;
    for (const char character : word) {
        escaped += IsPlain(character) ? "" : "\\";
        escaped += character;
    }
    return escaped;
}

std::string Unescaped(std::string_view word) {
    std::string plain;
    for (std::size_t at = 0; at < word.size(); ++at) {
        at += word[at] == '\\' && at + 1 < word.size() ? 1U : 0U;
        plain += word[at];
    }
    return plain;
}

/// No terminal is given what would steer it, and the lines of the answer stay lines.
bool CanBeShown(const std::string& word) {
    return PrintableLine(word) == word;
}

/// A place of a command line, and what is known of the words before it.
class Place {
public:
    explicit Place(const CLI::App& app) : command_(&app) {}

    /// Goes on behind a word.
    void Pass(const std::string& word) {
        if (option_ != nullptr) {
            option_ = nullptr;
        } else if (word == "--") {
            onlyPositionals_ = true;
        } else if (word != "-" && IsOption(word)) {
            const CLI::Option* const option = FindOption(*command_, word);
            option_ = option != nullptr && TakesValue(*option) ? option : nullptr;
        } else if (const CLI::App* const command = CommandOf(word)) {
            command_ = command;
        } else {
            ++positionals_;
        }
    }

    /// What may stand here. `begun` is the word as it stands now; `head` becomes the part of it
    /// that is no part of the words offered.
    Offer OfferHere(const Declared& declared, Context& context, const std::string& begun,
                    std::string& head) const {
        const CLI::Option* option = option_;
        if (option == nullptr && IsOption(begun)) {
            const std::size_t equals = begun.find('=');
            if (equals == std::string::npos) {
                return {.words = OptionNames(*command_, true)};
            }
            head = begun.substr(0, equals + 1);
            option = FindOption(*command_, begun.substr(0, equals));
        } else if (option == nullptr) {
            option = Positional();
        }
        Offer offer;
        if (const auto found = declared.offers.find(option); found != declared.offers.end()) {
            offer = found->second(context, Unescaped(begun.substr(head.size())));
        }
        if (option_ == nullptr && head.empty() && positionals_ == 0 && !onlyPositionals_) {
            const std::vector<std::string> names = CommandNames(*command_);
            offer.words.insert(offer.words.end(), names.begin(), names.end());
        }
        return offer;
    }

private:
    bool IsOption(const std::string& word) const {
        return !onlyPositionals_ && word.starts_with('-');
    }

    const CLI::App* CommandOf(const std::string& word) const {
        const std::vector<std::string> names = CommandNames(*command_);
        const bool isCommand = !onlyPositionals_ && positionals_ == 0 &&
                               std::find(names.begin(), names.end(), word) != names.end();
        return isCommand ? command_->get_subcommand(word) : nullptr;
    }

    /// The positional argument that stands here; null when there is no more.
    const CLI::Option* Positional() const {
        int before = positionals_;
        for (const CLI::Option* const option : command_->get_options()) {
            if (option->get_positional()) {
                before -= option->get_items_expected_max();
                if (before < 0) {
                    return option;
                }
            }
        }
        return nullptr;
    }

    const CLI::App* command_;
    const CLI::Option* option_ = nullptr;  ///< whose value comes next
    int positionals_ = 0;
    bool onlyPositionals_ = false;
};

/// The answer to a command line; empty when nothing is known of its last word.
std::string Complete(Context& context, const std::vector<std::string>& words) {
    Globals globals;
    const CommandTree tree(globals);
    Place place(tree.app);
    std::for_each(words.begin(), words.end() - 1,
                  [&place](const std::string& word) { place.Pass(word); });
    const std::string& begun = words.back();
    std::string head;
    const Offer offer = place.OfferHere(tree.declared, context, begun, head);
    if (offer.kind == Offer::Kind::Files) {
        return "files\n";
    }
    const bool isParts = offer.kind == Offer::Kind::Parts;
    std::string lines;
    for (const std::string& word : offer.words) {
        const std::string whole = head + Escaped(word);
        if (whole.starts_with(begun) && CanBeShown(word)) {
            const bool goesOn = word.ends_with('/') || word.ends_with('=');
            lines += whole + (isParts && !goesOn ? " \n" : "\n");
        }
    }
    return lines.empty() ? lines : (isParts ? "parts\n" : "words\n") + lines;
}

}  // namespace

void CompleteCommand::Run(Context& context) {
    if (words_.empty()) {
        return;
    }
    // A service that takes the connection and never answers is left.
    context.clock.LimitRun(kLimit, "", kExitDone);
    std::string answer;
    try {
        answer = Complete(context, words_);
    } catch (const std::exception&) {
        // No service, or one that refuses: there is nothing to offer.
    }
    context.output.Content(answer);
}

}  // namespace zamctl
