#include "values.h"

#include <fmt/format.h>

#include <charconv>

#include "failure.h"

namespace zamctl {
namespace {

constexpr std::uint64_t kMostPort = 65535;

/// Fractions of a second, "5" of "0.5", as milliseconds; empty when there are too many or no
/// digits.
std::optional<std::uint64_t> ParseFraction(std::string_view digits) {
    // Nothing is rounded: a wait is as long as it was asked for.
    if (digits.empty() || digits.size() > 3) {
        return std::nullopt;
    }
    std::string padded(digits);
    padded.resize(3, '0');
    return ParseUnsigned(padded);
}

bool IsHostAndPort(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) {
        return false;
    }
    const std::optional<std::uint64_t> port = ParseUnsigned(text.substr(colon + 1));
    const std::string_view host = text.substr(0, colon);
    // An address of IP version 6 has colons of its own and stands in brackets.
    const bool bracketed = host.front() == '[' && host.back() == ']' && host.size() > 2;
    const bool plain = host.find_first_of(":[]/ @") == std::string_view::npos;
    return port && *port >= 1 && *port <= kMostPort && (bracketed || plain);
}

}  // namespace

std::optional<std::uint64_t> ParseUnsigned(std::string_view text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

std::uint64_t ParseInRange(std::string_view name, std::string_view text, std::uint64_t least,
                           std::uint64_t most) {
    const std::optional<std::uint64_t> value = ParseUnsigned(text);
    if (!value || *value < least || *value > most) {
        throw UsageError(fmt::format("{}: '{}' is not a whole number from {} to {}", name,
                                     WithoutCredentials(text), least, most));
    }
    return *value;
}

std::chrono::milliseconds ParseSeconds(std::string_view name, std::string_view text) {
    const std::size_t point = text.find('.');
    const std::optional<std::uint64_t> seconds = ParseUnsigned(text.substr(0, point));
    const std::optional<std::uint64_t> fraction =
        point == std::string_view::npos ? 0 : ParseFraction(text.substr(point + 1));
    const std::chrono::milliseconds longest = kLongestTimeout;
    // Compared before it is multiplied, which could overflow.
    if (seconds && fraction && *seconds <= static_cast<std::uint64_t>(kLongestTimeout.count())) {
        const std::chrono::milliseconds parsed(*seconds * 1000 + *fraction);
        if (parsed <= longest) {
            return parsed;
        }
    }
    throw UsageError(
        fmt::format("{}: '{}' is not a number of seconds from 0 to {}, with up to three decimals",
                    name, WithoutCredentials(text), kLongestTimeout.count()));
}

void CheckProxyUrl(std::string_view name, std::string_view url) {
    constexpr std::string_view kScheme = "http://";
    if (url.starts_with(kScheme)) {
        const std::string_view rest = url.substr(kScheme.size());
        const std::size_t at = rest.rfind('@');
        if (IsHostAndPort(at == std::string_view::npos ? rest : rest.substr(at + 1))) {
            return;
        }
    }
    throw UsageError(
        fmt::format("{}: the value is not of the form http://[user:password@]host:port with a "
                    "port from 1 to {} (it is not shown, for it may hold a password)",
                    name, kMostPort));
}

std::string WithoutCredentials(std::string_view text) {
    // The last one: a password may have more of them.
    const std::size_t at = text.rfind('@');
    if (at == std::string_view::npos) {
        return std::string(text);
    }
    const std::size_t scheme = text.find("://");
    const std::size_t start = scheme == std::string_view::npos || scheme > at ? 0 : scheme + 3;
    return fmt::format("{}***{}", text.substr(0, start), text.substr(at));
}

}  // namespace zamctl
