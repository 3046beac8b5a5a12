#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "json_text/base64.h"
#include "json_text/json_token.h"
#include "place.h"
#include "qel/utf.h"
#include "tree_json/tree_json.h"
#include "typed_keys.h"

namespace zam_connector::tree_json {
namespace {

bool HasUtf8KeysOnly(const zuv::Map& map) {
    // JSON has no other keys; a single one that is not makes pairs of the whole map.
    return std::all_of(map.begin(), map.end(),
                       [](const auto& entry) { return qel::IsUtf8(entry.first); });
}

std::string_view AsText(const zuv::Blob& blob) {
    return {reinterpret_cast<const char*>(blob.data()), blob.size()};
}

/// The name or the bits of a double that no JSON number stands for.
std::string NameOfDouble(double number) {
    if (std::isinf(number)) {
        return std::string(number < 0 ? kMinusInfinity : kInfinity);
    }
    // The bits tell one NaN from another: a tree that is read back is identical to this one.
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits == kNanBits ? std::string(kNan) : fmt::format("{}{:016x}", kBitsPrefix, bits);
}

/// Appends the text of a tree node by node.
class Writer {
public:
    explicit Writer(unsigned indent) : indent_(std::min(indent, kMaxIndent)) {}

    void Node(const zuv::TValue& node, const Place& place);

    std::string out;

private:
    /// One overload for each alternative.
    void Value(zuv::None /*value*/, const Place& /*place*/) { out += "null"; }
    void Value(bool value, const Place& /*place*/) { out += value ? "true" : "false"; }
    void Value(long value, const Place& /*place*/) { Number(value); }
    void Value(double value, const Place& place);
    void Value(signed char value, const Place& place) { TypedNumber(kInt8Key, value, place); }
    void Value(short value, const Place& place) { TypedNumber(kInt16Key, value, place); }
    void Value(int value, const Place& place) { TypedNumber(kInt32Key, value, place); }
    void Value(unsigned char value, const Place& place) { TypedNumber(kUInt8Key, value, place); }
    void Value(unsigned short value, const Place& place) { TypedNumber(kUInt16Key, value, place); }
    void Value(unsigned value, const Place& place) { TypedNumber(kUInt32Key, value, place); }
    void Value(unsigned long value, const Place& place) { TypedNumber(kUInt64Key, value, place); }
    void Value(qor::types::Timestamp value, const Place& place) {
        TypedNumber(kTimeKey, value.Count(), place);
    }
    void Value(const std::string& value, const Place& place) { Text(value, place); }
    void Value(const zuv::Blob& value, const Place& place) {
        TypedText(kBlobKey, zam_json::EncodeBase64(AsText(value)), place);
    }
    void Value(const zuv::Vector& value, const Place& place);
    void Value(const zuv::Map& value, const Place& place);

    void Object(const zuv::Map& map, const Place& place);
    void Pairs(const zuv::Map& map, const Place& place);
    /// A text or a map's key: as it stands when it is UTF-8.
    void Text(std::string_view text, const Place& place);

    template <typename T>
    void Number(T number);
    template <typename T>
    void TypedNumber(std::string_view key, T number, const Place& place);
    void TypedText(std::string_view key, std::string_view text, const Place& place);

    /// An object with one scalar member, which stays in one line.
    void OpenTyped(std::string_view key, const Place& place);
    void CloseTyped();

    void Open(char bracket, const Place& place);
    void Item(bool isFirst);
    void Key(std::string_view key);
    void Close(char bracket, bool isEmpty);
    void NewLine();
    void Quote(std::string_view text);

