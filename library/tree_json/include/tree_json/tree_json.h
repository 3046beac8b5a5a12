#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "qel/export.h"
#include "zuv/value.h"

/// Trees as typed JSON, without loss in either direction; docs/typed-json.md describes the format.
/// No I/O. Everything here is thread-safe.

namespace zam_connector::tree_json {

/// Deepest nesting of JSON arrays and objects that is read and written; the objects and arrays that
/// only tell a kind count. Reading and writing recurse; this many levels need less than 1 MiB of
/// stack, and less than 4 MiB under a sanitizer.
inline constexpr std::size_t kMaxDepth = 512;

/// Widest indentation.
inline constexpr unsigned kMaxIndent = 16;

struct WriteOptions {
    /// Spaces per level; 0 writes one line without spaces between tokens. More than `kMaxIndent`
    /// count as `kMaxIndent`.
    unsigned indent = 0;
};

/// What is wrong with a text, or with a tree that is to be written. May be shared between threads.
class ZAM_API JsonError : public std::runtime_error {
public:
    /// A fault in the text `name`. `what()` reads `NAME:LINE:COLUMN: at "POINTER": MESSAGE`.
    JsonError(std::string_view name, std::size_t line, std::size_t column, std::string pointer,
              std::string message);
    /// A fault in a tree, for which there is no text yet. `what()` reads `at "POINTER": MESSAGE`.
    JsonError(std::string pointer, std::string message);
    JsonError(const JsonError&) noexcept;
    JsonError& operator=(const JsonError&) noexcept;
    ~JsonError() override;

    /// Both begin with 1; columns count characters, not bytes. 0 when a tree is at fault.
    std::size_t Line() const noexcept;
    std::size_t Column() const noexcept;
    /// JSON pointer (RFC 6901) into the text that was read, or that would have been written.
    const std::string& Pointer() const noexcept;
    /// What is wrong, without the place.
    const std::string& Message() const noexcept;

private:
    struct Details;

    /// Shared, so that copying an exception cannot throw.
    std::shared_ptr<const Details> details_;
};

/// The tree as typed JSON, without a newline at the end. Trees that are identical
/// (`TValue::IsIdenticalTo`) and no others have the same text, and `Read` gives back the identical
/// tree. Throws `JsonError` when the text would be nested deeper than `kMaxDepth`, or a node holds
/// no alternative (`zuv::Kind::Valueless`).
ZAM_API std::string Write(const zuv::TValue& tree, const WriteOptions& options = {});

/// The tree of a typed JSON text in UTF-8, which may begin with a byte order mark and have comments
/// (`//` and `/* */`) between tokens. `name` stands in errors in front of the place, as a file's
/// name would. Throws `JsonError` when the text is not in the format or is nested deeper than
/// `kMaxDepth`.
ZAM_API zuv::TValue Read(std::string_view text, std::string_view name = "JSON");

}  // namespace zam_connector::tree_json
