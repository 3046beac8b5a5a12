#include "printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "qel/character.h"

namespace zamctl {
namespace {

using qel::Character;
using qel::ForEachCharacter;

void PutEscaped(std::string& out, const Character& character) {
    qel::Escape(character, [&out](char piece) { out += piece; });
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

/// Escapes what is unfit for a terminal but for the layout that passes.
template <typename PassesLayout>
std::string WithEscapes(std::string_view text, PassesLayout&& passes) {
    std::string out;
    ForEachCharacter(text, [&](const Character& character, std::string_view bytes) {
        if (IsUnfitForTerminal(character) && !passes(character.code)) {
            PutEscaped(out, character);
        } else {
            out += bytes;
        }
    });
    return out;
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
        } else if (IsUnfitForTerminal(character)) {
            PutEscaped(out, character);
        } else {
            out += bytes;
        }
    });
    return out += '"';
}

std::string Printable(std::string_view text) {
    return WithEscapes(text, [](char32_t code) { return code == U'\n' || code == U'\t'; });
}

std::string PrintableLine(std::string_view text) {
    return WithEscapes(text, [](char32_t /*code*/) { return false; });
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
        if (character.code >= 0x7F && qel::IsUnfitForTerminal(character.code)) {
            PutJsonEscape(out, character.code);
        } else {
            out += bytes;
        }
    });
    return out;
}

}  // namespace zamctl