    unsigned indent_;
    std::size_t depth_ = 0;
};

void Writer::Node(const zuv::TValue& node, const Place& place) {
    if (node.IsValueless()) {
        throw JsonError(place.Pointer(), "holds no value: an assignment to it failed half way");
    }
    node.Visit([this, &place](const auto& value) { Value(value, place); });
}

void Writer::Value(double value, const Place& place) {
    if (!std::isfinite(value)) {
        TypedText(kDoubleKey, NameOfDouble(value), place);
        return;
    }
    const std::size_t start = out.size();
    Number(value);
    // Or it would be read as a whole number.
    if (out.find_first_of(".e", start) == std::string::npos) {
        out += ".0";
    }
}

void Writer::Value(const zuv::Vector& value, const Place& place) {
    Open('[', place);
    for (std::size_t index = 0; index < value.size(); ++index) {
        Item(index == 0);
        Node(value[index], Place(place, index));
    }
    Close(']', value.empty());
}

void Writer::Value(const zuv::Map& value, const Place& place) {
    if (HasUtf8KeysOnly(value)) {
        Object(value, place);
    } else {
        Pairs(value, place);
    }
}

void Writer::Object(const zuv::Map& map, const Place& place) {
    Open('{', place);
    // Or a reader would take the only key for the name of a kind.
    const bool needsMark =
        map.size() == 1 && !map.begin()->first.empty() && map.begin()->first.front() == kTypeMark;
    bool isFirst = true;
    for (const auto& [key, value] : map) {
        Item(isFirst);
        isFirst = false;
        if (needsMark) {
            const std::string marked = kTypeMark + key;
            Key(marked);
            Node(value, Place(place, marked));
        } else {
            Key(key);
            Node(value, Place(place, key));
        }
    }
    Close('}', map.empty());
}

void Writer::Pairs(const zuv::Map& map, const Place& place) {
    Open('{', place);
    Item(true);
    Key(kMapKey);
    const Place pairs(place, kMapKey);
    Open('[', pairs);
    std::size_t index = 0;
    for (const auto& [key, value] : map) {
        Item(index == 0);
        const Place pair(pairs, index);
        Open('[', pair);
        Item(true);
        Text(key, Place(pair, std::size_t{0}));
        Item(false);
        Node(value, Place(pair, 1));
        Close(']', false);
        ++index;
    }
    // Never empty: an empty map has no key that is not UTF-8.
    Close(']', false);
    Close('}', false);
}

void Writer::Text(std::string_view text, const Place& place) {
    if (qel::IsUtf8(text)) {
        Quote(text);
    } else {
        TypedText(kStringKey, zam_json::EncodeBase64(text), place);
    }
}

template <typename T>
void Writer::Number(T number) {
    // The shortest form of a double has at most 24 characters, a whole number 20.
    std::array<char, 32> text;
    const auto result = std::to_chars(text.data(), text.data() + text.size(), number);
    out.append(text.data(), result.ptr);
}

template <typename T>
void Writer::TypedNumber(std::string_view key, T number, const Place& place) {
    OpenTyped(key, place);
    Number(number);
    CloseTyped();
}

void Writer::TypedText(std::string_view key, std::string_view text, const Place& place) {
    OpenTyped(key, place);
    Quote(text);
    CloseTyped();
}

void Writer::OpenTyped(std::string_view key, const Place& place) {
    Open('{', place);
    Key(key);
}

void Writer::CloseTyped() {
    --depth_;
    out += '}';
}

void Writer::Open(char bracket, const Place& place) {
    // What is written must be read again, and the reader has the same bound.
    if (depth_ == kMaxDepth) {
        throw JsonError(place.Pointer(), zam_json::TooDeepText(kMaxDepth));
    }
    ++depth_;
    out += bracket;
}

void Writer::Item(bool isFirst) {
    if (!isFirst) {
        out += ',';
    }
    NewLine();
}

void Writer::Key(std::string_view key) {
    Quote(key);
    out += indent_ > 0 ? ": " : ":";
}

void Writer::Close(char bracket, bool isEmpty) {
    --depth_;
    if (!isEmpty) {
        NewLine();
    }
    out += bracket;
}

void Writer::NewLine() {
    if (indent_ > 0) {
        out += '\n';
        out.append(indent_ * depth_, ' ');
    }
}

void Writer::Quote(std::string_view text) {
    constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    out += '"';
    for (const char character : text) {
        const std::size_t found = kEscaped.find(character);
        if (found != std::string_view::npos) {
            out += '\\';
            out += kLetters[found];
        } else if (static_cast<unsigned char>(character) < 0x20) {
            // JSON allows no control characters in strings; all else stands as it is.
            out += fmt::format("\\u{:04x}", static_cast<unsigned>(character));
        } else {
            out += character;
        }
    }
    out += '"';
}

}  // namespace

std::string Write(const zuv::TValue& tree, const WriteOptions& options) {
    Writer writer(options.indent);
    writer.Node(tree, Place());
    return std::move(writer.out);
}

}  // namespace zam_connector::tree_json
