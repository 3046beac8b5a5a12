#include <fmt/format.h>

#include <utility>

#include "json_text/json_token.h"
#include "tree_json/tree_json.h"

namespace zam_connector::tree_json {

struct JsonError::Details {
    std::size_t line;
    std::size_t column;
    std::string pointer;
    std::string message;
};

JsonError::JsonError(std::string_view name, std::size_t line, std::size_t column,
                     std::string pointer, std::string message)
    : std::runtime_error(
          zam_json::FaultText(name, {.line = line, .column = column}, pointer, message)),
      // The base class, made first, has read the parts that move here.
      details_(std::make_shared<const Details>(
          Details{line, column, std::move(pointer), std::move(message)})) {}

JsonError::JsonError(std::string pointer, std::string message)
    : std::runtime_error(fmt::format("at {}: {}", zam_json::Quoted(pointer), message)),
      details_(
          std::make_shared<const Details>(Details{0, 0, std::move(pointer), std::move(message)})) {}

// Here and not in the header: whoever catches the error must find the library's one copy of its
// type, also where a client hides its own symbols.
JsonError::JsonError(const JsonError&) noexcept = default;
JsonError& JsonError::operator=(const JsonError&) noexcept = default;
JsonError::~JsonError() = default;

std::size_t JsonError::Line() const noexcept {
    return details_->line;
}

std::size_t JsonError::Column() const noexcept {
    return details_->column;
}

const std::string& JsonError::Pointer() const noexcept {
    return details_->pointer;
}

const std::string& JsonError::Message() const noexcept {
    return details_->message;
}

}  // namespace zam_connector::tree_json
