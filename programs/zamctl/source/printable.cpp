#include "printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "qel/utf.h"

namespace zamctl {
namespace {

/// A stretch of text: one character, or one byte that belongs to none.
struct Character {
    std::size_t bytes;
    char32_t code;
    bool isGood;
};

std::size_t LengthByLead(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xE0) {
        return 2;
    }
    return lead < 0xF0 ? 3 : 4;
}

/// The first byte only promises a length; whether the others keep it is checked as a whole.
Character FirstOf(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t bytes = LengthByLead(lead);
    if (bytes == 1) {
        return {1, lead, true};
    }
    if (bytes > text.size() || !qel::IsUtf8(text.substr(0, bytes))) {
        return {1, lead, false};
    }
    constexpr unsigned kPayloadBits = 6;
    constexpr unsigned kPayloadMask = 0x3F;
    char32_t code = lead & (0x7FU >> bytes);
    for (const char byte : text.substr(1, bytes - 1)) {
        code = code << kPayloadBits | (static_cast<unsigned char>(byte) & kPayloadMask);
    }
    return {bytes, code, true};
}

/// Control characters of both sets, and characters that are not seen but change what is: marks and
/// overrides of direction, line and paragraph separators, joiners, annotations and tags.
bool IsUnfit(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0xAD || code == 0x61C ||
           (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF ||
           (code >= 0xFFF9 && code <= 0xFFFB) || (code >= 0xE0000 && code <= 0xE007F);
}

/// Calls `put(character, its bytes)` for each character.
template <typename Put>
void ForEachCharacter(std::string_view text, Put&& put) {
    while (!text.empty()) {
        const Character character = FirstOf(text);
        put(character, text.substr(0, character.bytes));
        text.remove_prefix(character.bytes);
    }
}

void PutEscaped(std::string& out, const Character& character) {
    if (character.code < 0x80 || !character.isGood) {
        fmt::format_to(std::back_inserter(out), "\\x{:02x}", static_cast<unsigned>(character.code));
    } else {
        fmt::format_to(std::back_inserter(out), "\\u{{{:04x}}}",
                       static_cast<unsigned>(character.code));
    }
}

/// What stands for a character in quotation marks; null when it has no short form.
const char* ShortForm(char32_t code) {
    switch (code) {
        case U'"':
            return "\\\"";
        case U'\\':
            return "\\\\";
        case U'\n':
            return "\\n";
        case U'\r':
            return "\\r";
        case U'\t':
            return "\\t";
        default:
            return nullptr;
    }
}

/// Of the escapes of JSON, which has none beyond 16 bits.
void PutJsonEscape(std::string& out, char32_t code) {
    constexpr char32_t kFirstPair = 0x10000;
    const auto put = [&out](char32_t unit) {
        fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<unsigned>(unit));
    };
    if (code < kFirstPair) {
        put(code);
    } else {
        put(0xD800 + ((code - kFirstPair) >> 10U));
        put(0xDC00 + ((code - kFirstPair) & 0x3FFU));
    }
}

}  // namespace

std::string Quote(std::string_view text) {
    std::string out = "\"";
    ForEachCharacter(text, [&out](const Character& character, std::string_view bytes) {
        const char* const shortForm = ShortForm(character.code);
        if (shortForm != nullptr) {
            out += shortForm;
        } else if (!character.isGood || IsUnfit(character.code)) {
            PutEscaped(out, character);
        } else {
            out += bytes;
        }
    });
    return out += '"';
}

std::string Printable(std::string_view text) {
    std::string out;
    ForEachCharacter(text, [&out](const Character& character, std::string_view bytes) {
        const bool isLayout = character.code == U'\n' || character.code == U'\t';
        if (!character.isGood || (IsUnfit(character.code) && !isLayout)) {
            PutEscaped(out, character);
        } else {
            out += bytes;
        }
    });
    return out;
}

std::string PrintableJson(std::string json) {
    // Nearly every document is, and may be as large as a tree: it is not copied.
    const bool isPlain = std::all_of(json.begin(), json.end(), [](char byte) {
        return static_cast<unsigned char>(byte) < 0x7F;
    });
    if (isPlain) {
        return json;
    }
    std::string out;
    out.reserve(json.size());
    ForEachCharacter(json, [&out](const Character& character, std::string_view bytes) {
        // What is below U+0020 is escaped in texts already, or the layout between tokens.
        if (character.code >= 0x7F && IsUnfit(character.code)) {
            PutJsonEscape(out, character.code);
        } else {
            out += bytes;
        }
    });
    return out;
}

}  // namespace zamctl
