#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "json_text/json_token.h"

/// JSON text with places: what is parsed, and where in the text each part of it stands. Comments in
/// the manner of C++ are allowed between tokens. No I/O. Thread-safe.

namespace zam_json {

/// What is wrong with a text, and where.
struct JsonFault {
    std::size_t offset = 0;
    std::string pointer;  ///< of the value that is wrong, or of the innermost one begun
    std::string message;
};

/// Destroys a tree without taking memory for it, which its own destructor does not do.
struct JsonTreeDeleter {
    void operator()(nlohmann::json* tree) const noexcept;
};

using JsonTreePtr = std::unique_ptr<nlohmann::json, JsonTreeDeleter>;

/// A tree, or what is wrong with the text; exactly one of them is set.
struct JsonOutcome {
    JsonTreePtr tree;
    std::optional<JsonFault> fault;

    JsonOutcome();
    JsonOutcome(JsonOutcome&&) noexcept;
    JsonOutcome& operator=(JsonOutcome&&) = delete;
    ~JsonOutcome();
};

/// What a whole number beyond 64 bits is in the tree, where `nlohmann::json` has no integer for it.
enum class WideIntegers {
    Float,      ///< the nearest float
    Discarded,  ///< of the type `discarded`, so that every float has a fraction or an exponent
};

/// Parses a whole text. Broken syntax, bytes that are no UTF-8, duplicate keys, numbers beyond the
/// range of `double` and arrays and objects nested more than `maxDepth` deep are faults.
JsonOutcome ParseJson(std::string_view text, std::size_t maxDepth,
                      WideIntegers wideIntegers = WideIntegers::Float);

/// Which part of an object's member is meant.
enum class JsonPart { Key, Value };

/// Offset of the first byte of the part at `pointer`, in a text that `ParseJson` accepts; empty
/// when there is no such part.
std::optional<std::size_t> FindInJson(std::string_view text, std::string_view pointer,
                                      JsonPart part);

/// What is said of a value at `pointer` of `text` that is not what is allowed there.
std::string RefusalText(const nlohmann::json& value, std::string_view text,
                        std::string_view pointer, std::string_view allowed);

}  // namespace zam_json
