#include "json_text/json_token.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace zam_json {
namespace {

/// Most bytes of a token that a message shows.
constexpr std::size_t kMaxShownBytes = 64;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kDigits = "0123456789";

bool IsSpace(char character) noexcept {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

bool StandsAt(std::string_view text, std::size_t offset, std::string_view what) noexcept {
    return offset <= text.size() && text.substr(offset, what.size()) == what;
}

std::size_t CountDigits(std::string_view text, std::size_t offset) noexcept {
    return std::min(text.find_first_not_of(kDigits, offset), text.size()) - offset;
}

std::size_t NumberBytes(std::string_view text) noexcept {
    std::size_t end = text.front() == '-' ? 1 : 0;
    // A zero in front stands alone: what follows "0" in "01" is the next token.
    end += StandsAt(text, end, "0") ? 1 : CountDigits(text, end);
    if (StandsAt(text, end, ".")) {
        end += 1 + CountDigits(text, end + 1);
    }
    if (StandsAt(text, end, "e") || StandsAt(text, end, "E")) {
        const bool hasSign = StandsAt(text, end + 1, "+") || StandsAt(text, end + 1, "-");
        end += hasSign ? 2 : 1;
        end += CountDigits(text, end);
    }
    return end;
}

std::size_t StringBytes(std::string_view text) noexcept {
    std::size_t end = 1;
    while (end < text.size() && text[end] != '"') {
        // Whatever is escaped is no end; the digits behind `\u` hold no quotation mark.
        end += text[end] == '\\' ? 2U : 1U;
    }
    return end + 1;
}

/// Length of the token that `text` begins with; perhaps beyond the end of a text that is cut off.
std::size_t TokenBytes(std::string_view text) noexcept {
    constexpr std::string_view kFalseWord = "false";
    if (text.empty()) {
        return 0;
    }
    // The first byte tells enough: the parser has checked the rest, or complains about it.
    switch (text.front()) {
        case '"':
            return StringBytes(text);
        case 't':
        case 'n':
            return kFalseWord.size() - 1;
        case 'f':
            return kFalseWord.size();
        case '{':
        case '}':
        case '[':
        case ']':
            return 1;
        default:
            return NumberBytes(text);
    }
}

}  // namespace

TextPosition PositionAt(std::string_view text, std::size_t offset) noexcept {
    TextPosition position;
    for (const char character : text.substr(0, offset)) {
        if (character == '\n') {
            ++position.line;
            position.column = 1;
        } else if ((static_cast<unsigned char>(character) & 0xC0U) != 0x80U) {
            ++position.column;
        }
    }
    return position;
}

std::size_t SkipBlank(std::string_view text, std::size_t offset) noexcept {
    while (offset < text.size()) {
        if (IsSpace(text[offset])) {
            ++offset;
        } else if (StandsAt(text, offset, "//")) {
            // The parser ends a comment at a carriage return too.
            offset = std::min(text.find_first_of("\r\n", offset), text.size());
        } else if (StandsAt(text, offset, "/*")) {
            const std::size_t end = text.find("*/", offset + 2);
            offset = end == std::string_view::npos ? text.size() : end + 2;
        } else {
            break;
        }
    }
    return offset;
}

std::string_view TokenAt(std::string_view text, std::size_t offset) noexcept {
    const std::string_view rest = text.substr(std::min(offset, text.size()));
    return rest.substr(0, std::min(TokenBytes(rest), rest.size()));
}

std::string ShownTokenAt(std::string_view text, std::size_t offset) {
    const std::string_view token = TokenAt(text, offset);
    if (token.size() <= kMaxShownBytes) {
        return std::string(token);
    }
    std::size_t end = kMaxShownBytes;
    // Not through the middle of a character.
    while ((static_cast<unsigned char>(token[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return fmt::format("{}...", token.substr(0, end));
}

bool IsWholeNumber(std::string_view token) noexcept {
    if (!token.empty() && token.front() == '-') {
        token.remove_prefix(1);
    }
    return !token.empty() && token.find_first_not_of(kDigits) == std::string_view::npos;
}

std::string_view WithoutByteOrderMark(std::string_view text) noexcept {
    if (StandsAt(text, 0, kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    return text;
}

std::string PointerStep(std::string_view key) {
    std::string step = "/";
    for (const char character : key) {
        if (character == '~') {
            step += "~0";
        } else if (character == '/') {
            step += "~1";
        } else {
            step += character;
        }
    }
    return step;
}

std::string FaultText(std::string_view name, TextPosition position, std::string_view pointer,
                      std::string_view message) {
    return fmt::format("{}:{}:{}: at {}: {}", name, position.line, position.column, Quoted(pointer),
                       message);
}

std::string TooDeepText(std::size_t maxDepth) {
    return fmt::format("is nested {} deep, at most {} are allowed", maxDepth + 1, maxDepth);
}

std::string Quoted(std::string_view text) {
    using nlohmann::json;
    // Replaced, not refused: messages quote what is wrong, and must come about all the same.
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace zam_json
