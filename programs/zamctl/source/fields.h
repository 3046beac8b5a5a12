#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

/// What a command prints as JSON, without the header of a JSON library in the headers of the
/// commands. Values only: no I/O.

namespace zamctl {

class FieldValue;
struct Field;

using FieldList = std::vector<FieldValue>;

/// Named values, in the order in which they were added.
class Fields {
public:
    Fields();
    Fields(std::initializer_list<Field> fields);

    // In the other file: a field is not complete here.
    Fields(const Fields& other);
    Fields(Fields&& other) noexcept;
    Fields& operator=(const Fields& other);
    Fields& operator=(Fields&& other) noexcept;
    ~Fields();

    /// The value of that name; null, and behind the others, when there was none.
    FieldValue& operator[](std::string_view name);

    /// Adds all of these; a name that is there already takes the new value.
    void Append(const Fields& others);

    const std::vector<Field>& All() const noexcept { return fields_; }

private:
    std::vector<Field> fields_;
};

/// Null, a flag, a number, a text, a list or fields.
class FieldValue {
public:
    using Variant = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double,
                                 std::string, FieldList, Fields>;

    FieldValue(std::nullptr_t = nullptr) noexcept {}
    FieldValue(double number) noexcept : value_(number) {}
    FieldValue(const char* text) : value_(std::string(text)) {}
    FieldValue(std::string_view text) : value_(std::string(text)) {}
    FieldValue(std::string text) : value_(std::move(text)) {}
    FieldValue(FieldList list) : value_(std::move(list)) {}
    FieldValue(Fields fields) : value_(std::move(fields)) {}

    /// A template, so that no pointer turns into a flag and no number into a narrower one.
    template <std::integral Number>
    FieldValue(Number number) noexcept : value_(Widened(number)) {}

    // In the other file: inlined into an optimised caller, the end of a variant that holds none of
    // the larger kinds is taken for a use of what was never made.
    FieldValue(const FieldValue& other);
    FieldValue(FieldValue&& other) noexcept;
    FieldValue& operator=(const FieldValue& other);
    FieldValue& operator=(FieldValue&& other) noexcept;
    ~FieldValue();

    const Variant& Get() const noexcept { return value_; }

private:
    template <std::integral Number>
    static auto Widened(Number number) noexcept {
        if constexpr (std::is_same_v<Number, bool>) {
            return number;
        } else if constexpr (std::is_signed_v<Number>) {
            return std::int64_t{number};
        } else {
            return std::uint64_t{number};
        }
    }

    Variant value_;
};

struct Field {
    std::string name;
    FieldValue value;
};

/// A value as JSON in one line; bytes that are no UTF-8 are replaced, and what would steer a
/// terminal is escaped.
std::string JsonText(const FieldValue& value);

}  // namespace zamctl
