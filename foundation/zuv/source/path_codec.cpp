#include "zuv/path_codec.h"

#include <charconv>
#include <system_error>

namespace zuv {
namespace {

/// Digits of the largest position, 18446744073709551615.
constexpr std::size_t kMaxPositionDigits = 20;

constexpr bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

}  // namespace

PathCodec::PathCodec(const IdSpec& spec) noexcept
    : maxIndex_(spec.maxIndex),
      hasCharacters_(!spec.chars.empty()),
      separator_(hasCharacters_ ? spec.chars.front() : '\0') {
    for (const char character : spec.chars) {
        reserved_[static_cast<unsigned char>(character)] = true;
    }
}

IdState PathCodec::Append(PathText& text, unsigned long position) const {
    if (maxIndex_ != 0 && position > maxIndex_) {
        return IdState::IndexTooLarge;
    }
    char* const begin = text.Room(kMaxPositionDigits + 1);
    const auto written = std::to_chars(begin, begin + kMaxPositionDigits, position);
    if (written.ec != std::errc()) {
        return IdState::NumberConversion;
    }
    *written.ptr = separator_;
    text.Extend(static_cast<std::size_t>(written.ptr + 1 - begin));
    return IdState::Ok;
}

IdState PathCodec::Append(PathText& text, std::string_view key) const {
    if (key.empty()) {
        return IdState::EmptyKey;
    }
    if (IsDigit(key.front())) {
        return IdState::KeyBeginsWithDigit;
    }
    // Copied while it is looked through, and without a branch: nearly all keys are good.
    char* to = text.Room(key.size() + 1);
    bool isReserved = false;
    for (const char character : key) {
        isReserved |= IsReserved(character);
        *to++ = character;
    }
    if (isReserved) {
        return IdState::ReservedCharacter;
    }
    *to = separator_;
    text.Extend(key.size() + 1);
    return IdState::Ok;
}

IdState PathCodec::Append(PathText& text, const Level& level) const {
    if (const auto* position = std::get_if<unsigned long>(&level)) {
        return Append(text, *position);
    }
    if (const auto* key = std::get_if<std::string>(&level)) {
        return Append(text, std::string_view(*key));
    }
    return IdState::NoAlternative;
}

IdState PathCodec::Read(std::string_view text, std::size_t offset,
                        LevelText& level) const noexcept {
    if (offset >= text.size() || text[offset] == separator_) {
        return IdState::EmptyLevel;
    }
    std::size_t end = offset;
    level.isPosition = IsDigit(text[offset]);
    // A position is looked through to its end before its size is judged.
    bool isWhole = true;
    for (; end < text.size() && text[end] != separator_; ++end) {
        isWhole = isWhole && (level.isPosition ? IsDigit(text[end]) : !IsReserved(text[end]));
    }
    if (!isWhole) {
        return IdState::ReservedCharacter;
    }
    level.key = text.substr(offset, end - offset);
    level.next = end + 1;
    if (level.isPosition) {
        const auto read = std::from_chars(text.data() + offset, text.data() + end, level.position);
        if (read.ec != std::errc()) {
            return IdState::NumberConversion;
        }
        if (maxIndex_ != 0 && level.position > maxIndex_) {
            return IdState::IndexTooLarge;
        }
    }
    return IdState::Ok;
}

}  // namespace zuv
