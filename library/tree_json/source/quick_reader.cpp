#include "quick_reader.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "double_name.h"
#include "json_text/base64.h"
#include "tree_json/tree_json.h"
#include "typed_keys.h"

namespace zam_connector::tree_json {
namespace {

namespace ondemand = simdjson::ondemand;

/// Puts blanks in the place of comments, so that every other byte stays where it is. False when
/// there is none, or one that is not good.
bool BlankComments(char* const text, std::size_t size) {
    const std::string_view all(text, size);
    bool hasComment = false;
    for (std::size_t at = 0; at < size; ++at) {
        if (text[at] == '"') {
            // What looks like a comment may stand in a string.
            for (++at; at < size && text[at] != '"'; ++at) {
                at += text[at] == '\\' ? 1U : 0U;
            }
        } else if (text[at] == '/') {
            std::size_t end = std::string_view::npos;
            if (all.substr(at, 2) == "//") {
                end = std::min(all.find_first_of("\r\n", at), size);
            } else if (all.substr(at, 2) == "/*") {
                const std::size_t star = all.find("*/", at + 2);
                end = star == std::string_view::npos ? star : star + 2;
            }
            if (end == std::string_view::npos) {
                return false;
            }
            std::memset(text + at, ' ', end - at);
            hasComment = true;
            at = end - 1;
        }
    }
    return hasComment;
}

/// The number that four hexadecimal digits write; beyond 16 bits when they are none.
std::uint32_t CodeUnit(const char* digits) noexcept {
    constexpr std::uint32_t kNone = 0x10000;
    std::uint32_t unit = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        const char digit = digits[index];
        unit <<= 4U;
        if (digit >= '0' && digit <= '9') {
            unit |= static_cast<std::uint32_t>(digit - '0');
        } else if (digit >= 'a' && digit <= 'f') {
            unit |= static_cast<std::uint32_t>(digit - 'a') + 10;
        } else if (digit >= 'A' && digit <= 'F') {
            unit |= static_cast<std::uint32_t>(digit - 'A') + 10;
        } else {
            return kNone;
        }
    }
    return unit;
}

void AppendUtf8(std::string& text, std::uint32_t code) {
    const auto tail = [&text, code](unsigned shift) {
        text += static_cast<char>(0x80U | ((code >> shift) & 0x3FU));
    };
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0U | (code >> 6U));
        tail(0);
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0U | (code >> 12U));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0U | (code >> 18U));
        tail(12);
        tail(6);
        tail(0);
    }
}

/// Appends the character of an escape behind its `\u`; null for half a pair of surrogates, else
/// behind the escape. Only bytes up to the first that is no digit are looked at.
const char* AppendEscapedUnit(std::string& text, const char* at) {
    constexpr std::uint32_t kHigh = 0xD800;
    constexpr std::uint32_t kLow = 0xDC00;
    constexpr std::uint32_t kBehindLow = 0xE000;
    std::uint32_t code = CodeUnit(at);
    at += 4;
    if (code > 0xFFFF || (code >= kLow && code < kBehindLow)) {
        return nullptr;
    }
    if (code >= kHigh && code < kLow) {
        if (at[0] != '\\' || at[1] != 'u') {
            return nullptr;
        }
        const std::uint32_t low = CodeUnit(at + 2);
        at += 6;
        if (low < kLow || low >= kBehindLow) {
            return nullptr;
        }
        code = 0x10000 + ((code - kHigh) << 10U) + (low - kLow);
    }
    AppendUtf8(text, code);
    return at;
}

/// The text of a string whose first byte behind the quotation mark is at `at`. The parser has found
/// its end and has checked its bytes, but not its escapes: it lets some halves of surrogate pairs
/// pass. False for a bad escape.
bool TextAt(const char* at, const char* limit, std::string& text) {
    const auto rest = [&] { return static_cast<std::size_t>(limit - at); };
    const auto* end = static_cast<const char*>(std::memchr(at, '"', rest()));
    if (end == nullptr) {
        return false;
    }
    if (std::memchr(at, '\\', static_cast<std::size_t>(end - at)) == nullptr) {
        text.assign(at, end);
        return true;
    }
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kEscaped = "\"\\/\b\f\n\r\t";
    text.clear();
    while (at != limit && *at != '"') {
        if (*at != '\\') {
            text += *at++;
            continue;
        }
        ++at;
        // Behind the end stands padding of zero bytes, which are no part of an escape.
        if (*at == 'u') {
            at = AppendEscapedUnit(text, at + 1);
            if (at == nullptr) {
                return false;
            }
        } else {
            const std::size_t letter = kLetters.find(*at++);
            if (letter == std::string_view::npos) {
                return false;
            }
            text += kEscaped[letter];
        }
    }
    return at != limit;
}

