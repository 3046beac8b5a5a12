#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <stdexcept>

#include "common/arena.h"
#include "support/conversions.h"

namespace zam_connector::common {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zam_test::Bytes;
using zam_test::TextOf;
using zam_test::UsedOf;

void ExpectStretch(vd_bytes stretch, std::uint32_t offset, std::uint32_t length) {
    EXPECT_EQ(stretch.offset, offset);
    EXPECT_EQ(stretch.length, length);
}

TEST(HeapArena, IsEmptyZeroAndOfItsCapacity) {
    for (const std::uint32_t capacity : {1U, 160U, 21'216U, 676'000U}) {
        HeapArena arena(capacity);
        EXPECT_EQ(arena.Get()->capacity, capacity);
        EXPECT_EQ(arena.Get()->used, 0U);
        for (std::uint32_t at = 0; at < capacity; ++at) {
            ASSERT_EQ(arena.Get()->base[at], 0);
        }
    }
}

TEST(HeapArena, IsZeroAgainOnceCleared) {
    HeapArena arena(64);
    std::memset(vd_arena_alloc(arena.Get(), 64, 1), 0xA5, 64);
    ClearArena(arena.Get());
    EXPECT_EQ(arena.Get()->used, 0U);
    for (std::uint32_t at = 0; at < 64; ++at) {
        EXPECT_EQ(arena.Get()->base[at], 0);
    }
}

TEST(ClearingAnArena, WithoutABufferDoesNothing) {
    vd_arena arena{};
    ClearArena(&arena);
    EXPECT_EQ(arena.used, 0U);
}

TEST(WrittenSequence, StandsAlignedToFourBytes) {
    for (std::uint32_t before = 0; before <= 4; ++before) {
        SCOPED_TRACE(before);
        HeapArena arena(32);
        ArenaWriter writer(arena.Get());
        writer.PutText(std::string(before, 't'), "text");
        const std::uint32_t offset = (before + 3) / 4 * 4;
        ExpectStretch(writer.PutSequence(std::vector<std::uint16_t>{0x0102, 0x0304, 0x0506}, "s"),
                      offset, 6);
        EXPECT_EQ(arena.Get()->used, offset + 6);
        EXPECT_EQ(std::memcmp(arena.Get()->base + offset, "\x02\x01\x04\x03\x06\x05", 6), 0);
        for (std::uint32_t gap = before; gap < offset; ++gap) {
            EXPECT_EQ(arena.Get()->base[gap], 0);
        }
    }
}

TEST(WrittenSequence, OfNothingTakesNoRoomEvenWhereNoneIsLeft) {
    HeapArena arena(3);
    ArenaWriter writer(arena.Get());
    writer.PutText("abc", "text");
    ExpectStretch(writer.PutSequence(std::vector<std::uint32_t>{}, "numbers"), 0, 0);
    ExpectStretch(writer.PutTexts({}, "texts"), 0, 0);
    EXPECT_EQ(arena.Get()->used, 3U);
}

TEST(WrittenSequence, FitsExactlyOrNotAtAll) {
    HeapArena arena(12);
    ArenaWriter writer(arena.Get());
    writer.PutText("a", "text");
    // Its place begins at byte 4.
    EXPECT_EQ(TextOf<std::length_error>(
                  [&] { writer.PutSequence(std::vector<std::uint8_t>(9), "numbers"); }),
              "numbers: 9 bytes do not fit, 11 of the arena's 12 bytes are free");
    EXPECT_EQ(arena.Get()->used, 1U) << "a refusal changed the arena";
    ExpectStretch(writer.PutSequence(std::vector<std::uint8_t>(8), "numbers"), 4, 8);
}

TEST(WrittenTexts, StandBeforeTheSequenceOfTheirStretches) {
    HeapArena arena(64);
    ArenaWriter writer(arena.Get());
    ExpectStretch(writer.PutTexts({"abc", "", "de"}, "texts"), 8, 24);
    EXPECT_EQ(UsedOf(arena.Get()), (Bytes{'a', 'b', 'c', 'd', 'e', 0, 0, 0,  //
                                          0,   0,   0,   0,   3,   0, 0, 0,  //
                                          0,   0,   0,   0,   0,   0, 0, 0,  //
                                          3,   0,   0,   0,   2,   0, 0, 0}));
}

TEST(WrittenTexts, NameTheirFieldWhenTheyDoNotFit) {
    HeapArena arena(11);
    ArenaWriter writer(arena.Get());
    EXPECT_EQ(TextOf<std::length_error>([&] { writer.PutTexts({"abcd"}, "texts"); }),
              "texts: 8 bytes do not fit, 7 of the arena's 11 bytes are free");
    EXPECT_THROW(writer.PutTexts({"123456789012"}, "texts"), std::length_error);
}

TEST(ReservedRoom, IsTheCallersToFill) {
    HeapArena arena(16);
    ArenaWriter writer(arena.Get());
    const auto [first, firstRoom] = writer.Reserve(3, "first");
    const auto [second, secondRoom] = writer.Reserve(2, "second", 8);
    ExpectStretch(first, 0, 3);
    ExpectStretch(second, 8, 2);
    EXPECT_EQ(firstRoom, arena.Get()->base);
    EXPECT_EQ(secondRoom, arena.Get()->base + 8);
    EXPECT_EQ(arena.Get()->used, 10U);
    const auto [third, thirdRoom] = writer.Reserve(1, "third");
    ExpectStretch(third, 10, 1);
    EXPECT_EQ(thirdRoom, arena.Get()->base + 10);
    EXPECT_EQ(TextOf<std::length_error>([&] { writer.Reserve(6, "fourth"); }),
              "fourth: 6 bytes do not fit, 5 of the arena's 16 bytes are free");
    EXPECT_THROW(writer.Reserve(1, "fifth", 16), std::length_error);
    EXPECT_THROW(writer.Reserve((std::size_t{1} << 32U) + 1, "sixth"), std::length_error);
    ExpectStretch(writer.Reserve(5, "last").first, 11, 5);
}

/// An arena that holds these bytes.
class ReadableArena {
public:
    explicit ReadableArena(Bytes bytes) : bytes_(std::move(bytes)) {
        vd_arena_init(&arena_, bytes_.data(), static_cast<std::uint32_t>(bytes_.size()));
        arena_.used = arena_.capacity;
    }

