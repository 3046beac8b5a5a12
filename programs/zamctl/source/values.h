#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Values as they are given on the command line.

namespace zamctl {

/// Digits only, up to 64 bits; empty for anything else.
std::optional<std::uint64_t> ParseUnsigned(std::string_view text);

/// A whole number from `least` to `most`. Throws `UsageError`, which names `name`, the text and the
/// range.
std::uint64_t ParseInRange(std::string_view name, std::string_view text, std::uint64_t least,
                           std::uint64_t most);

/// Longest time that a command can be told to wait.
inline constexpr std::chrono::seconds kLongestTimeout{86400};

/// Seconds from 0 to `kLongestTimeout`, with up to three decimals. Throws `UsageError` as above.
std::chrono::milliseconds ParseSeconds(std::string_view name, std::string_view text);

/// Throws `UsageError`, which does not show the text, unless it has the form
/// `http://[user:password@]host:port`.
void CheckProxyUrl(std::string_view name, std::string_view url);

/// The text with whatever stands before an '@' of a URL in it replaced, for messages about
/// arguments that nobody knows the meaning of.
std::string WithoutCredentials(std::string_view text);

}  // namespace zamctl
