#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "check.h"
#include "common/raw_zam_param.h"
#include "record_lines.h"
#include "support/literal_list.h"

/// An input is a list of records in lines (record_lines.h).

namespace {

using zam_connector::common::RawZamParam;
using zam_fuzz::Check;
using List = std::vector<RawZamParam>;

/// Most none values that the positions of a list may ask for here, and most elements that its
/// vectors may announce. Both ways of rebuilding have their own limits beyond, and a run is to
/// cost milliseconds.
constexpr std::size_t kMostPositions = 20'000;
constexpr std::size_t kMostAnnounced = 500'000;
/// From here on no way of rebuilding fills a gap.
constexpr std::size_t kRefusedPosition = zam_connector::common::kMaxFilledElements + kMostPositions;

/// The position at the end of a path, 0 when there is a key. Saturates.
std::size_t LastPosition(std::string_view path) {
    if (!path.empty() && path.back() == '/') {
        path.remove_suffix(1);
    }
    std::size_t position = 0;
    for (const char digit : path.substr(path.rfind('/') + 1)) {
        if (digit < '0' || digit > '9') {
            return 0;
        }
        position =
            std::min(kRefusedPosition, position * 10 + static_cast<std::size_t>(digit - '0'));
    }
    return position;
}

std::size_t AnnouncedElements(const std::vector<unsigned char>& block) {
    std::uint64_t elements = 0;
    if (block.size() < 2 * sizeof elements ||
        block.front() != static_cast<unsigned char>(zuv::Kind::Vector)) {
        return 0;
    }
    std::memcpy(&elements, block.data() + sizeof elements, sizeof elements);
    return std::min<std::uint64_t>(elements, zam_connector::common::kMaxReservedElements);
}

bool IsCheap(const List& list) {
    std::size_t positions = 0;
    std::size_t announced = 0;
    for (const RawZamParam& record : list) {
        const std::size_t position = LastPosition(record.path);
        positions += position < kRefusedPosition ? position : 0;
        announced += AnnouncedElements(record.value);
    }
    return positions <= kMostPositions && announced <= kMostAnnounced;
}

struct Rebuilt {
    int code = 0;
    std::string text;
    zuv::Path root{zuv::Level(std::string("before"))};
    zuv::TValue tree = std::string("before");
};

Rebuilt Rebuild(const List& list) {
    Rebuilt result;
    std::tie(result.code, result.text) =
        zam_connector::common::Deserialize(list, result.root, result.tree);
    return result;
}

Rebuilt RebuildLiterally(const List& list) {
    Rebuilt result;
    std::tie(result.code, result.text) =
        zam_test::LiteralDeserialize(list, result.root, result.tree);
    return result;
}

bool IsListedCode(int code) {
    static constexpr unsigned kCodes[] = {0,           0x80000101U, 0x80000046U, 0x80000064U,
                                          0x80000065U, 0x8000005CU, 0x8000005EU, 0x8000004AU,
                                          0x8000004DU, 0x8000004BU};
    return std::find(std::begin(kCodes), std::end(kCodes), static_cast<unsigned>(code)) !=
           std::end(kCodes);
}

void CheckFlattened(const Rebuilt& rebuilt) {
    List list;
    const auto [code, text] =
        zam_connector::common::Serialize<zuv::Path>(rebuilt.root, rebuilt.tree, list);
    Check(code == 0 && text.empty(), "a tree that was rebuilt can be flattened");
    List literal;
    Check(zam_test::LiteralSerialize(rebuilt.root, rebuilt.tree, literal).first == 0,
          "a tree that was rebuilt can be flattened literally");
    Check(list == literal, "flattening gives the literal list");
    const Rebuilt again = Rebuild(list);
    Check(again.code == 0, "a list that was made from a tree can be rebuilt");
    Check(again.root == rebuilt.root, "a flattened tree keeps its root");
    Check(again.tree.IsIdenticalTo(rebuilt.tree), "a flattened tree is rebuilt identically");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const List list = zam_fuzz::ReadRecordLines({reinterpret_cast<const char*>(data), size});
    if (!IsCheap(list)) {
        return 0;
    }
    const Rebuilt rebuilt = Rebuild(list);
    const Rebuilt literal = RebuildLiterally(list);
    Check(IsListedCode(rebuilt.code), "a list fails with a code that is documented");
    Check(rebuilt.code == literal.code, "both ways of rebuilding give the same code");
    // What a standard exception says is not the same everywhere.
    Check(rebuilt.text == literal.text || static_cast<unsigned>(rebuilt.code) == 0x8000004BU,
          "both ways of rebuilding give the same text");
    Check((rebuilt.code == 0) == rebuilt.text.empty(), "failures and nothing else have a text");
    Check(rebuilt.root == literal.root, "both ways of rebuilding give the same root");
    Check(rebuilt.tree.IsIdenticalTo(literal.tree), "both ways of rebuilding give the same tree");
    if (rebuilt.code == 0) {
        CheckFlattened(rebuilt);
    }
    return 0;
}
