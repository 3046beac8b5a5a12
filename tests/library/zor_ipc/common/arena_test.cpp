#include "common/arena.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "vd/arena.h"

namespace zam_connector::common {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string TextOf(const std::function<void()>& act) {
    try {
        act();
    } catch (const std::exception& exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

class VdArena : public ::testing::Test {
protected:
    VdArena() { vd_arena_init(&arena_, bytes_, sizeof(bytes_)); }

    /// Offset of what an allocation gives; -1 for null.
    std::ptrdiff_t Alloc(std::uint32_t size, std::uint32_t align) {
        auto* const at = static_cast<unsigned char*>(vd_arena_alloc(&arena_, size, align));
        return at == nullptr ? -1 : at - bytes_;
    }

    alignas(16) unsigned char bytes_[32] = {};
    vd_arena arena_{};
};

TEST_F(VdArena, IsEmptyAtFirst) {
    EXPECT_EQ(arena_.base, bytes_);
    EXPECT_EQ(arena_.capacity, 32U);
    EXPECT_EQ(arena_.used, 0U);
}

TEST_F(VdArena, GivesRoomUpToItsCapacity) {
    EXPECT_EQ(Alloc(33, 1), -1);
    EXPECT_EQ(arena_.used, 0U) << "a refusal changed the arena";
    EXPECT_EQ(Alloc(31, 1), 0);
    EXPECT_EQ(Alloc(2, 1), -1);
    EXPECT_EQ(arena_.used, 31U);
    EXPECT_EQ(Alloc(1, 1), 31);
    EXPECT_EQ(Alloc(1, 1), -1);
    EXPECT_EQ(arena_.used, 32U);
    vd_arena_reset(&arena_);
    EXPECT_EQ(Alloc(32, 1), 0);
}

TEST_F(VdArena, AlignsOffsets) {
    struct {
        std::uint32_t used;
        std::uint32_t size;
        std::uint32_t align;
        std::ptrdiff_t offset;
        std::uint32_t usedAfter;
    } const rows[] = {
        {0, 1, 8, 0, 1},    {1, 1, 0, 1, 2},     {1, 1, 1, 1, 2},    {1, 1, 2, 2, 3},
        {1, 4, 4, 4, 8},    {1, 8, 8, 8, 16},    {8, 8, 8, 8, 16},   {9, 16, 16, 16, 32},
        {9, 17, 16, -1, 9}, {17, 1, 16, -1, 17}, {25, 1, 8, -1, 25}, {24, 8, 8, 24, 32},
        {0, 1, 32, 0, 1},   {1, 1, 32, -1, 1},   {1, 0, 32, 1, 1},   {32, 1, 1, -1, 32},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message()
                     << "used " << row.used << ", size " << row.size << ", align " << row.align);
        arena_.used = row.used;
        EXPECT_EQ(Alloc(row.size, row.align), row.offset);
        EXPECT_EQ(arena_.used, row.usedAfter);
    }
}

TEST_F(VdArena, RefusesAlignmentsThatAreNoPowerOfTwo) {
    for (const std::uint32_t align : {3U, 5U, 6U, 7U, 12U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Alloc(1, align), -1) << align;
    }
    EXPECT_EQ(arena_.used, 0U);
}

TEST_F(VdArena, RefusesSizesThatOverflow) {
    arena_.used = 5;
    EXPECT_EQ(Alloc(0xFFFFFFFF, 1), -1);
    EXPECT_EQ(Alloc(0xFFFFFFFB, 1), -1) << "used + size is 2^32";
    EXPECT_EQ(Alloc(0xFFFFFFFC, 4), -1);
    EXPECT_EQ(Alloc(1, 0x80000000), -1);
    EXPECT_EQ(arena_.used, 5U);
}

TEST_F(VdArena, RefusesAlignmentsThatOverflow) {
    // No byte of this arena is touched: the next aligned offset is 2^32.
    arena_.capacity = 0xFFFFFFFF;
    arena_.used = 0x80000001;
    EXPECT_EQ(Alloc(1, 0x80000000), -1);
    EXPECT_EQ(arena_.used, 0x80000001U);
}

TEST_F(VdArena, AlwaysHasRoomForNothing) {
    EXPECT_EQ(Alloc(0, 1), 0);
    EXPECT_EQ(Alloc(32, 1), 0);
    EXPECT_EQ(Alloc(0, 1), 32);
    EXPECT_EQ(Alloc(0, 8), 32);
    EXPECT_EQ(arena_.used, 32U);
}

TEST_F(VdArena, KeepsItsBytesWhenReset) {
    std::memset(vd_arena_alloc(&arena_, 4, 1), 0x11, 4);
    vd_arena_reset(&arena_);
    EXPECT_EQ(arena_.used, 0U);
    EXPECT_EQ(arena_.capacity, 32U);
    EXPECT_EQ(bytes_[3], 0x11);
}

TEST_F(VdArena, IsAllZeroOnceCleared) {
    std::memset(vd_arena_alloc(&arena_, 31, 1), 0x11, 31);
    ClearArena(&arena_);
    EXPECT_EQ(arena_.used, 0U);
    EXPECT_THAT(bytes_, Each(0));
}

TEST_F(VdArena, IsClearedInTheBytesInUseOnly) {
    std::memset(bytes_, 0x22, sizeof(bytes_));
    arena_.used = 4;
    ClearArena(&arena_);
    EXPECT_EQ(bytes_[3], 0);
    EXPECT_EQ(bytes_[4], 0x22);
}

TEST(StackArena, IsEmptyZeroAndOfItsCapacity) {
    StackArena<64> arena;
    EXPECT_EQ(arena.Get()->capacity, 64U);
    EXPECT_EQ(arena.Get()->used, 0U);
    for (std::uint32_t at = 0; at < 64; ++at) {
        EXPECT_EQ(arena.Get()->base[at], 0);
    }
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(arena.Get()->base) % alignof(std::max_align_t), 0U);
}

TEST(ArenaWriter, PutsTextsBehindOneAnother) {
    StackArena<8> arena;
    ArenaWriter writer(arena.Get());
    const vd_bytes first = writer.PutText("abc", "first");
    const vd_bytes empty = writer.PutText("", "empty");
    const vd_bytes second = writer.PutText(std::string_view("d\0fgh", 5), "second");
    EXPECT_EQ(first.offset, 0U);
    EXPECT_EQ(first.length, 3U);
    EXPECT_EQ(empty.offset, 0U);
    EXPECT_EQ(empty.length, 0U);
    EXPECT_EQ(second.offset, 3U);
    EXPECT_EQ(second.length, 5U);
    EXPECT_EQ(arena.Get()->used, 8U);
    EXPECT_EQ(std::memcmp(arena.Get()->base, "abcd\0fgh", 8), 0);
}

TEST(ArenaWriter, NamesFieldSizeAndLimitOfWhatDoesNotFit) {
    StackArena<8> arena;
    ArenaWriter writer(arena.Get());
    writer.PutText("abc", "first");
    EXPECT_THROW(writer.PutText("sixsix", "second"), std::length_error);
    EXPECT_EQ(arena.Get()->used, 3U) << "a refusal changed the arena";
    EXPECT_EQ(arena.Get()->base[3], 0) << "a refusal changed the arena";
    EXPECT_EQ(TextOf([&] { writer.PutText("sixsix", "second"); }),
              "second: 6 bytes do not fit, 5 of the arena's 8 bytes are free");
    EXPECT_NO_THROW(writer.PutText("fives", "third"));
    EXPECT_NO_THROW(writer.PutText("", "nothing"));
    EXPECT_THROW(writer.PutText("x", "fourth"), std::length_error);
}

TEST(ArenaWriter, RefusesSizesBeyondThoseOfAnArena) {
    // Only the size is looked at: a text of 2^32 + 1 bytes must not be taken for one of 1 byte.
    StackArena<8> arena;
    ArenaWriter writer(arena.Get());
    const std::string_view huge("x", (std::size_t{1} << 32U) + 1);
    EXPECT_THROW(writer.PutText(huge, "huge"), std::length_error);
    EXPECT_EQ(arena.Get()->used, 0U);
}

TEST(ArenaWriter, RefusesANullArena) {
    EXPECT_THROW(ArenaWriter(nullptr), std::invalid_argument);
}

TEST(ArenaReader, GivesTheStretchesOfAnArenaAndRefusesAllOthers) {
    unsigned char bytes[16] = "abcdefghijklmno";
    vd_arena arena{};
    vd_arena_init(&arena, bytes, sizeof(bytes));
    arena.used = 10;
    const ArenaReader reader(&arena);
    struct {
        vd_bytes stretch;
        const char* text;  ///< null: refused
    } const rows[] = {
        {{0, 0}, ""},
        {{0, 10}, "abcdefghij"},
        {{3, 4}, "defg"},
        {{9, 1}, "j"},
        {{10, 0}, ""},
        {{0, 11}, nullptr},
        {{10, 1}, nullptr},
        {{11, 0}, nullptr},
        {{9, 2}, nullptr},
        {{12, 2}, nullptr},
        {{0, 16}, nullptr},
        {{0, 0xFFFFFFFF}, nullptr},
        {{0xFFFFFFFF, 0}, nullptr},
        {{0xFFFFFFFF, 1}, nullptr},
        {{1, 0xFFFFFFFF}, nullptr},
        {{0xFFFFFFFF, 0xFFFFFFFF}, nullptr},
        {{0x80000000, 0x80000000}, nullptr},
        {{0xFFFFFFFA, 10}, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message()
                     << "offset " << row.stretch.offset << ", length " << row.stretch.length);
        if (row.text != nullptr) {
            EXPECT_EQ(reader.Text(row.stretch, "field"), row.text);
        } else {
            EXPECT_THROW(reader.Text(row.stretch, "field"), std::out_of_range);
        }
    }
}

TEST(ArenaReader, NamesFieldStretchAndLimit) {
    unsigned char bytes[4] = {};
    vd_arena arena{};
    vd_arena_init(&arena, bytes, sizeof(bytes));
    arena.used = 2;
    EXPECT_THAT(TextOf([&] {
                    ArenaReader(&arena).Text({1, 7}, "deviceName");
                }),
                AllOf(HasSubstr("deviceName"), HasSubstr("offset 1"), HasSubstr("length 7"),
                      HasSubstr("2 bytes")));
}

TEST(ArenaReader, TakesANullArenaForAnEmptyOne) {
    const ArenaReader reader(nullptr);
    EXPECT_EQ(reader.Text({0, 0}, "field"), "");
    EXPECT_THROW(reader.Text({0, 1}, "field"), std::out_of_range);
    EXPECT_THROW(reader.Text({1, 0}, "field"), std::out_of_range);
}

}  // namespace
}  // namespace zam_connector::common
