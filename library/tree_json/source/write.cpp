#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <utility>

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

/// A number's shortest text.
class NumberText {
public:
    template <typename T>
    explicit NumberText(T number) {
        end_ = std::to_chars(text_.data(), text_.data() + text_.size(), number).ptr;
    }
    NumberText(const NumberText&) = delete;
    NumberText& operator=(const NumberText&) = delete;

    std::string_view View() const noexcept {
        return {text_.data(), static_cast<std::size_t>(end_ - text_.data())};
    }

private:
    // The shortest form of a double has at most 24 characters, a whole number 20.
    std::array<char, 32> text_;
    const char* end_ = nullptr;
};

/// Texts up to this size, in bytes, grow as strings do. A larger one is measured first: growing
/// would take two to three times its size for a while.
constexpr std::size_t kMaxUnmeasuredBytes = std::size_t{16} << 20U;

/// Takes a text's place and counts its bytes.
struct Measure {
    Measure& operator+=(char /*character*/) noexcept {
        ++bytes;
        return *this;
    }
    Measure& operator+=(std::string_view text) noexcept {
        bytes += text.size();
        return *this;
    }
    void append(std::size_t count, char /*character*/) noexcept { bytes += count; }

    std::size_t bytes = 0;
};

/// Appends the text of a tree, node by node, to a string or a measure.
template <typename Out>
class Writer {
public:
    Writer(unsigned indent, const zuv::TValue& tree)
        : indent_(std::min(indent, kMaxIndent)), tree_(tree) {}

    void Tree() { Node(tree_, Place()); }

    Out out;

private:
    void Node(const zuv::TValue& node, const Place& place);
    void MakeRoom();

    /// One overload for each alternative.
    void Value(zuv::None /*value*/, const Place& /*place*/) { out += "null"; }
    void Value(bool value, const Place& /*place*/) {
        out += std::string_view(value ? "true" : "false");
    }
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
    const zuv::TValue& tree_;
    std::size_t depth_ = 0;
    bool hasRoom_ = false;
};

template <typename Out>
void Writer<Out>::MakeRoom() {
    Writer<Measure> measure(indent_, tree_);
    measure.Tree();
    out.reserve(measure.out.bytes + 1);  // and a line's end, with which files end
}

template <typename Out>
void Writer<Out>::Node(const zuv::TValue& node, const Place& place) {
    if constexpr (std::is_same_v<Out, std::string>) {
        if (out.size() > kMaxUnmeasuredBytes && !std::exchange(hasRoom_, true)) {
            MakeRoom();
        }
    }
    if (node.IsValueless()) {
        throw JsonError(place.Pointer(), "holds no value: an assignment to it failed half way");
    }
    node.Visit([this, &place](const auto& value) { this->Value(value, place); });
}

template <typename Out>
void Writer<Out>::Value(double value, const Place& place) {
    if (!std::isfinite(value)) {
        TypedText(kDoubleKey, NameOfDouble(value), place);
        return;
    }
    const NumberText text(value);
    out += text.View();
    // Or it would be read as a whole number.
    if (text.View().find_first_of(".e") == std::string_view::npos) {
        out += ".0";
    }
}

template <typename Out>
void Writer<Out>::Value(const zuv::Vector& value, const Place& place) {
    Open('[', place);
    for (std::size_t index = 0; index < value.size(); ++index) {
        Item(index == 0);
        Node(value[index], Place(place, index));
    }
    Close(']', value.empty());
}

template <typename Out>
void Writer<Out>::Value(const zuv::Map& value, const Place& place) {
    if (HasUtf8KeysOnly(value)) {
        Object(value, place);
    } else {
        Pairs(value, place);
    }
}

template <typename Out>
void Writer<Out>::Object(const zuv::Map& map, const Place& place) {
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

template <typename Out>
void Writer<Out>::Pairs(const zuv::Map& map, const Place& place) {
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

template <typename Out>
void Writer<Out>::Text(std::string_view text, const Place& place) {
    if (qel::IsUtf8(text)) {
        Quote(text);
    } else {
        TypedText(kStringKey, zam_json::EncodeBase64(text), place);
    }
}

template <typename Out>
template <typename T>
void Writer<Out>::Number(T number) {
    out += NumberText(number).View();
}

template <typename Out>
template <typename T>
void Writer<Out>::TypedNumber(std::string_view key, T number, const Place& place) {
    OpenTyped(key, place);
    Number(number);
    CloseTyped();
}

template <typename Out>
void Writer<Out>::TypedText(std::string_view key, std::string_view text, const Place& place) {
    OpenTyped(key, place);
    Quote(text);
    CloseTyped();
}

template <typename Out>
void Writer<Out>::OpenTyped(std::string_view key, const Place& place) {
    Open('{', place);
    Key(key);
}

template <typename Out>
void Writer<Out>::CloseTyped() {
    --depth_;
    out += '}';
}

template <typename Out>
void Writer<Out>::Open(char bracket, const Place& place) {
    // What is written must be read again, and the reader has the same bound.
    if (depth_ == kMaxDepth) {
        throw JsonError(place.Pointer(), zam_json::TooDeepText(kMaxDepth));
    }
    ++depth_;
    out += bracket;
}

template <typename Out>
void Writer<Out>::Item(bool isFirst) {
    if (!isFirst) {
        out += ',';
    }
    NewLine();
}

template <typename Out>
void Writer<Out>::Key(std::string_view key) {
    Quote(key);
    out += indent_ > 0 ? ": " : ":";
}

template <typename Out>
void Writer<Out>::Close(char bracket, bool isEmpty) {
    --depth_;
    if (!isEmpty) {
        NewLine();
    }
    out += bracket;
}

template <typename Out>
void Writer<Out>::NewLine() {
    if (indent_ > 0) {
        out += '\n';
        out.append(indent_ * depth_, ' ');
    }
}

template <typename Out>
void Writer<Out>::Quote(std::string_view text) {
    constexpr std::string_view kEscaped = "\"\\\b\f\n\r\t";
    constexpr std::string_view kLetters = "\"\\bfnrt";
    out += '"';
    std::size_t plain = 0;  // where what stands as it is begins
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char character = text[index];
        if (static_cast<unsigned char>(character) >= 0x20 && character != '"' &&
            character != '\\') {
            continue;
        }
        out += text.substr(plain, index - plain);
        plain = index + 1;
        const std::size_t found = kEscaped.find(character);
        if (found != std::string_view::npos) {
            out += '\\';
            out += kLetters[found];
        } else {
            // JSON allows no control characters in strings.
            out += fmt::format("\\u{:04x}", static_cast<unsigned>(character));
        }
    }
    out += text.substr(plain);
    out += '"';
}

}  // namespace

std::string Write(const zuv::TValue& tree, const WriteOptions& options) {
    Writer<std::string> writer(options.indent, tree);
    writer.Tree();
    return std::move(writer.out);
}

}  // namespace zam_connector::tree_json
