#include <limits>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using namespace std::string_literals;
using zam_converter::ConvertZamHashToBase64;
using zam_converter::ConvertZamHashToHex;
using zam_converter::ParseZamHash;
using zam_converter::ParseZamHashFromBase64;
using zam_converter::ParseZamHashFromHex;

constexpr unsigned long kLargest = std::numeric_limits<unsigned long>::max();

class HashConverters : public ConverterTest {
protected:
    void ExpectFailure(const std::string& reason) {
        ExpectLines(
            {"4 zam_converter ParseZamHash: ParseZamHash failed with exception [" + reason + "]"});
    }
};

TEST_F(HashConverters, ReadNumbersByTheRulesOfTheirBase) {
    struct {
        std::string text;
        int base;
        unsigned long hash;
    } const rows[] = {
        {"0", 10, 0},
        {"18446744073709551615", 10, kLargest},
        {"000000000000000000000000000001", 10, 1},
        {" \t\n\v\f\r42", 10, 42},
        {"+42", 10, 42},
        {"-1", 10, kLargest},
        {"-18446744073709551615", 10, 1},
        {"42 and more", 10, 42},
        {"42\0007"s, 10, 42},
        {"0x10", 10, 0},
        {"ff", 16, 255},
        {"FF", 16, 255},
        {"0xff", 16, 255},
        {"0XfF", 16, 255},
        {"-0x1", 16, kLargest},
        {"ffffffffffffffff", 16, kLargest},
        {"fg", 16, 15},
        {"0xg", 16, 0},
        {"12", 0, 12},
        {"012", 0, 10},
        {"0x12", 0, 18},
        {"102", 2, 2},
        {"zz", 36, 35 * 36 + 35},
        {"21", 3, 7},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ParseZamHash(row.text, row.base), row.hash) << row.text << " " << row.base;
    }
}

TEST_F(HashConverters, RefuseTextsWithoutANumber) {
    for (const char* text : {"", " ", "zz", "-", "+", "- 1", "x1",
                             "\xC2\xA0"
                             "1"}) {
        EXPECT_EQ(ParseZamHashFromHex(text), std::nullopt) << text;
        ExpectFailure("Invalid argument : stoul");
    }
    EXPECT_EQ(ParseZamHash("\0001"s, 10), std::nullopt);
    ExpectFailure("Invalid argument : stoul");
    EXPECT_EQ(ParseZamHash("2", 2), std::nullopt);
    ExpectFailure("Invalid argument : stoul");
}

TEST_F(HashConverters, RefuseNumbersBeyondSixtyFourBits) {
    for (const char* text :
         {"18446744073709551616", "184467440737095516150", "-18446744073709551616"}) {
        EXPECT_EQ(ParseZamHashFromBase64(text), std::nullopt) << text;
        ExpectFailure("Invalid index : stoul");
    }
    EXPECT_EQ(ParseZamHashFromHex("10000000000000000"), std::nullopt);
    ExpectFailure("Invalid index : stoul");
}

TEST_F(HashConverters, RefuseBasesThatAreNone) {
    constexpr int kLowest = std::numeric_limits<int>::min();
    for (const int base : {kLowest, -10, -1, 1, 37, 64, std::numeric_limits<int>::max()}) {
        EXPECT_EQ(ParseZamHash("1", base), std::nullopt) << base;
        ExpectFailure("Invalid argument : base " + std::to_string(base) +
                      " is neither 0 nor 2 to 36");
    }
}

TEST_F(HashConverters, TakeOtherKindsForAnEmptyText) {
    for (const zuv::TValue& value : ValuesOfAllKinds()) {
        if (!value.Is<std::string>()) {
            EXPECT_EQ(ParseZamHash(value, 10), std::nullopt) << value;
            ExpectFailure("Invalid argument : stoul");
        }
    }
}

TEST_F(HashConverters, ReadDecimalUnderTheNameOfBase64) {
    EXPECT_EQ(ParseZamHashFromBase64("18446744073709551615"), kLargest);
    EXPECT_EQ(ParseZamHashFromBase64("10"), 10U);
    EXPECT_EQ(ParseZamHashFromBase64("0x10"), 0U);
}

TEST_F(HashConverters, ReadHexadecimal) {
    EXPECT_EQ(ParseZamHashFromHex("ff"), 255U);
    EXPECT_EQ(ParseZamHashFromHex("0xff"), 255U);
    EXPECT_EQ(ParseZamHashFromHex("10"), 16U);
}

TEST_F(HashConverters, WriteDecimalUnderTheNameOfBase64) {
    EXPECT_EQ(ConvertZamHashToBase64(0), "0");
    EXPECT_EQ(ConvertZamHashToBase64(255), "255");
    EXPECT_EQ(ConvertZamHashToBase64(kLargest), "18446744073709551615");
}

TEST_F(HashConverters, WriteHexadecimalWithoutPrefixOrPadding) {
    EXPECT_EQ(ConvertZamHashToHex(0), "0");
    EXPECT_EQ(ConvertZamHashToHex(255), "ff");
    EXPECT_EQ(ConvertZamHashToHex(0xABCDEF0123456789), "abcdef0123456789");
    EXPECT_EQ(ConvertZamHashToHex(kLargest), "ffffffffffffffff");
}

TEST_F(HashConverters, ReadBackWhatTheyWrite) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        const unsigned long hash = 1UL << bit;
        EXPECT_EQ(ParseZamHashFromBase64(ConvertZamHashToBase64(hash).value()), hash);
        EXPECT_EQ(ParseZamHashFromHex(ConvertZamHashToHex(hash).value()), hash);
        EXPECT_EQ(ParseZamHashFromHex(ConvertZamHashToHex(~hash).value()), ~hash);
    }
}

}  // namespace
}  // namespace zam_connector::test
