#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <stdexcept>

#include "common/raw_zam_param_casts.h"
#include "support/literal_list.h"
#include "support/pieces.h"

namespace zam_connector::common {
namespace {

using List = std::vector<RawZamParam>;
using Bytes = std::vector<unsigned char>;
using zam_test::Block;
using zuv::TValue;

TValue GoldenTree() {
    return zuv::Map{{"blob", zuv::Blob{1, 2, 3}},
                    {"list", zuv::MakeVector(1, zuv::Map{{"x", "text"}}, zuv::Vector{},
                                             static_cast<signed char>(-5))},
                    {"mode", true},
                    {"time", qor::types::Timestamp(5)}};
}

List GoldenList() {
    List list;
    Serialize<zuv::Path>({"r"}, GoldenTree(), list);
    return list;
}

Bytes GoldenPiece() {
    List list = GoldenList();
    list.push_back({{1, 2, 3}, "damaged/"});
    Bytes bytes(1000);
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), 1000);
    bytes.resize(CastToVd(list, &arena).records.length);
    return bytes;
}

/// Calls `check` with every way of damaging `golden` in one place: each bit flipped, each byte
/// 00, 7F, 80 and FF, each length cut.
template <typename Text>
void MangleEach(const Text& golden, const std::function<void(const Text&)>& check) {
    for (std::size_t at = 0; at < golden.size(); ++at) {
        check(Text(golden.begin(), golden.begin() + static_cast<std::ptrdiff_t>(at)));
        Text mangled = golden;
        const auto put = [&](unsigned value) {
            mangled[at] = static_cast<typename Text::value_type>(value);
            check(mangled);
        };
        const auto byte = static_cast<unsigned char>(golden[at]);
        for (unsigned bit = 0; bit < 8; ++bit) {
            put(byte ^ (1U << bit));
        }
        for (const unsigned value : {0x00U, 0x7FU, 0x80U, 0xFFU}) {
            put(value);
        }
    }
}

/// How every message begins that a rebuild can end with, by its code.
bool IsListed(const std::pair<int, std::string>& result) {
    static const std::map<unsigned, std::string> kListed{
        {0x00000000U, ""},
        {0x80000046U, "[RawZamParams] Str to path fail: src = '"},
        {0x80000064U, "[RawZamParams] non-rooted path: root = '"},
        {0x80000065U, "[RawZamParams] path level jump: prev = '"},
        {0x8000005cU, "[RawZamParams] Insufficient raw data size: fact/plan = "},
        {0x8000005eU, "[RawZamParams] Invalid value index: "},
        {0x8000004aU, "zuv: Path or id does not correspond to contained item"},
        {0x8000004dU, "zuv: Item with given id already exists"},
        {0x8000004bU, "zuv: std::exception: "}};
    const auto found = kListed.find(static_cast<unsigned>(result.first));
    return found != kListed.end() && result.second.starts_with(found->second);
}

TEST(MangledList, IsRebuiltOrRefusedInListedWords) {
    const List golden = GoldenList();
    std::set<int> codes;
    const auto check = [&codes](const List& list) {
        zuv::Path root;
        TValue tree;
        const auto result = Deserialize(list, root, tree);
        EXPECT_TRUE(IsListed(result)) << result.second;
        codes.insert(result.first);
        zuv::Path literalRoot;
        TValue literalTree;
        const auto literal = zam_test::LiteralDeserialize(list, literalRoot, literalTree);
        EXPECT_EQ(result.first, literal.first) << result.second << '\n' << literal.second;
        if (!literal.second.starts_with("zuv: std::exception: ")) {
            EXPECT_EQ(result.second, literal.second);
        }
        EXPECT_TRUE(tree.IsIdenticalTo(literalTree));
        zuv::Path piecesRoot;
        TValue piecesTree;
        common::RawZamPieces pieces;
        zam_test::AppendInPieces(list, 3, pieces);
        EXPECT_EQ(Deserialize(pieces, piecesRoot, piecesTree), result);
        EXPECT_TRUE(piecesTree.IsIdenticalTo(tree));
    };
    for (std::size_t index = 0; index < golden.size(); ++index) {
        List list = golden;
        MangleEach<Bytes>(golden[index].value, [&](const Bytes& value) {
            list[index].value = value;
            check(list);
        });
        list = golden;
        MangleEach<std::string>(golden[index].path, [&](const std::string& path) {
            list[index].path = path;
            check(list);
        });
        list = golden;
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
        check(list);
    }
    EXPECT_EQ(codes.size(), 9U) << "success and every code";
}

TEST(MangledPiece, IsDecodedToWhatItSaysOrRefused) {
    int good = 0;
    MangleEach<Bytes>(GoldenPiece(), [&good](const Bytes& bytes) {
        Bytes buffer = bytes;
        vd_arena arena{};
        const auto size = static_cast<std::uint32_t>(buffer.size());
        vd_arena_init(&arena, buffer.data(), size);
        arena.used = size;
        List list;
        try {
            list = CastFromVd({{0, size}}, &arena);
        } catch (const std::invalid_argument&) {
            return;
        }
        ++good;
        Bytes again(1000);
        vd_arena_init(&arena, again.data(), 1000);
        again.resize(CastToVd(list, &arena).records.length);
        EXPECT_EQ(again, bytes) << "what is accepted is what would be written";
    });
    EXPECT_GT(good, 100);
}

TEST(MangledBlock, IsDecodedOrRefused) {
    for (const RawZamParam& record : GoldenList()) {
        MangleEach<Bytes>(record.value, [](const Bytes& value) {
            TValue out;
            try {
                RawZamParam{value, ""}.DeserializeValue(out);
            } catch (const std::logic_error&) {  // zuv::Error and std::length_error are both
            }
        });
    }
}

}  // namespace
}  // namespace zam_connector::common
