#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Tokens and places in JSON text. No I/O. Thread-safe.

namespace zam_json {

/// Both begin with 1; columns count characters, not bytes.
struct TextPosition {
    std::size_t line = 1;
    std::size_t column = 1;
};

/// The position of the byte at `offset` (at most `text.size()`) of UTF-8 text.
TextPosition PositionAt(std::string_view text, std::size_t offset) noexcept;

/// Behind white space and comments that begin at `offset`.
std::size_t SkipBlank(std::string_view text, std::size_t offset) noexcept;

/// The token that begins at `offset`, as it stands in a text that `ParseJson` accepts.
std::string_view TokenAt(std::string_view text, std::size_t offset) noexcept;

/// The same for messages: a long token is cut, between two characters.
std::string ShownTokenAt(std::string_view text, std::size_t offset);

/// Whether a number stands without fraction and exponent.
bool IsWholeNumber(std::string_view token) noexcept;

/// `text` behind the byte order mark that it may begin with.
std::string_view WithoutByteOrderMark(std::string_view text) noexcept;

/// `key` as it stands in a JSON pointer, with the separator in front: "/a~1b" for "a/b".
std::string PointerStep(std::string_view key);

/// `NAME:LINE:COLUMN: at "POINTER": MESSAGE`, with the pointer as a JSON string, so that no key can
/// break the line of a log.
std::string FaultText(std::string_view name, TextPosition position, std::string_view pointer,
                      std::string_view message);

/// The message about the array or object that lies one deeper than allowed.
std::string TooDeepText(std::size_t maxDepth);

/// As a JSON string; bytes that are no UTF-8 become U+FFFD.
std::string Quoted(std::string_view text);

}  // namespace zam_json