template <typename T>
bool TakeWhole(const zuv::TValue& number, zuv::TValue& out) {
    if (const auto* const whole = number.GetIf<long>()) {
        if (std::in_range<T>(*whole)) {
            out = static_cast<T>(*whole);
            return true;
        }
    } else if (const auto* const wide = number.GetIf<unsigned long>()) {
        if (std::in_range<T>(*wide)) {
            out = static_cast<T>(*wide);
            return true;
        }
    }
    return false;
}

bool TakeTime(const zuv::TValue& number, zuv::TValue& out) {
    const auto* const count = number.GetIf<long>();
    if (count != nullptr) {
        out = qor::types::Timestamp(*count);
    }
    return count != nullptr;
}

struct NumberKind {
    std::string_view key;
    bool (*take)(const zuv::TValue& number, zuv::TValue& out);
};

constexpr std::array kNumberKinds{
    NumberKind{kInt32Key, &TakeWhole<int>},
    NumberKind{kInt8Key, &TakeWhole<signed char>},
    NumberKind{kInt16Key, &TakeWhole<short>},
    NumberKind{kUInt8Key, &TakeWhole<unsigned char>},
    NumberKind{kUInt16Key, &TakeWhole<unsigned short>},
    NumberKind{kUInt32Key, &TakeWhole<unsigned>},
    NumberKind{kUInt64Key, &TakeWhole<unsigned long>},
    NumberKind{kTimeKey, &TakeTime},
};

/// False for a number too small for a double too, of which `from_chars` says no more than that.
bool Real(ondemand::value& value, zuv::TValue& out) {
    const std::string_view token = value.raw_json_token();
    double number = 0;
    if (value.get_double().get(number) != simdjson::SUCCESS) {
        return false;
    }
    // The parser tells what is a number, but its double is not taken: simdjson 3.0 gives another
    // than the nearest for some numbers of more than 19 digits.
    const auto result = std::from_chars(token.data(), token.data() + token.size(), number);
    out = number;
    return result.ec == std::errc();
}

bool Number(ondemand::value& value, zuv::TValue& out) {
    bool isWhole = false;
    if (value.is_integer().get(isWhole) != simdjson::SUCCESS) {
        return false;
    }
    if (!isWhole) {
        return Real(value, out);
    }
    std::int64_t whole = 0;
    if (value.get_int64().get(whole) == simdjson::SUCCESS) {
        out = static_cast<long>(whole);
        return true;
    }
    std::uint64_t wide = 0;
    if (value.get_uint64().get(wide) != simdjson::SUCCESS) {
        return false;
    }
    out = static_cast<unsigned long>(wide);
    return true;
}

/// The map that the pairs of a `$map` make. A key was read as a string whichever way it is written.
bool TakePairs(zuv::TValue& pairs, zuv::TValue& out) {
    zuv::Map map;
    for (zuv::TValue& pair : *pairs.GetIf<zuv::Vector>()) {
        auto* const parts = pair.GetIf<zuv::Vector>();
        auto* const key =
            parts != nullptr && parts->size() == 2 ? parts->front().GetIf<std::string>() : nullptr;
        if (key == nullptr || !map.try_emplace(std::move(*key), std::move(parts->back())).second) {
            return false;
        }
    }
    out = std::move(map);
    return true;
}

