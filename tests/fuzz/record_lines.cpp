#include "record_lines.h"

#include <cctype>
#include <cstdint>
#include <string>
#include <utility>

#include "zuv/value.h"

namespace zam_fuzz {
namespace {

using zam_connector::common::RawZamParam;
using Bytes = std::vector<unsigned char>;

/// Takes what stands before the first `mark` off the front, and the mark with it.
std::string_view Take(std::string_view& text, char mark) {
    const std::string_view taken = text.substr(0, text.find(mark));
    text.remove_prefix(taken.size() == text.size() ? taken.size() : taken.size() + 1);
    return taken;
}

std::uint64_t Number(std::string_view text) {
    std::uint64_t number = 0;
    for (const char character : text) {
        if (character >= '0' && character <= '9') {
            number = number * 10 + static_cast<std::uint64_t>(character - '0');
        }
    }
    return number;
}

void PutWord(Bytes& block, std::uint64_t word) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
        block.push_back(static_cast<unsigned char>(word >> shift));
    }
}

Bytes BlockOfHex(std::string_view digits) {
    Bytes block;
    for (; digits.size() >= 2; digits.remove_prefix(2)) {
        unsigned byte = 0;
        for (const char digit : digits.substr(0, 2)) {
            const int letter = std::tolower(static_cast<unsigned char>(digit));
            byte = byte << 4U | (static_cast<unsigned>(letter <= '9' ? letter : letter + 9) & 0xFU);
        }
        block.push_back(static_cast<unsigned char>(byte));
    }
    return block;
}

Bytes BlockOfWords(std::string_view text) {
    const std::uint64_t index = Number(Take(text, ':'));
    const std::string_view payload = Take(text, ':');
    std::string data(text);
    if (index == static_cast<std::uint64_t>(zuv::Kind::String)) {
        data.push_back('\0');
    }
    const bool isSized = index == static_cast<std::uint64_t>(zuv::Kind::String) ||
                         index == static_cast<std::uint64_t>(zuv::Kind::Blob);
    Bytes block;
    PutWord(block, index);
    PutWord(block, payload.empty() && isSized ? data.size() : Number(payload));
    block.insert(block.end(), data.begin(), data.end());
    return block;
}

}  // namespace

std::vector<RawZamParam> ReadRecordLines(std::string_view text) {
    std::vector<RawZamParam> list;
    while (!text.empty()) {
        std::string_view line = Take(text, '\n');
        const std::string_view value = Take(line, ' ');
        const bool isHex = !value.empty() && value.front() == 'x';
        list.push_back(
            {isHex ? BlockOfHex(value.substr(1)) : BlockOfWords(value), std::string(line)});
    }
    return list;
}

}  // namespace zam_fuzz
