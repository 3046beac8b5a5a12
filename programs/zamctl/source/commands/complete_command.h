#pragma once

#include <string>
#include <utility>
#include <vector>

#include "command_set.h"

namespace zamctl {

/// Prints what the last word of a command line may become, for a shell: in the first line what kind
/// of words they are (`words`, `parts` or `files`), then one in each line. Says nothing of what
/// goes wrong: nobody who presses a key wants to read it.
class CompleteCommand final : public Command {
public:
    /// Longest time that somebody who presses a key is kept waiting.
    static constexpr std::chrono::milliseconds kLimit{1000};

    /// `words` stand behind the program's name; the last may be empty or begun. As in a shell, a
    /// backslash takes the meaning of the character behind it away.
    explicit CompleteCommand(std::vector<std::string> words) : words_(std::move(words)) {}

    bool HasMessages() const override { return false; }
    void Run(Context& context) override;

private:
    std::vector<std::string> words_;
};

}  // namespace zamctl
