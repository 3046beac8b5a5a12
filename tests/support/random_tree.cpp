#include "support/random_tree.h"

#include <array>
#include <cstring>
#include <string>
#include <string_view>

namespace zam_test {
namespace {

constexpr unsigned kMaxDepth = 12;
constexpr std::size_t kMaxChildren = 6;
constexpr std::size_t kMaxTextBytes = 40;

/// No digit among the first 40, nothing that the paths of this system reserve.
constexpr std::string_view kKeyCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDE_-. $:~\x01\xC3\xA9\xFF"
    "0123456789";
constexpr std::size_t kFirstDigit = kKeyCharacters.size() - 10;

}  // namespace

std::size_t RandomTrees::Below(std::size_t bound) {
    return random_() % bound;
}

/// A word near a limit of some kind half of the time.
std::uint64_t RandomTrees::Word() {
    constexpr std::array<std::uint64_t, 14> kLimits{0,
                                                    0x7F,
                                                    0x80,
                                                    0xFF,
                                                    0x7FFF,
                                                    0x8000,
                                                    0xFFFF,
                                                    0x7FFFFFFF,
                                                    0x80000000,
                                                    0xFFFFFFFF,
                                                    0x7FFFFFFFFFFFFFFF,
                                                    1ULL << 63U,
                                                    ~0ULL,
                                                    1};
    const std::uint64_t word = random_();
    return Below(2) == 0 ? word : kLimits[Below(kLimits.size())];
}

std::string RandomTrees::Text() {
    std::string text(Below(kMaxTextBytes), '\0');
    const bool isPlain = Below(2) == 0;
    for (char& character : text) {
        character = static_cast<char>(isPlain ? ' ' + Below(95) : Below(256));
    }
    return text;
}

std::string RandomTrees::Key() {
    if (keys_ == TreeKeys::Any && Below(3) == 0) {
        return Text();
    }
    std::string key(1, kKeyCharacters[Below(kFirstDigit)]);
    for (std::size_t left = Below(12); left > 0; --left) {
        key.push_back(kKeyCharacters[Below(kKeyCharacters.size())]);
    }
    return key;
}

zuv::TValue RandomTrees::Leaf(zuv::Kind kind) {
    const std::uint64_t word = Word();
    switch (kind) {
        case zuv::Kind::Bool:
            return (word & 1U) != 0;
        case zuv::Kind::Int8:
            return static_cast<signed char>(word);
        case zuv::Kind::Int16:
            return static_cast<short>(word);
        case zuv::Kind::Int32:
            return static_cast<int>(word);
        case zuv::Kind::Int64:
            return static_cast<long>(word);
        case zuv::Kind::Double: {
            double number = 0;
            std::memcpy(&number, &word, sizeof number);
            return Below(2) == 0 ? number : static_cast<double>(static_cast<long>(word)) / 8;
        }
        case zuv::Kind::Timestamp:
            return qor::types::Timestamp(static_cast<std::int64_t>(word));
        case zuv::Kind::String:
            return Text();
        case zuv::Kind::Blob: {
            const std::string text = Text();
            return zuv::Blob(text.begin(), text.end());
        }
        case zuv::Kind::UInt8:
            return static_cast<unsigned char>(word);
        case zuv::Kind::UInt16:
            return static_cast<unsigned short>(word);
        case zuv::Kind::UInt32:
            return static_cast<unsigned int>(word);
        case zuv::Kind::UInt64:
            return static_cast<unsigned long>(word);
        default:
            return {};
    }
}

zuv::TValue RandomTrees::Node(std::size_t& budget, unsigned depth) {
    --budget;
    const auto kind = static_cast<zuv::Kind>(Below(zuv::kKindCount));
    // Near the top, containers are made more often, or most trees would be single leaves.
    const bool isContainer = depth < 3 ? Below(2) == 0 : Below(8) == 0;
    if (!isContainer && kind != zuv::Kind::Vector && kind != zuv::Kind::Map) {
        return Leaf(kind);
    }
    const std::size_t children = depth < kMaxDepth ? Below(kMaxChildren + 1) : 0;
    if (Below(2) == 0) {
        zuv::Vector vector;
        for (std::size_t left = children; left > 0 && budget > 0; --left) {
            vector.push_back(Node(budget, depth + 1));
        }
        return vector;
    }
    zuv::Map map;
    for (std::size_t left = children; left > 0 && budget > 0; --left) {
        map.insert_or_assign(Key(), Node(budget, depth + 1));
    }
    return map;
}

zuv::TValue RandomTrees::Next(std::size_t nodes) {
    return Node(nodes, 0);
}

zuv::Path RandomTrees::NextPath() {
    zuv::Path path;
    for (std::size_t levels = Below(7); levels > 0; --levels) {
        if (Below(2) == 0) {
            path.emplace_back(Word());
        } else {
            path.emplace_back(Key());
        }
    }
    return path;
}

}  // namespace zam_test
