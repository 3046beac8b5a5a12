#include "qel/utf.h"

#include <cstddef>

#include "qel/character.h"

namespace qel {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf16(std::u16string& out, char32_t point) {
    if (point < 0x10000) {
        out.push_back(static_cast<char16_t>(point));
        return;
    }
    const char32_t offset = point - 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (offset >> 10U)));
    out.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FFU)));
}

void AppendUtf8(std::string& out, char32_t point) {
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0U | (point >> 6U));
        put(0x80U | (point & 0x3FU));
    } else if (point < 0x10000) {
        put(0xE0U | (point >> 12U));
        put(0x80U | ((point >> 6U) & 0x3FU));
        put(0x80U | (point & 0x3FU));
    } else {
        put(0xF0U | (point >> 18U));
        put(0x80U | ((point >> 12U) & 0x3FU));
        put(0x80U | ((point >> 6U) & 0x3FU));
        put(0x80U | (point & 0x3FU));
    }
}

}  // namespace

std::u16string ToUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        char32_t point = 0;
        const bool isWhole = TakePoint(text, at, point);
        AppendUtf16(out, isWhole ? point : kReplacement);
    }
    return out;
}

std::string ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char32_t unit = text[at];
        const bool high = unit >= 0xD800 && unit < 0xDC00;
        const bool low = unit >= 0xDC00 && unit < 0xE000;
        if (high && at + 1 < text.size() && text[at + 1] >= 0xDC00 && text[at + 1] < 0xE000) {
            ++at;
            AppendUtf8(out, 0x10000 + ((unit - 0xD800) << 10U) + (text[at] - 0xDC00U));
        } else {
            AppendUtf8(out, high || low ? kReplacement : unit);
        }
    }
    return out;
}

bool IsUtf8(std::string_view text) noexcept {
    char32_t point = 0;
    for (std::size_t at = 0; at < text.size();) {
        if (!TakePoint(text, at, point)) {
            return false;
        }
    }
    return true;
}

}  // namespace qel
