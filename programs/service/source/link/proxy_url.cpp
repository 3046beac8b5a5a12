#include "link/proxy_url.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

namespace zam_service {
namespace {

constexpr std::string_view kSchemeEnd = "://";
/// Other words in front of "://" may as well be the beginning of a secret.
constexpr auto kSchemes = std::to_array<std::string_view>(
    {"http", "https", "socks", "socks4", "socks4a", "socks5", "socks5h"});

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return lower;
}

/// Cuts a scheme off the front of `text`; empty, with `text` unchanged, when there is none.
std::string TakeScheme(std::string_view& text) {
    const std::size_t end = text.find(kSchemeEnd);
    if (end == std::string_view::npos) {
        return {};
    }
    std::string scheme = LowerCase(text.substr(0, end));
    if (std::find(kSchemes.begin(), kSchemes.end(), scheme) == kSchemes.end()) {
        return {};
    }
    text.remove_prefix(end + kSchemeEnd.size());
    return scheme;
}

/// Behind the last "@"; one in percent-encoding counts too, since somebody may have encoded the
/// whole user info.
std::string_view BehindUserInfo(std::string_view text) {
    const std::size_t plain = text.rfind('@');
    const std::size_t encoded = text.rfind("%40");
    std::size_t start = plain == std::string_view::npos ? 0 : plain + 1;
    if (encoded != std::string_view::npos) {
        start = std::max(start, encoded + 3);
    }
    return text.substr(start);
}

bool IsHostCharacter(unsigned char character) {
    // Bytes of other than ASCII characters: host names in the user's own script.
    return std::isalnum(character) != 0 || character == '.' || character == '-' ||
           character == '_' || character >= 0x80;
}

bool IsAddressCharacter(unsigned char character) {
    return std::isxdigit(character) != 0 || character == ':' || character == '.';
}

bool IsPort(std::string_view text) {
    return !text.empty() && text.size() <= 5 &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char character) { return std::isdigit(character) != 0; });
}

bool IsHostWithPort(std::string_view text) {
    std::size_t hostEnd = 0;
    bool isGood = false;
    if (!text.empty() && text.front() == '[') {
        hostEnd = std::min(text.find(']'), text.size() - 1) + 1;
        const std::string_view address = text.substr(1, hostEnd - 1);
        isGood = address.size() > 1 && address.back() == ']' &&
                 std::all_of(address.begin(), address.end() - 1, IsAddressCharacter);
    } else {
        hostEnd = std::min(text.find(':'), text.size());
        isGood = hostEnd != 0 && std::all_of(text.begin(), text.begin() + hostEnd, IsHostCharacter);
    }
    const std::string_view rest = text.substr(hostEnd);
    return isGood && (rest.empty() || (rest.front() == ':' && IsPort(rest.substr(1))));
}

}  // namespace

std::string ProxyWithoutCredentials(std::string_view url) {
    if (url.empty()) {
        return {};
    }
    std::string scheme = TakeScheme(url);
    url = BehindUserInfo(url);
    if (std::string inner = TakeScheme(url); !inner.empty()) {
        scheme = std::move(inner);
    }
    url = url.substr(0, url.find_first_of("/?#\\"));
    if (!IsHostWithPort(url)) {
        return kUnreadableProxy;
    }
    return scheme.empty() ? std::string(url) : fmt::format("{}://{}", scheme, url);
}

}  // namespace zam_service