    ArenaReader Reader() const { return ArenaReader(&arena_); }

private:
    Bytes bytes_;
    vd_arena arena_{};
};

TEST(ReadSequence, TakesItsElementsFromAnyOffset) {
    const ReadableArena arena({0xFF, 1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_THAT(arena.Reader().Sequence<std::uint32_t>({1, 8}, "numbers"),
                ElementsAre(0x04030201U, 0x08070605U));
    EXPECT_THAT(arena.Reader().Sequence<std::uint16_t>({7, 2}, "numbers"), ElementsAre(0x0807));
    EXPECT_THAT(arena.Reader().Sequence<std::uint32_t>({9, 0}, "numbers"), IsEmpty());
    EXPECT_THAT(ArenaReader(nullptr).Sequence<std::uint32_t>({0, 0}, "numbers"), IsEmpty());
}

TEST(ReadSequence, RefusesPartsOfElementsAndBytesThatAreNotThere) {
    const ReadableArena arena(Bytes(8));
    const ArenaReader reader = arena.Reader();
    EXPECT_EQ(TextOf<std::invalid_argument>([&] {
                  reader.Sequence<std::uint32_t>({0, 7}, "numbers");
              }),
              "numbers: 7 bytes are no whole number of elements of 4 bytes");
    EXPECT_EQ(TextOf<std::out_of_range>([&] {
                  reader.Sequence<std::uint32_t>({4, 8}, "numbers");
              }),
              "numbers: offset 4 and length 8 exceed the 8 bytes in use of the arena");
    for (const vd_bytes stretch : {vd_bytes{0xFFFFFFFC, 8}, vd_bytes{4, 0xFFFFFFFC}, vd_bytes{9, 0},
                                   vd_bytes{0, 0xFFFFFFFF}}) {
        EXPECT_THROW(reader.Sequence<std::uint32_t>(stretch, "numbers"), std::out_of_range);
    }
}

TEST(ReadTexts, FollowTheirStretches) {
    const ReadableArena arena({'a', 'b', 'c', 0,              //
                               1,   0,   0,   0, 2, 0, 0, 0,  //
                               0,   0,   0,   0, 0, 0, 0, 0,  //
                               0,   0,   0,   0, 4, 0, 0, 0});
    EXPECT_THAT(arena.Reader().Texts({4, 24}, "texts"),
                ElementsAre("bc", "", std::string("abc\0", 4)));
    EXPECT_THAT(arena.Reader().Texts({4, 0}, "texts"), IsEmpty());
}

TEST(ReadTexts, RefusesTextsThatAreNotThere) {
    const ReadableArena arena({0, 0, 0, 0, 17, 0, 0, 0,  //
                               0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0});
    EXPECT_EQ(TextOf<std::out_of_range>([&] {
                  arena.Reader().Texts({0, 8}, "texts");
              }),
              "texts: offset 0 and length 17 exceed the 16 bytes in use of the arena");
    EXPECT_EQ(TextOf<std::out_of_range>([&] {
                  arena.Reader().Texts({8, 8}, "texts");
              }),
              "texts: offset 4294967295 and length 2 exceed the 16 bytes in use of the arena");
    EXPECT_EQ(TextOf<std::invalid_argument>([&] {
                  arena.Reader().Texts({0, 9}, "texts");
              }),
              "texts: 9 bytes are no whole number of elements of 8 bytes");
}

TEST(ReadTexts, RoundTrip) {
    HeapArena arena(256);
    ArenaWriter writer(arena.Get());
    writer.PutText("x", "before");
    const vd_bytes texts = writer.PutTexts({"one", "", "three"}, "texts");
    EXPECT_THAT(ArenaReader(arena.Get()).Texts(texts, "texts"), ElementsAre("one", "", "three"));
}

}  // namespace
}  // namespace zam_connector::common
