#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "common/raw_zam_param.h"
#include "support/flattened.h"
#include "support/literal_list.h"
#include "zuv/error.h"

namespace zam_connector::common {
namespace {

using zam_test::Block;
using zam_test::Flattened;
using zuv::TValue;

using Bytes = std::vector<unsigned char>;

TValue DecodeBlock(const Bytes& block) {
    TValue value = "as it was";
    RawZamParam{block, "any path"}.DeserializeValue(value);
    return value;
}

struct BlockRow {
    TValue value;
    Bytes block;
};

template <typename Scalar>
TValue Number(long long number) {
    return static_cast<Scalar>(number);
}

TValue Seconds(long count) {
    return qor::types::Timestamp(count);
}

const std::vector<BlockRow>& BlockTable() {
    static const std::vector<BlockRow> table{
        {TValue(), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {zuv::Vector{}, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {zuv::Map{}, {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {false, {3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {true, {3, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}},
        {Number<signed char>(-1), {4, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0}},
        {Number<signed char>(-128), {4, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0}},
        {Number<signed char>(127), {4, 0, 0, 0, 0, 0, 0, 0, 0x7F, 0, 0, 0, 0, 0, 0, 0}},
        {Number<short>(-2), {5, 0, 0, 0, 0, 0, 0, 0, 0xFE, 0xFF, 0, 0, 0, 0, 0, 0}},
        {Number<short>(0x1234), {5, 0, 0, 0, 0, 0, 0, 0, 0x34, 0x12, 0, 0, 0, 0, 0, 0}},
        {Number<short>(-32768), {5, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0}},
        {5, {6, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}},
        {-3, {6, 0, 0, 0, 0, 0, 0, 0, 0xFD, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}},
        {0x12345678, {6, 0, 0, 0, 0, 0, 0, 0, 0x78, 0x56, 0x34, 0x12, 0, 0, 0, 0}},
        {-2147483647 - 1, {6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0}},
        {-4L, {7, 0, 0, 0, 0, 0, 0, 0, 0xFC, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {0x123456789ABCDEF0L,
         {7, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12}},
        {1.0, {8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
        {-0.0, {8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80}},
        {std::numeric_limits<double>::infinity(),
         {8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xF0, 0x7F}},
        {Seconds(1732000000), {9, 0, 0, 0, 0, 0, 0, 0, 0, 0x39, 0x3C, 0x67, 0, 0, 0, 0}},
        {Seconds(-1), {9, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {"", {10, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}},
        {"ab", {10, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 'a', 'b', 0}},
        {std::string("a\0b", 3), {10, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 'a', 0, 'b', 0}},
        {zuv::Blob{}, {11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {zuv::Blob{0, 255}, {11, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 255}},
        {Number<unsigned char>(200), {12, 0, 0, 0, 0, 0, 0, 0, 200, 0, 0, 0, 0, 0, 0, 0}},
        {Number<unsigned short>(0xFFFE), {13, 0, 0, 0, 0, 0, 0, 0, 0xFE, 0xFF, 0, 0, 0, 0, 0, 0}},
        {0xFFFFFFFDU, {14, 0, 0, 0, 0, 0, 0, 0, 0xFD, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}},
        {18446744073709551612UL,
         {15, 0, 0, 0, 0, 0, 0, 0, 0xFC, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    return table;
}

TEST(ValueBlock, HasTheseBytes) {
    for (const BlockRow& row : BlockTable()) {
        const auto list = Flattened(row.value);
        ASSERT_EQ(list.size(), 1U);
        EXPECT_EQ(list[0].value, row.block) << row.value;
        EXPECT_EQ(list[0].path, "");
    }
}

TEST(ValueBlock, DecodesToItsValue) {
    for (const BlockRow& row : BlockTable()) {
        EXPECT_TRUE(DecodeBlock(row.block).IsIdenticalTo(row.value)) << row.value;
    }
}

TEST(ValueBlock, AnnouncesTheElementsOfAVector) {
    EXPECT_EQ(Flattened(zuv::MakeVector(1, 2, 3))[0].value, Block(1, 3));
    EXPECT_EQ(Flattened(zuv::Map{{"a", 1}})[0].value, Block(2, 0)) << "but not those of a map";
}

TEST(ValueBlock, IgnoresTheHighBytesOfNarrowScalars) {
    const unsigned long word = 0xFFFFFFFFFFFFFF85UL;
    EXPECT_EQ(DecodeBlock(Block(4, word)), Number<signed char>(-123));
    EXPECT_EQ(DecodeBlock(Block(5, word)), Number<short>(-123));
    EXPECT_EQ(DecodeBlock(Block(6, word)), TValue(-123));
    EXPECT_EQ(DecodeBlock(Block(12, word)), Number<unsigned char>(0x85));
    EXPECT_EQ(DecodeBlock(Block(13, word)), Number<unsigned short>(0xFF85));
    EXPECT_EQ(DecodeBlock(Block(14, word)), TValue(0xFFFFFF85U));
    EXPECT_EQ(DecodeBlock(Block(3, 0x100)), TValue(false)) << "only the low byte of a bool counts";
    EXPECT_EQ(DecodeBlock(Block(3, 0x102)), TValue(true));
}

TEST(ValueBlock, IgnoresWhatStandsBehindAValue) {
    EXPECT_EQ(DecodeBlock(Block(6, 5, "more")), TValue(5));
    EXPECT_EQ(DecodeBlock(Block(10, 3, std::string("ab\0more", 7))), TValue("ab"));
    EXPECT_EQ(DecodeBlock(Block(11, 1, "ab")), TValue(zuv::Blob{'a'}));
    EXPECT_EQ(DecodeBlock(Block(0, 7, "more")), TValue());
    EXPECT_EQ(DecodeBlock(Block(2, 7, "more")), TValue(zuv::Map{}));
}

TEST(ValueBlock, DoesNotLookAtTheByteThatEndsAString) {
    EXPECT_EQ(DecodeBlock(Block(10, 3, "abX")), TValue("ab"));
}

struct WrongBlock {
    Bytes block;
    unsigned code;
    std::string text;
};

TEST(ValueBlock, IsRefusedWhenItIsDamaged) {
    const auto cut = [](std::size_t size) {
        Bytes block = Block(6, 5);
        block.resize(size);
        return block;
    };
    const std::string plan = "[RawZamParams] Insufficient raw data size: fact/plan = ";
    const std::string index = "[RawZamParams] Invalid value index: ";
    const std::vector<WrongBlock> table{
        {cut(0), 0x8000005cU, plan + "0/16"},
        {cut(1), 0x8000005cU, plan + "1/16"},
        {cut(15), 0x8000005cU, plan + "15/16"},
        {Block(16, 0), 0x8000005eU, index + "16"},
        {Block(256, 0), 0x8000005eU, index + "256"},
        {Block(~0UL, 0), 0x8000005eU, index + "18446744073709551615"},
        {Block(10, 1), 0x8000005cU, plan + "16/17"},
        {Block(10, 4, "abc"), 0x8000005cU, plan + "19/20"},
        {Block(11, 1), 0x8000005cU, plan + "16/17"},
        {Block(11, 4, "abc"), 0x8000005cU, plan + "19/20"},
        {Block(10, ~0UL), 0x8000005cU, plan + "16/18446744073709551631"},
        {Block(11, ~0UL), 0x8000005cU, plan + "16/18446744073709551631"},
        {Block(10, ~0UL - 15), 0x8000005cU, plan + "16/18446744073709551616"},
        {Block(11, ~0UL - 16, "abc"), 0x8000005cU, plan + "19/18446744073709551615"},
        {Block(10, 1UL << 63U), 0x8000005cU, plan + "16/9223372036854775824"},
    };
    for (const WrongBlock& row : table) {
        TValue value = "as it was";
        try {
            RawZamParam{row.block, ""}.DeserializeValue(value);
            ADD_FAILURE() << row.text;
        } catch (const zuv::Error& error) {
            EXPECT_EQ(error.code, static_cast<int>(row.code)) << row.text;
            EXPECT_EQ(error.what(), row.text);
        }
        EXPECT_EQ(value, TValue("as it was"));
    }
}

TEST(ValueBlock, OfAStringNeedsRoomForItsEnd) {
    TValue value;
    EXPECT_THROW((RawZamParam{Block(10, 0), ""}.DeserializeValue(value)), std::length_error);
    EXPECT_THROW((RawZamParam{Block(10, 0, "abc"), ""}.DeserializeValue(value)), std::length_error);
    EXPECT_EQ(DecodeBlock(Block(10, 1, std::string(1, '\0'))), TValue(""));
}

TEST(ValueBlock, OfAVectorReservesWhatItAnnouncesWithinALimit) {
    const auto room = [](unsigned long elements) {
        const TValue value = DecodeBlock(Block(1, elements));
        EXPECT_TRUE(value.Get<zuv::Vector>().empty());
        return value.Get<zuv::Vector>().capacity();
    };
    EXPECT_EQ(room(0), 0U);
    EXPECT_EQ(room(1), 1U);
    EXPECT_EQ(room(65535), 65535U);
    EXPECT_EQ(room(65536), 65536U);
    EXPECT_EQ(room(65537), 65536U);
    EXPECT_EQ(room(1UL << 31U), 65536U);
    TValue value;
    EXPECT_THROW((RawZamParam{Block(1, (1UL << 31U) + 1), ""}.DeserializeValue(value)),
                 std::length_error);
    EXPECT_THROW((RawZamParam{Block(1, ~0UL), ""}.DeserializeValue(value)), std::length_error);
    EXPECT_EQ(kMaxReservedElements, 65536U);
    EXPECT_EQ(kMaxAnnouncedElements, 1UL << 31U);
}

}  // namespace
}  // namespace zam_connector::common
