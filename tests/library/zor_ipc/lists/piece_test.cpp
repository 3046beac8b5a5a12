#include <gtest/gtest.h>

#include <stdexcept>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "support/literal_list.h"

namespace zam_connector::common {
namespace {

using zam_test::Block;
using Bytes = std::vector<unsigned char>;
using List = std::vector<RawZamParam>;

/// An arena on the heap, for pieces of any size.
class Arena {
public:
    explicit Arena(std::uint32_t capacity = 676'000) : bytes_(capacity) {
        vd_arena_init(&arena_, bytes_.data(), capacity);
    }

    /// One that holds these bytes.
    explicit Arena(const Bytes& bytes) : bytes_(bytes) {
        const auto size = static_cast<std::uint32_t>(bytes.size());
        vd_arena_init(&arena_, bytes_.data(), size);
        arena_.used = size;
    }

    vd_arena* Get() { return &arena_; }
    Bytes Used() const { return {bytes_.begin(), bytes_.begin() + arena_.used}; }
    qx_zam_connector_ZamTypes_ZamParams All() const { return {{0, arena_.used}}; }

private:
    Bytes bytes_;
    vd_arena arena_{};
};

Bytes Encode(const List& list) {
    Arena arena;
    const auto piece = CastToVd(list, arena.Get());
    EXPECT_EQ(piece.records.offset, 0U);
    EXPECT_EQ(piece.records.length, arena.Used().size());
    return arena.Used();
}

List DecodePiece(const Bytes& bytes) {
    Arena arena(bytes);
    return CastFromVd(arena.All(), arena.Get());
}

struct PieceRow {
    List list;
    Bytes bytes;
};

const std::vector<PieceRow>& PieceTable() {
    static const std::vector<PieceRow> table{
        {{}, {}},
        {{{Block(6, 5), "b/"}}, {0x01, 0x06, 0x08, 0x02, 0x05, 0, 0, 0, 0, 0, 0, 0, 0x62, 0x2F}},
        {{{Block(2, 0), ""}, {Block(10, 3, std::string("ab\0", 3)), "a/"}},
         {0x01, 0x02, 8, 0, 0, 0, 0, 0, 0, 0,   0,   0, 0x0A, 11,
          2,    3,    0, 0, 0, 0, 0, 0, 0, 'a', 'b', 0, 'a',  '/'}},
        // Value blocks that decode to nothing cross as they stand.
        {{{{}, ""}}, {0x01, 0x10, 0, 0}},
        {{{{6, 0, 0}, "x"}}, {0x01, 0x10, 3, 1, 6, 0, 0, 'x'}},
        {{{Bytes(7, 0), ""}}, {0x01, 0x10, 7, 0, 0, 0, 0, 0, 0, 0, 0}},
        {{{Bytes(8, 0), ""}}, {0x01, 0x00, 0, 0}},
        {{{{15, 0, 0, 0, 0, 0, 0, 0, 9}, ""}}, {0x01, 0x0F, 1, 0, 9}},
        {{{{16, 0, 0, 0, 0, 0, 0, 0}, ""}}, {0x01, 0x10, 8, 0, 16, 0, 0, 0, 0, 0, 0, 0}},
        {{{{1, 0, 0, 0, 0, 0, 0, 1}, ""}}, {0x01, 0x10, 8, 0, 1, 0, 0, 0, 0, 0, 0, 1}},
    };
    return table;
}

TEST(Piece, HasTheseBytes) {
    for (const PieceRow& row : PieceTable()) {
        EXPECT_EQ(Encode(row.list), row.bytes);
        EXPECT_EQ(DecodePiece(row.bytes), row.list);
    }
}

TEST(Piece, WritesLengthsInSevenBitGroups) {
    const auto head = [](std::size_t value, std::size_t path) {
        const Bytes bytes = Encode({{Bytes(value, 0xFF), std::string(path, 'p')}});
        EXPECT_EQ(DecodePiece(bytes), (List{{Bytes(value, 0xFF), std::string(path, 'p')}}));
        return Bytes(bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() - value - path));
    };
    EXPECT_EQ(head(127, 0), (Bytes{0x01, 0x10, 0x7F, 0x00}));
    EXPECT_EQ(head(128, 127), (Bytes{0x01, 0x10, 0x80, 0x01, 0x7F}));
    EXPECT_EQ(head(300, 128), (Bytes{0x01, 0x10, 0xAC, 0x02, 0x80, 0x01}));
    EXPECT_EQ(head(16383, 0), (Bytes{0x01, 0x10, 0xFF, 0x7F, 0x00}));
    EXPECT_EQ(head(16384, 16383), (Bytes{0x01, 0x10, 0x80, 0x80, 0x01, 0xFF, 0x7F}));
    EXPECT_EQ(head(0, 16384), (Bytes{0x01, 0x10, 0x00, 0x80, 0x80, 0x01}));
}

TEST(Piece, OfTheLargestWeightFitsItsArena) {
    // Ten records whose values and paths come to 675999 bytes together.
    List list;
    std::size_t left = 675'999;
    for (int record = 0; record < 9; ++record) {
        list.push_back({Block(11, 40'000, std::string(40'000, 'x')), std::string(27'000, 'p')});
        left -= 67'016;
    }
    const std::size_t blob = left - 16 - 27'000;
    list.push_back({Block(11, blob, std::string(blob, 'x')), std::string(27'000, 'p')});
    std::size_t weight = 0;
    for (const RawZamParam& record : list) {
        weight += record.value.size() + record.path.size();
    }
    ASSERT_EQ(weight, 675'999U);
    const Bytes bytes = Encode(list);
    EXPECT_EQ(bytes.size(), 675'990U);
    EXPECT_EQ(DecodePiece(bytes), list);
}

TEST(Piece, OfOneRecordOfTheLargestWeightFits) {
    const List list{{Block(11, 675'983, std::string(675'983, 'x')), ""}};
    EXPECT_EQ(DecodePiece(Encode(list)), list);
}

TEST(Piece, ThatDoesNotFitThrowsAndLeavesTheArenaAsItWas) {
    const List list{{Block(6, 5), "b/"}};
    Arena exact(14);
    EXPECT_EQ(CastToVd(list, exact.Get()).records.length, 14U);
    Arena small(13);
    EXPECT_THROW(CastToVd(list, small.Get()), std::length_error);
    EXPECT_EQ(small.Get()->used, 0U);
    EXPECT_THROW(CastToVd(list, nullptr), std::invalid_argument);
    EXPECT_THROW(CastToVd({}, nullptr), std::invalid_argument);
}

TEST(Piece, OfDamagedBlocksMayBeLargerThanItsWeightAndThenDoesNotFit) {
    List list;
    std::size_t weight = 0;
    for (int record = 0; record < 10; ++record) {
        const std::size_t bytes = record == 9 ? 675'999 - weight - 20'000 : 47'600;
        list.push_back({Bytes(bytes, 0xFF), std::string(20'000, 'p')});
        weight += bytes + 20'000;
    }
    ASSERT_EQ(weight, 675'999U);
    Arena arena;
    EXPECT_THROW(CastToVd(list, arena.Get()), std::length_error);
    EXPECT_EQ(arena.Get()->used, 0U);
    Arena larger(676'070);
    EXPECT_EQ(CastToVd(list, larger.Get()).records.length, 676'070U);
}

TEST(Piece, RefusesLengthsBeyondItsForm) {
    Arena arena(4'200'000);
    const std::size_t limit = (1U << 21U) - 1;
    EXPECT_NO_THROW(CastToVd(List{{{}, std::string(limit, 'p')}}, arena.Get()));
    EXPECT_THROW(CastToVd(List{{{}, std::string(limit + 1, 'p')}}, arena.Get()), std::length_error);
    EXPECT_THROW(CastToVd(List{{Bytes(limit + 1, 0xFF), ""}}, arena.Get()), std::length_error);
}

TEST(Piece, StandsBehindWhatTheArenaHolds) {
    Arena arena;
    ASSERT_NE(vd_arena_alloc(arena.Get(), 5, 1), nullptr);
    const List list{{Block(6, 5), "b/"}};
    const auto piece = CastToVd(list, arena.Get());
    EXPECT_EQ(piece.records.offset, 5U);
    EXPECT_EQ(piece.records.length, 14U);
    EXPECT_EQ(CastFromVd(piece, arena.Get()), list);
}

TEST(Piece, IsAppendedToWhatIsThere) {
    Arena arena;
    const List list{{Block(6, 5), "b/"}};
    const auto piece = CastToVd(list, arena.Get());
    List records{{Block(0, 0), "a/"}};
    AppendFromVd(piece, arena.Get(), records);
    EXPECT_EQ(records, (List{{Block(0, 0), "a/"}, {Block(6, 5), "b/"}}));
}

struct WrongPiece {
    Bytes bytes;
    std::string text;
};

TEST(Piece, RefusesWhatItDoesNotWrite) {
    const std::string before = "piece of raw parameters, before byte ";
    const std::vector<WrongPiece> table{
        {{0x00}, before + "1 of 1: version 0, only 1 is known"},
        {{0x02, 0x10, 0, 0}, before + "1 of 4: version 2, only 1 is known"},
        {{0x01}, before + "1 of 1: no record"},
        {{0x01, 0x11, 0, 0}, before + "2 of 4: tag 17, at most 16 is known"},
        {{0x01, 0xFF, 0, 0}, before + "2 of 4: tag 255, at most 16 is known"},
        {{0x01, 0x10}, before + "2 of 2: 1 bytes are announced, 0 are left"},
        {{0x01, 0x10, 0}, before + "3 of 3: 1 bytes are announced, 0 are left"},
        {{0x01, 0x10, 0x80}, before + "3 of 3: 1 bytes are announced, 0 are left"},
        {{0x01, 0x10, 1, 0}, before + "4 of 4: 1 bytes are announced, 0 are left"},
        {{0x01, 0x10, 0, 1}, before + "4 of 4: 1 bytes are announced, 0 are left"},
        {{0x01, 0x10, 1, 1, 5}, before + "5 of 5: 1 bytes are announced, 0 are left"},
        {{0x01, 0x10, 0xFF, 0xFF, 0x7F, 0},
         before + "6 of 6: 2097151 bytes are announced, 0 are left"},
        {{0x01, 0x10, 0xFF, 0xFF, 0xFF, 0x7F, 0}, before + "5 of 7: a length of more than 3 bytes"},
        {{0x01, 0x10, 0x80, 0x00, 0}, before + "4 of 5: a length that has a shorter form"},
        {{0x01, 0x10, 0xFF, 0x00, 0}, before + "4 of 5: a length that has a shorter form"},
        {{0x01, 0x10, 0, 0x81, 0x80, 0x00}, before + "6 of 6: a length that has a shorter form"},
        {{0x01, 0x10, 8, 0, 6, 0, 0, 0, 0, 0, 0, 0},
         before + "12 of 12: a value in full that has a shorter form"},
        {{0x01, 0x10, 0, 0, 0x11}, before + "5 of 5: tag 17, at most 16 is known"},
    };
    for (const WrongPiece& row : table) {
        Arena arena(row.bytes);
        List records{{Block(0, 0), "a/"}};
        try {
            AppendFromVd(arena.All(), arena.Get(), records);
            ADD_FAILURE() << row.text;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(error.what(), row.text);
        }
        EXPECT_EQ(records, (List{{Block(0, 0), "a/"}}));
    }
}

TEST(Piece, TakesItsBoundsFromTheBytesInUse) {
    Arena arena(Bytes{0x01, 0x10, 0, 0});
    EXPECT_THROW(CastFromVd({{0, 5}}, arena.Get()), std::out_of_range);
    EXPECT_THROW(CastFromVd({{1, 4}}, arena.Get()), std::out_of_range);
    EXPECT_THROW(CastFromVd({{0xFFFFFFFF, 0xFFFFFFFF}}, arena.Get()), std::out_of_range);
    EXPECT_TRUE(CastFromVd({{0, 0}}, nullptr).empty());
    EXPECT_THROW(CastFromVd({{0, 1}}, nullptr), std::out_of_range);
}

}  // namespace
}  // namespace zam_connector::common
