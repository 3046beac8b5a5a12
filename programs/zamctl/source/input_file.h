#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

namespace zamctl {

/// What was read, and what it is called in messages.
struct Input {
    std::string name;
    std::string text;
};

/// Reads a file, or `in` when `file` is "-", whole. `argument` is what the file was given as, for
/// messages. Throws `UsageError` when it cannot be read or has more than `mostBytes`.
Input ReadInput(const std::string& argument, const std::string& file, std::istream& in,
                std::size_t mostBytes);

}  // namespace zamctl
