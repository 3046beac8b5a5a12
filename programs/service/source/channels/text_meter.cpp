#include "channels/text_meter.h"

#include <algorithm>

#include "channels/saturated.h"
#include "common/raw_zam_param.h"
#include "data/upload_file.h"
#include "qel/utf.h"
#include "zuv/value.h"

namespace zam_service {
namespace {

/// A line's end and a comma.
constexpr std::size_t kLineBytes = 2;

/// Colon and blank behind a key, and the mark that tells it from a kind's name.
constexpr std::size_t kKeyBytes = 3;

/// The longest object that stands for a scalar: {"$double": "0x0123456789abcdef"}.
constexpr std::size_t kScalarBytes = 36;

/// What stands around a text in Base64: {"$string": ""}.
constexpr std::size_t kTypedTextBytes = 15;

/// Lines of a pair besides its value's: brackets and key. The value's line is an entry's own.
constexpr std::size_t kPairLines = 3;

/// How much deeper than an entry the value of a pair stands, in levels.
constexpr std::size_t kPairLevels = 2;

/// The lines around all pairs of a map: "$map": [ and ].
constexpr std::size_t kPairsBytes = 10 + 2 * kLineBytes;

std::size_t Base64Bytes(std::size_t bytes) noexcept {
    return (bytes + 2) / 3 * 4;
}

std::size_t CharacterBytes(unsigned char character) noexcept {
    if (character >= 0x20) {
        return character == '"' || character == '\\' ? 2 : 1;
    }
    return std::string_view("\b\f\n\r\t").find(static_cast<char>(character)) !=
                   std::string_view::npos
               ? 2
               : 6;  // as in \u001f
}

/// A text with its quotes, or what stands for it.
std::size_t TextBytes(std::string_view text) noexcept {
    if (!qel::IsUtf8(text)) {
        return kTypedTextBytes + Base64Bytes(text.size());
    }
    std::size_t bytes = 2;
    for (const char character : text) {
        bytes += CharacterBytes(static_cast<unsigned char>(character));
    }
    return bytes;
}

zuv::Kind KindOf(const std::vector<unsigned char>& block) noexcept {
    // A block that is cut off makes no tree, so it does not matter what is counted for it.
    return block.empty() ? zuv::Kind::None : static_cast<zuv::Kind>(block.front());
}

std::size_t ValueBytes(const std::vector<unsigned char>& block) noexcept {
    const std::size_t data =
        block.size() - std::min(block.size(), zam_connector::common::kValueHeaderBytes);
    const char* const first = reinterpret_cast<const char*>(block.data() + block.size() - data);
    switch (KindOf(block)) {
        case zuv::Kind::String:
            // Without the zero byte behind the text, which is not the text's.
            return TextBytes({first, data == 0 ? 0 : data - 1});
        case zuv::Kind::Blob:
            return kTypedTextBytes + Base64Bytes(data);
        default:
            return kScalarBytes;
    }
}

bool IsContainer(const std::vector<unsigned char>& block) noexcept {
    return KindOf(block) == zuv::Kind::Vector || KindOf(block) == zuv::Kind::Map;
}

}  // namespace

void TextMeter::AddRoot(const std::vector<unsigned char>& block) {
    levels_.assign(1, {.indent = kUploadIndent});
    AddNode(block);
}

void TextMeter::AddEntry(std::size_t depth, std::string_view key,
                         const std::vector<unsigned char>& block) {
    Return(depth);
    Level& map = levels_.back();
    if (!map.isPairs && !qel::IsUtf8(key)) {
        TurnIntoPairs(map);
    }
    if (map.isPairs) {
        AddPair(map);
    }
    ++map.children;
    bytes_ = SaturatedSum(bytes_, kKeyBytes + TextBytes(key));
    AddLines(1, kLineBytes + map.indent);
    levels_.push_back({.indent = map.indent + kUploadIndent});
    AddNode(block);
}

void TextMeter::AddElement(std::size_t depth, const std::vector<unsigned char>& block) {
    Return(depth);
    Level& vector = levels_.back();
    ++vector.children;
    AddLines(1, kLineBytes + vector.indent);
    levels_.push_back({.indent = vector.indent + kUploadIndent});
    AddNode(block);
}

void TextMeter::AddGap(std::size_t depth, std::size_t values) {
    Return(depth);
    Level& vector = levels_.back();
    vector.lines = SaturatedSum(vector.lines, values);
    bytes_ = SaturatedSum(bytes_, SaturatedProduct(values, vector.indent - kUploadIndent * depth));
}

void TextMeter::Return(std::size_t depth) {
    while (levels_.size() > depth) {
        const std::size_t lines = levels_.back().lines;
        levels_.pop_back();
        levels_.back().lines = SaturatedSum(levels_.back().lines, lines);
    }
}

/// `bytes` are those of each line but for what stands in it.
void TextMeter::AddLines(std::size_t lines, std::size_t bytes) {
    levels_.back().lines += lines;
    bytes_ = SaturatedSum(bytes_, lines * bytes);
}

void TextMeter::AddNode(const std::vector<unsigned char>& block) {
    bytes_ = SaturatedSum(bytes_, ValueBytes(block));
    if (IsContainer(block)) {
        AddLines(1, kLineBytes + levels_.back().indent);  // of the bracket that closes it
    }
}

void TextMeter::TurnIntoPairs(Level& map) {
    bytes_ = SaturatedSum(bytes_, kPairsBytes + 2 * map.indent);
    bytes_ = SaturatedSum(bytes_, SaturatedProduct(map.lines, kPairLevels * kUploadIndent));
    map.indent += kPairLevels * kUploadIndent;
    map.isPairs = true;
    for (std::size_t child = 0; child < map.children; ++child) {
        AddPair(map);
    }
}

void TextMeter::AddPair(const Level& map) {
    AddLines(kPairLines, kLineBytes + map.indent);
    bytes_ = SaturatedSum(bytes_, kTypedTextBytes);
}

}  // namespace zam_service