/// What a text in an object that names a kind stands for.
bool TakeText(std::string_view key, const std::string& text, zuv::TValue& out) {
    if (key == kDoubleKey) {
        const std::optional<double> number = DoubleOfName(text);
        if (number) {
            out = *number;
        }
        return number.has_value();
    }
    if (key != kStringKey && key != kBlobKey) {
        return false;
    }
    std::optional<std::string> bytes = zam_json::DecodeBase64(text);
    if (!bytes) {
        return false;
    }
    if (key == kStringKey) {
        out = *std::move(bytes);
    } else {
        out.Emplace<zuv::Blob>(bytes->begin(), bytes->end());
    }
    return true;
}

/// A member of an object, as it was read.
struct Member {
    std::string key;
    ondemand::json_type type = ondemand::json_type::null;  ///< of the text: `value` may have a kind
    zuv::TValue value;
    bool mayNameKind = false;  ///< if no other follows
};

/// Whether a whole number was read that nothing but a `$uint64` can hold.
bool IsWide(const Member& member) {
    return member.type == ondemand::json_type::number && member.value.Is<unsigned long>();
}

/// False for a key that stands twice.
bool Add(zuv::Map& map, Member& member) {
    const std::size_t before = map.size();
    // Programs write keys in order.
    map.try_emplace(map.end(), std::move(member.key), std::move(member.value));
    return map.size() != before;
}

/// What the only member of an object, whose key begins with a dollar sign, stands for.
bool TakeOnly(Member& member, zuv::TValue& out) {
    const std::string_view key = member.key;
    if (key.size() > 1 && key[1] == kTypeMark) {
        // Behind the mark stands a plain value, which a `long` must hold.
        if (IsWide(member)) {
            return false;
        }
        zuv::Map map;
        map.emplace(key.substr(1), std::move(member.value));
        out = std::move(map);
        return true;
    }
    switch (member.type) {
        case ondemand::json_type::number:
            for (const NumberKind& kind : kNumberKinds) {
                if (kind.key == key) {
                    return kind.take(member.value, out);
                }
            }
            return false;
        case ondemand::json_type::string:
            return TakeText(key, *member.value.GetIf<std::string>(), out);
        case ondemand::json_type::array:
            return key == kMapKey && TakePairs(member.value, out);
        default:
            return false;
    }
}

/// Each function returns false as soon as anything is not as it should be.
class QuickReader {
public:
    explicit QuickReader(const simdjson::padded_string& text)
        : text_(text), limit_(text.data() + text.size()) {}

    bool Tree(ondemand::parser& parser, zuv::TValue& out);

private:
    /// Whole numbers beyond 63 bits are read for the member that may be a `$uint64`.
    enum class Wide { Refused, Read };

    bool Node(ondemand::value& value, ondemand::json_type type, Wide wide, zuv::TValue& out);
    bool Array(ondemand::array& array, zuv::TValue& out);
    bool Object(ondemand::object& object, zuv::TValue& out);
    bool ReadMember(ondemand::field& field, bool isFirst, Member& member);
    bool Text(ondemand::value& value, zuv::TValue& out) const;

    const simdjson::padded_string& text_;
    const char* limit_;
    std::size_t depth_ = 0;
    /// Elements of all arrays that are open, so that a vector gets the room that it needs at once.
    std::vector<zuv::TValue> elements_;
};

bool QuickReader::Tree(ondemand::parser& parser, zuv::TValue& out) {
    ondemand::document document;
    if (parser.iterate(text_).get(document) != simdjson::SUCCESS) {
        return false;
    }
    // A scalar alone is not worth the rules of its own that the parser has for it.
    ondemand::array array;
    ondemand::object object;
    const std::string_view text = text_;
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) {
        return false;
    }
    const bool isRead =
        text[start] == '['
            ? document.get_array().get(array) == simdjson::SUCCESS && Array(array, out)
            : document.get_object().get(object) == simdjson::SUCCESS && Object(object, out);
    // The place behind the document is no place when nothing follows.
    return isRead && document.current_location().error() == simdjson::OUT_OF_BOUNDS;
}

