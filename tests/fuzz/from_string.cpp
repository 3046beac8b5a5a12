#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "check.h"
#include "common/id_specification.h"
#include "zuv/path.h"

/// An input without line ends is a path in the system's own form. One with two lines in front holds
/// an `IdSpec` there, its characters and its largest position in decimal, and the path behind.

namespace {

using zam_connector::common::meta::IdSpecification;
using zam_fuzz::Check;
using zuv::IdState;

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

/// The state and the level of one level's text, by the rules as they are documented.
IdState ReadLevel(std::string_view text, const zuv::IdSpec& spec, zuv::Path& path) {
    if (text.empty()) {
        return IdState::EmptyLevel;
    }
    if (!IsDigit(text.front())) {
        path.emplace_back(std::string(text));
        return text.find_first_of(spec.chars) == std::string_view::npos
                   ? IdState::Ok
                   : IdState::ReservedCharacter;
    }
    unsigned long position = 0;
    bool isTooLong = false;
    for (const char character : text) {
        if (!IsDigit(character)) {
            return IdState::ReservedCharacter;
        }
        const auto digit = static_cast<unsigned long>(character - '0');
        isTooLong = __builtin_mul_overflow(position, 10UL, &position) || isTooLong;
        isTooLong = __builtin_add_overflow(position, digit, &position) || isTooLong;
    }
    if (isTooLong) {
        return IdState::NumberConversion;
    }
    path.emplace_back(position);
    return spec.maxIndex != 0 && position > spec.maxIndex ? IdState::IndexTooLarge : IdState::Ok;
}

IdState ReadPath(std::string_view text, const zuv::IdSpec& spec, zuv::Path& path) {
    if (spec.chars.empty()) {
        return IdState::NoCharacters;
    }
    while (!text.empty()) {
        const std::size_t end = text.find(spec.chars.front());
        const IdState state = ReadLevel(text.substr(0, end), spec, path);
        if (state != IdState::Ok) {
            return state;
        }
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return IdState::Ok;
}

void CheckWritten(const zuv::Path& path, const zuv::IdSpec& spec) {
    const auto [text, state] = zuv::ToString<zuv::Path>(path, spec);
    Check(state == IdState::Ok, "a path that was read can be written");
    Check(path.empty() == text.empty(), "nothing but the root is written as the empty text");
    Check(text.empty() || text.back() == spec.chars.front(), "a path ends with a separator");
    const auto [again, stateAgain] = zuv::FromString(text, spec);
    Check(stateAgain == IdState::Ok, "a path that was written can be read");
    Check(again == path, "a path that was written is read back");
}

/// Keys under another `IdSpec` may hold what the system reserves, and nothing else is wrong.
void CheckWrittenForTheSystem(const zuv::Path& path) {
    const auto [text, state] = zuv::ToString<zuv::Path>(path, IdSpecification());
    if (state == IdState::Ok) {
        CheckWritten(path, IdSpecification());
        return;
    }
    Check(state == IdState::ReservedCharacter,
          "keys that were read can only hold what is reserved");
    Check(text.empty(), "a path that cannot be written gives no text");
}

void CheckText(std::string_view text, const zuv::IdSpec& spec) {
    const auto [path, state] = zuv::FromString(text, spec);
    zuv::Path expected;
    Check(state == ReadPath(text, spec, expected), "the state is that of the first bad level");
    if (state != IdState::Ok) {
        Check(path.empty(), "a text that cannot be read gives the empty path");
        return;
    }
    Check(path == expected, "the path has the text's levels");
    CheckWritten(path, spec);
    CheckWrittenForTheSystem(path);
}

/// Takes a line off the front of `text`; without a line end, everything.
std::string_view TakeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() == text.size() ? line.size() : line.size() + 1);
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    CheckText(text, IdSpecification());
    if (text.find('\n') != std::string_view::npos) {
        zuv::IdSpec spec;
        spec.chars = TakeLine(text);
        const std::string_view number = TakeLine(text);
        std::from_chars(number.data(), number.data() + number.size(), spec.maxIndex);
        CheckText(text, spec);
    }
    return 0;
}
