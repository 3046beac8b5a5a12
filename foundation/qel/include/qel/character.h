#pragma once

#include <cstddef>
#include <string_view>

/// Characters of UTF-8, and which of them must not reach a terminal. Nothing here allocates.

namespace qel {

namespace detail {

/// What a lead byte asks for: how many bytes follow and the range of the first of them (the others
/// are always 80..BF). The narrowed ranges keep out overlong forms, surrogates and points beyond
/// U+10FFFF: Unicode standard, table 3-7.
struct Lead {
    int following = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    char32_t bits = 0;
};

constexpr Lead ClassifyLead(unsigned char byte) noexcept {
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {1, 0x80, 0xBF, byte & 0x1FU};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        const auto low = static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80);
        const auto high = static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF);
        return {2, low, high, byte & 0x0FU};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        const auto low = static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80);
        const auto high = static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF);
        return {3, low, high, byte & 0x07U};
    }
    return {};
}

}  // namespace detail

/// Takes the sequence that begins at `at`, which is moved behind it: `point` is its code point.
/// False when it is ill-formed; `at` is then behind its maximal subpart.
constexpr bool TakePoint(std::string_view text, std::size_t& at, char32_t& point) noexcept {
    const auto first = static_cast<unsigned char>(text[at++]);
    if (first < 0x80) {
        point = first;
        return true;
    }
    detail::Lead lead = detail::ClassifyLead(first);
    point = lead.bits;
    if (lead.following == 0) {
        return false;
    }
    for (; lead.following > 0; --lead.following, ++at) {
        const auto next = static_cast<unsigned char>(at < text.size() ? text[at] : '\0');
        if (next < lead.low || next > lead.high) {
            return false;
        }
        point = (point << 6U) | (next & 0x3FU);
        lead.low = 0x80;
        lead.high = 0xBF;
    }
    return true;
}

/// A stretch of text: one character, or one byte that belongs to none, whose value is then `code`.
struct Character {
    std::size_t bytes;
    char32_t code;
    bool isGood;
};

/// The first of `text`, which is not empty.
constexpr Character FirstCharacter(std::string_view text) noexcept {
    std::size_t bytes = 0;
    char32_t code = 0;
    if (TakePoint(text, bytes, code)) {
        return {bytes, code, true};
    }
    return {1, static_cast<unsigned char>(text.front()), false};
}

/// Whether a terminal would act upon the character, or not show what it changes: control characters
/// of both sets, marks and overrides of direction, line and paragraph separators, joiners,
/// annotations and tags.
constexpr bool IsUnfitForTerminal(char32_t code) noexcept {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0xAD || code == 0x61C ||
           (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF ||
           (code >= 0xFFF9 && code <= 0xFFFB) || (code >= 0xE0000 && code <= 0xE007F);
}

constexpr bool IsUnfitForTerminal(const Character& character) noexcept {
    return !character.isGood || IsUnfitForTerminal(character.code);
}

/// Calls `put(character, its bytes)` for each character of `text`.
template <typename Put>
constexpr void ForEachCharacter(std::string_view text, Put&& put) {
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        put(character, text.substr(0, character.bytes));
        text.remove_prefix(character.bytes);
    }
}

/// Longest text of `Escape`, in bytes: `\u{e007f}`.
inline constexpr std::size_t kMaxEscapeBytes = 9;

/// Puts what stands for a character that is unfit: `\xNN` for ASCII and for a byte that belongs to
/// no character, `\u{NNNN}` beyond. `put` takes one `char`.
template <typename Put>
constexpr void Escape(const Character& character, Put&& put) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const bool isByte = character.code < 0x80 || !character.isGood;
    put('\\');
    put(isByte ? 'x' : 'u');
    if (!isByte) {
        put('{');
    }
    const unsigned fewest = isByte ? 2 : 4;
    unsigned digits = fewest;
    while (character.code >> (4 * digits) != 0) {
        ++digits;
    }
    for (; digits != 0; --digits) {
        put(kDigits[character.code >> (4 * (digits - 1)) & 0xFU]);
    }
    if (!isByte) {
        put('}');
    }
}

}  // namespace qel