bool QuickReader::Node(ondemand::value& value, ondemand::json_type type, Wide wide,
                       zuv::TValue& out) {
    switch (type) {
        case ondemand::json_type::array: {
            ondemand::array array;
            return value.get_array().get(array) == simdjson::SUCCESS && Array(array, out);
        }
        case ondemand::json_type::object: {
            ondemand::object object;
            return value.get_object().get(object) == simdjson::SUCCESS && Object(object, out);
        }
        case ondemand::json_type::string:
            return Text(value, out);
        case ondemand::json_type::number:
            return Number(value, out) && (wide == Wide::Read || !out.Is<unsigned long>());
        case ondemand::json_type::boolean: {
            bool isTrue = false;
            if (value.get_bool().get(isTrue) != simdjson::SUCCESS) {
                return false;
            }
            out = isTrue;
            return true;
        }
        case ondemand::json_type::null: {
            bool isNull = false;
            return value.is_null().get(isNull) == simdjson::SUCCESS && isNull;
        }
    }
    return false;
}

bool QuickReader::Array(ondemand::array& array, zuv::TValue& out) {
    if (depth_ == kMaxQuickDepth) {
        return false;
    }
    ++depth_;
    const std::size_t first = elements_.size();
    for (auto item : array) {
        if (item.error() != simdjson::SUCCESS) {
            return false;
        }
        ondemand::value element = item.value_unsafe();
        ondemand::json_type type{};
        // Not made in its place: arrays inside it make `elements_` grow.
        zuv::TValue node;
        if (element.type().get(type) != simdjson::SUCCESS ||
            !Node(element, type, Wide::Refused, node)) {
            return false;
        }
        elements_.push_back(std::move(node));
    }
    const auto begin = elements_.begin() + static_cast<std::ptrdiff_t>(first);
    out.Emplace<zuv::Vector>(std::make_move_iterator(begin),
                             std::make_move_iterator(elements_.end()));
    elements_.erase(begin, elements_.end());
    --depth_;
    return true;
}

bool QuickReader::ReadMember(ondemand::field& field, bool isFirst, Member& member) {
    if (!TextAt(field.key().raw(), limit_, member.key) ||
        field.value().type().get(member.type) != simdjson::SUCCESS) {
        return false;
    }
    member.mayNameKind = isFirst && !member.key.empty() && member.key.front() == kTypeMark;
    return Node(field.value(), member.type, member.mayNameKind ? Wide::Read : Wide::Refused,
                member.value);
}

bool QuickReader::Object(ondemand::object& object, zuv::TValue& out) {
    if (depth_ == kMaxQuickDepth) {
        return false;
    }
    ++depth_;
    zuv::Map map;
    Member first;
    for (auto item : object) {
        ondemand::field field;
        Member member;
        if (std::move(item).get(field) != simdjson::SUCCESS) {
            return false;
        }
        const bool isFirst = map.empty() && !first.mayNameKind;
        if (!ReadMember(field, isFirst, member)) {
            return false;
        }
        if (member.mayNameKind) {
            first = std::move(member);
            continue;
        }
        // A second member: the first names no kind.
        if (first.mayNameKind && (IsWide(first) || !Add(map, first))) {
            return false;
        }
        first.mayNameKind = false;
        if (!Add(map, member)) {
            return false;
        }
    }
    --depth_;
    if (first.mayNameKind) {
        return TakeOnly(first, out);
    }
    out = std::move(map);
    return true;
}

bool QuickReader::Text(ondemand::value& value, zuv::TValue& out) const {
    ondemand::raw_json_string raw;
    return value.get_raw_json_string().get(raw) == simdjson::SUCCESS &&
           TextAt(raw.raw(), limit_, out.Emplace<std::string>());
}

}  // namespace

std::optional<zuv::TValue> ReadQuickly(std::string_view text) {
    // A zero byte is refused wherever it stands, and the end of a comment would not tell.
    if (text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    simdjson::padded_string padded(text);
    ondemand::parser parser;
    zuv::TValue tree;
    if (QuickReader(padded).Tree(parser, tree)) {
        return tree;
    }
    // Programs write no comments, so they are looked for only now. Nothing was taken for more than
    // it is before: outside of strings, the parser refuses a slash.
    if (BlankComments(padded.data(), padded.size()) && QuickReader(padded).Tree(parser, tree)) {
        return tree;
    }
    return std::nullopt;
}

}  // namespace zam_connector::tree_json
