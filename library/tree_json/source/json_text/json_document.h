#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "json_text/json_text.h"
#include "json_text/json_token.h"

/// Plain JSON documents, read with a full account of what is wrong: every error names file, line,
/// column and JSON pointer, the value seen and what is allowed. No I/O. A document may be read from
/// several threads at once.

namespace zam_json {

/// Deepest nesting of arrays and objects: a deeper document can overflow the stack of whoever walks
/// its tree.
inline constexpr std::size_t kMaxJsonDepth = 64;

/// What is wrong with a file. `what()` reads
/// `FILE:LINE:COLUMN: at "POINTER": is VALUE, allowed is ...`.
class JsonError : public std::runtime_error {
public:
    JsonError(std::string_view file, TextPosition position, std::string pointer,
              std::string_view message);

    TextPosition Position() const noexcept { return position_; }
    const std::string& Pointer() const noexcept { return pointer_; }

private:
    TextPosition position_;
    std::string pointer_;
};

class JsonDocument;

/// A value of a document, with its place. The document must outlive it. Every function throws
/// `JsonError` when the value is not what is asked for.
class JsonValue {
public:
    bool IsNull() const;
    bool IsText() const;
    bool IsNumber() const;
    bool IsArray() const;

    bool Boolean() const;
    std::string Text() const;

    /// A whole number within both bounds.
    std::int64_t Signed(std::int64_t least, std::int64_t most) const;
    std::uint64_t Unsigned(std::uint64_t least, std::uint64_t most) const;

    /// A number within both bounds.
    double Number(double least, double most) const;

    /// The elements of an array of a length within both bounds.
    std::vector<JsonValue> Elements(std::size_t least, std::size_t most) const;

    /// The members of an object of a size within both bounds, in the order of their keys.
    std::vector<std::pair<std::string, JsonValue>> Members(std::size_t least,
                                                           std::size_t most) const;

    /// Checks that this is an object without other members than these.
    void CheckMembers(const std::vector<std::string_view>& known) const;

    /// A member of an object; empty when it has none of that name.
    std::optional<JsonValue> Find(std::string_view name) const;

    /// The same for a member that must be there.
    JsonValue At(std::string_view name) const;

    /// `Find`, but a member that is null counts as none.
    std::optional<JsonValue> FindSet(std::string_view name) const;

    /// Refuses this value: "is VALUE, allowed is `allowed`".
    [[noreturn]] void Refuse(std::string_view allowed) const;

    /// Refuses this value with a message of the caller's own.
    [[noreturn]] void Fail(std::string_view message) const;

private:
    friend class JsonDocument;

    JsonValue(const JsonDocument& document, const nlohmann::json& value, std::string pointer);
    JsonValue Child(const nlohmann::json& value, std::string step) const;

    const JsonDocument* document_;
    const nlohmann::json* value_;
    std::string pointer_;
};

/// A parsed file.
class JsonDocument {
public:
    /// Parses `text`, which came from the file `name`. Throws `JsonError`.
    JsonDocument(std::string name, std::string text);
    JsonDocument(const JsonDocument&) = delete;
    JsonDocument& operator=(const JsonDocument&) = delete;
    ~JsonDocument();

    JsonValue Root() const;

private:
    friend class JsonValue;

    [[noreturn]] void Fail(const std::string& pointer, JsonPart part,
                           std::string_view message) const;

    std::string name_;
    std::string text_;
    JsonTreePtr tree_;
};

}  // namespace zam_json
