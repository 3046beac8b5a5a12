#include <gtest/gtest.h>

#include <stdexcept>

#include "common/raw_zam_param_casts.h"
#include "common/raw_zam_pieces.h"
#include "support/literal_list.h"
#include "support/pieces.h"
#include "support/random_tree.h"

namespace zam_connector::common {
namespace {

using zam_test::AppendInPieces;
using zam_test::Block;
using Bytes = std::vector<unsigned char>;
using List = std::vector<RawZamParam>;

void Append(RawZamPieces& pieces, Bytes bytes) {
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    arena.used = arena.capacity;
    pieces.Append({{0, arena.used}}, &arena);
}

TEST(RawZamPieces, WithoutARecordAreAnEmptyList) {
    RawZamPieces pieces;
    Append(pieces, {});
    EXPECT_EQ(pieces.Count(), 0U);
    EXPECT_TRUE(pieces.Pieces().empty());
    zuv::Path root{"kept"};
    zuv::TValue tree = true;
    EXPECT_EQ(Deserialize(pieces, root, tree), Deserialize(List(), root, tree));
    EXPECT_EQ(root, zuv::Path{"kept"});
    EXPECT_EQ(tree, zuv::TValue(true));
}

TEST(RawZamPieces, RefuseAMangledPieceWholly) {
    const Bytes sound{0x01, 0x06, 0x08, 0x02, 5, 0, 0, 0, 0, 0, 0, 0, 0x62, 0x2F};
    RawZamPieces pieces;
    Append(pieces, sound);
    for (std::size_t size = 1; size < sound.size(); ++size) {
        EXPECT_THROW(Append(pieces, Bytes(sound.begin(), sound.begin() + static_cast<long>(size))),
                     std::invalid_argument);
    }
    Bytes second = sound;
    second.insert(second.end(), {0x11, 0, 0});
    EXPECT_THROW(Append(pieces, second), std::invalid_argument);
    second = sound;
    second[0] = 2;
    EXPECT_THROW(Append(pieces, second), std::invalid_argument);
    // A value whose index word would have been left out.
    EXPECT_THROW(Append(pieces, {0x01, 0x10, 0x08, 0x00, 6, 0, 0, 0, 0, 0, 0, 0}),
                 std::invalid_argument);
    EXPECT_EQ(pieces.Count(), 1U);
    EXPECT_EQ(pieces.Pieces().size(), 1U);
}

TEST(RawZamPieces, RefuseWhatLiesOutsideTheArena) {
    Bytes bytes{0x01, 0x00, 0x00, 0x00};
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), 4);
    arena.used = 3;
    RawZamPieces pieces;
    EXPECT_THROW(pieces.Append({{0, 4}}, &arena), std::out_of_range);
    EXPECT_THROW(pieces.Append({{4, 1}}, &arena), std::out_of_range);
    EXPECT_THROW(pieces.Append({{0xFFFFFFFF, 2}}, &arena), std::out_of_range);
    EXPECT_EQ(pieces.Count(), 0U);
}

/// Of an arena only the stretch that the message describes.
TEST(RawZamPieces, KeepNothingBesideTheirStretch) {
    const Bytes sound{0x01, 0x06, 0x08, 0x02, 5, 0, 0, 0, 0, 0, 0, 0, 0x62, 0x2F};
    Bytes bytes(5, 0xAA);
    bytes.insert(bytes.end(), sound.begin(), sound.end());
    bytes.insert(bytes.end(), 7, 0xBB);
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    arena.used = arena.capacity;
    RawZamPieces pieces;
    pieces.Append({{5, static_cast<std::uint32_t>(sound.size())}}, &arena);
    ASSERT_EQ(pieces.Pieces().size(), 1U);
    EXPECT_EQ(Bytes(pieces.Pieces()[0].begin(), pieces.Pieces()[0].end()), sound);
    bytes.assign(bytes.size(), 0);  // what was kept is a copy
    zuv::Path root;
    zuv::TValue tree;
    EXPECT_EQ(Deserialize(pieces, root, tree).first, 0);
    EXPECT_EQ(tree, zuv::TValue(5));
}

/// However a list is cut, its pieces are rebuilt as it is itself, and refused in the same words.
TEST(RawZamPieces, AreRebuiltAsTheListThatTheyHold) {
    zam_test::RandomTrees trees(20241121U);
    int good = 0;
    for (int round = 0; round < 2000; ++round) {
        List list;
        const auto flattened = Serialize(trees.NextPath(), trees.Next(), list);
        if (flattened.first != 0) {
            continue;
        }
        for (std::size_t damage = trees.Below(4); damage > 2; damage = 0) {
            RawZamParam& one = list[trees.Below(list.size())];
            switch (trees.Below(4)) {
                case 0:
                    one.value.resize(trees.Below(one.value.size() + 1));
                    break;
                case 1:
                    one.value[trees.Below(one.value.size())] ^= 0x10U;
                    break;
                case 2:
                    one.path += "k/";
                    break;
                default:
                    one.path.clear();
            }
        }
        zuv::Path root;
        zuv::TValue tree;
        const auto expected = Deserialize(list, root, tree);
        zuv::Path piecesRoot;
        zuv::TValue piecesTree;
        RawZamPieces pieces;
        AppendInPieces(list, 1 + trees.Below(12), pieces);
        ASSERT_EQ(pieces.Count(), list.size());
        ASSERT_EQ(Deserialize(pieces, piecesRoot, piecesTree), expected);
        ASSERT_EQ(piecesRoot, root);
        ASSERT_TRUE(piecesTree.IsIdenticalTo(tree));
        good += expected.first == 0 ? 1 : 0;
    }
    EXPECT_GT(good, 1000);
    EXPECT_LT(good, 2000);
}

}  // namespace
}  // namespace zam_connector::common
