#include "json_text/json_document.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace zam_json {
namespace {

using nlohmann::json;

}  // namespace

JsonError::JsonError(std::string_view file, TextPosition position, std::string pointer,
                     std::string_view message)
    : std::runtime_error(FaultText(file, position, pointer, message)),
      position_(position),
      pointer_(std::move(pointer)) {}

JsonValue::JsonValue(const JsonDocument& document, const json& value, std::string pointer)
    : document_(&document), value_(&value), pointer_(std::move(pointer)) {}

JsonValue JsonValue::Child(const json& value, std::string step) const {
    return {*document_, value, pointer_ + step};
}

bool JsonValue::IsNull() const {
    return value_->is_null();
}

bool JsonValue::IsText() const {
    return value_->is_string();
}

bool JsonValue::IsNumber() const {
    return value_->is_number();
}

bool JsonValue::IsArray() const {
    return value_->is_array();
}

bool JsonValue::Boolean() const {
    if (!value_->is_boolean()) {
        Refuse("true or false");
    }
    return value_->get<bool>();
}

std::string JsonValue::Text() const {
    if (!value_->is_string()) {
        Refuse("a text");
    }
    return value_->get<std::string>();
}

std::int64_t JsonValue::Signed(std::int64_t least, std::int64_t most) const {
    // Beyond INT64_MAX the parser's number is unsigned, and would be read as a negative one.
    const bool fits = value_->is_number_integer() &&
                      (!value_->is_number_unsigned() ||
                       value_->get<std::uint64_t>() <= static_cast<std::uint64_t>(INT64_MAX));
    if (!fits || value_->get<std::int64_t>() < least || value_->get<std::int64_t>() > most) {
        Refuse(fmt::format("a whole number from {} to {}", least, most));
    }
    return value_->get<std::int64_t>();
}

std::uint64_t JsonValue::Unsigned(std::uint64_t least, std::uint64_t most) const {
    // The parser has every whole number that is not negative as an unsigned one.
    if (!value_->is_number_unsigned() || value_->get<std::uint64_t>() < least ||
        value_->get<std::uint64_t>() > most) {
        Refuse(fmt::format("a whole number from {} to {}", least, most));
    }
    return value_->get<std::uint64_t>();
}

double JsonValue::Number(double least, double most) const {
    if (!value_->is_number() || value_->get<double>() < least || value_->get<double>() > most) {
        Refuse(fmt::format("a number from {} to {}", least, most));
    }
    return value_->get<double>();
}

std::vector<JsonValue> JsonValue::Elements(std::size_t least, std::size_t most) const {
    if (!value_->is_array()) {
        Refuse(fmt::format("an array of {} to {} elements", least, most));
    }
    if (value_->size() < least || value_->size() > most) {
        Fail(fmt::format("has {} elements, allowed is an array of {} to {}", value_->size(), least,
                         most));
    }
    std::vector<JsonValue> elements;
    for (std::size_t index = 0; index < value_->size(); ++index) {
        elements.push_back(Child((*value_)[index], fmt::format("/{}", index)));
    }
    return elements;
}

std::vector<std::pair<std::string, JsonValue>> JsonValue::Members(std::size_t least,
                                                                  std::size_t most) const {
    if (!value_->is_object()) {
        Refuse(fmt::format("an object of {} to {} members", least, most));
    }
    if (value_->size() < least || value_->size() > most) {
        Fail(fmt::format("has {} members, allowed is an object of {} to {}", value_->size(), least,
                         most));
    }
    std::vector<std::pair<std::string, JsonValue>> members;
    for (const auto& [name, value] : value_->items()) {
        members.emplace_back(name, Child(value, PointerStep(name)));
    }
    return members;
}

void JsonValue::CheckMembers(const std::vector<std::string_view>& known) const {
    if (!value_->is_object()) {
        Refuse("an object");
    }
    for (const auto& [name, value] : value_->items()) {
        if (std::find(known.begin(), known.end(), name) == known.end()) {
            // The place is the key's: it is at fault, whatever stands behind it.
            document_->Fail(
                pointer_ + PointerStep(name), JsonPart::Key,
                fmt::format("the key is not known here, allowed are {}", fmt::join(known, ", ")));
        }
    }
}

std::optional<JsonValue> JsonValue::Find(std::string_view name) const {
    if (!value_->is_object()) {
        Refuse("an object");
    }
    const auto found = value_->find(name);
    if (found == value_->end()) {
        return std::nullopt;
    }
    return Child(*found, PointerStep(name));
}

JsonValue JsonValue::At(std::string_view name) const {
    std::optional<JsonValue> member = Find(name);
    if (!member) {
        Fail(fmt::format("the member {} is missing", Quoted(name)));
    }
    return *std::move(member);
}

std::optional<JsonValue> JsonValue::FindSet(std::string_view name) const {
    std::optional<JsonValue> member = Find(name);
    return member && member->IsNull() ? std::nullopt : member;
}

void JsonValue::Refuse(std::string_view allowed) const {
    Fail(RefusalText(*value_, document_->text_, pointer_, allowed));
}

void JsonValue::Fail(std::string_view message) const {
    document_->Fail(pointer_, JsonPart::Value, message);
}

JsonDocument::JsonDocument(std::string name, std::string text)
    : name_(std::move(name)), text_(std::move(text)) {
    // Editors do not show the mark, so columns are counted without it.
    text_.erase(0, text_.size() - WithoutByteOrderMark(text_).size());
    JsonOutcome outcome = ParseJson(text_, kMaxJsonDepth);
    if (outcome.fault) {
        throw JsonError(name_, PositionAt(text_, outcome.fault->offset), outcome.fault->pointer,
                        outcome.fault->message);
    }
    tree_ = std::move(outcome.tree);
}

JsonDocument::~JsonDocument() = default;

JsonValue JsonDocument::Root() const {
    return {*this, *tree_, ""};
}

void JsonDocument::Fail(const std::string& pointer, JsonPart part, std::string_view message) const {
    // Looked for only now: places kept for all values would take more room than the tree.
    const std::size_t offset = FindInJson(text_, pointer, part).value_or(0);
    throw JsonError(name_, PositionAt(text_, offset), pointer, message);
}

}  // namespace zam_json
