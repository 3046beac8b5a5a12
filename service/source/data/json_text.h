#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

/// JSON text with places: what is parsed, and where in the text each part of it stands. Comments in
/// the manner of C++ are allowed between tokens. No I/O. Thread-safe.

namespace zam_service {

/// Deepest nesting of arrays and objects: a deeper document can overflow the stack of whoever walks
/// its tree.
inline constexpr std::size_t kMaxJsonDepth = 64;

/// Both begin with 1; columns count characters, not bytes.
struct TextPosition {
    std::size_t line = 1;
    std::size_t column = 1;
};

/// The position of the byte at `offset` (at most `text.size()`) of UTF-8 text.
TextPosition PositionAt(std::string_view text, std::size_t offset) noexcept;

/// `key` as it stands in a JSON pointer, with the separator in front: "/a~1b" for "a/b".
std::string PointerStep(std::string_view key);

/// What is wrong with a text, and where.
struct JsonFault {
    std::size_t offset = 0;
    std::string pointer;  ///< of the value that is wrong, or of the innermost one begun
    std::string message;
};

/// A tree, or what is wrong with the text; exactly one of them is set.
struct JsonOutcome {
    std::unique_ptr<nlohmann::json> tree;
    std::optional<JsonFault> fault;

    JsonOutcome();
    JsonOutcome(JsonOutcome&&) noexcept;
    JsonOutcome& operator=(JsonOutcome&&) = delete;
    ~JsonOutcome();
};

/// Parses a whole text. Broken syntax, bytes that are no UTF-8, duplicate keys and nesting beyond
/// `kMaxJsonDepth` are faults.
JsonOutcome ParseJson(std::string_view text);

/// Which part of an object's member is meant.
enum class JsonPart { Key, Value };

/// Offset of the first byte of the part at `pointer`, in a text that `ParseJson` accepts; empty
/// when there is no such part.
std::optional<std::size_t> FindInJson(std::string_view text, std::string_view pointer,
                                      JsonPart part);

/// The token that begins at `offset`, as it stands in a text that `ParseJson` accepts.
std::string_view TokenAt(std::string_view text, std::size_t offset) noexcept;

}  // namespace zam_service
