#include "fields.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "printable.h"

namespace zamctl {
namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const FieldValue& value) {
    return std::visit(
        [](const auto& plain) -> Json {
            using Plain = std::remove_cvref_t<decltype(plain)>;
            if constexpr (std::is_same_v<Plain, Fields>) {
                Json object = Json::object();
                for (const Field& field : plain.All()) {
                    object[field.name] = ToJson(field.value);
                }
                return object;
            } else if constexpr (std::is_same_v<Plain, FieldList>) {
                Json list = Json::array();
                for (const FieldValue& element : plain) {
                    list.push_back(ToJson(element));
                }
                return list;
            } else {
                return plain;
            }
        },
        value.Get());
}

}  // namespace

FieldValue::FieldValue(const FieldValue& other) = default;
FieldValue::FieldValue(FieldValue&& other) noexcept = default;
FieldValue& FieldValue::operator=(const FieldValue& other) = default;
FieldValue& FieldValue::operator=(FieldValue&& other) noexcept = default;
FieldValue::~FieldValue() = default;

Fields::Fields() = default;
Fields::Fields(const Fields& other) = default;
Fields::Fields(Fields&& other) noexcept = default;
Fields& Fields::operator=(const Fields& other) = default;
Fields& Fields::operator=(Fields&& other) noexcept = default;
Fields::~Fields() = default;

Fields::Fields(std::initializer_list<Field> fields) : fields_(fields) {}

FieldValue& Fields::operator[](std::string_view name) {
    const auto found = std::find_if(fields_.begin(), fields_.end(),
                                    [name](const Field& field) { return field.name == name; });
    if (found != fields_.end()) {
        return found->value;
    }
    fields_.push_back({std::string(name), nullptr});
    return fields_.back().value;
}

void Fields::Append(const Fields& others) {
    for (const Field& field : others.fields_) {
        (*this)[field.name] = field.value;
    }
}

std::string JsonText(const FieldValue& value) {
    // Texts that are no UTF-8 must not end in an exception behind a call that has succeeded.
    return PrintableJson(ToJson(value).dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace zamctl
