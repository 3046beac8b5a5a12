#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "qel/utf.h"

namespace {

using namespace std::string_view_literals;

struct FromUtf8 {
    std::string_view bytes;
    std::u16string_view text;
};

TEST(ToUtf16, TakesWellFormedText) {
    constexpr FromUtf8 kRows[] = {
        {""sv, u""sv},
        {"plain"sv, u"plain"sv},
        {"\0a\0"sv, u"\0a\0"sv},
        {"\x7F"sv, u"\u007F"sv},
        {"\xC2\x80"sv, u"\u0080"sv},
        {"\xDF\xBF"sv, u"\u07FF"sv},
        {"\xE0\xA0\x80"sv, u"\u0800"sv},
        {"\xED\x9F\xBF"sv, u"\uD7FF"sv},
        {"\xEE\x80\x80"sv, u"\uE000"sv},
        {"\xEF\xBF\xBD"sv, u"\uFFFD"sv},
        {"\xEF\xBF\xBF"sv, u"\uFFFF"sv},
        {"\xF0\x90\x80\x80"sv, u"\U00010000"sv},
        {"\xF0\x9F\x98\x80"sv, u"\U0001F600"sv},
        {"\xF4\x8F\xBF\xBF"sv, u"\U0010FFFF"sv},
    };
    for (const FromUtf8& row : kRows) {
        EXPECT_EQ(qel::ToUtf16(row.bytes), row.text) << ::testing::PrintToString(row.bytes);
        EXPECT_EQ(qel::ToUtf8(row.text), row.bytes) << ::testing::PrintToString(row.bytes);
    }
}

TEST(ToUtf16, ReplacesEveryMaximalIllFormedSequenceOnce) {
    constexpr FromUtf8 kRows[] = {
        // bytes that begin nothing
        {"\x80"sv, u"\uFFFD"sv},
        {"\xBF\x80"sv, u"\uFFFD\uFFFD"sv},
        {"\xFE\xFF"sv, u"\uFFFD\uFFFD"sv},
        // overlong forms
        {"\xC0\x80"sv, u"\uFFFD\uFFFD"sv},
        {"\xC1\xBF"sv, u"\uFFFD\uFFFD"sv},
        {"\xE0\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD"sv},
        {"\xE0\x9F\xBF"sv, u"\uFFFD\uFFFD\uFFFD"sv},
        {"\xF0\x80\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
        {"\xF0\x8F\xBF\xBF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
        // surrogates, alone and in pairs
        {"\xED\xA0\x80"sv, u"\uFFFD\uFFFD\uFFFD"sv},
        {"\xED\xBF\xBF"sv, u"\uFFFD\uFFFD\uFFFD"sv},
        {"\xED\xA0\x80\xED\xB0\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
        // beyond U+10FFFF
        {"\xF4\x90\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
        {"\xF5\x80\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
        {"\xF8\x88\x80\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
        // cut off at the end
        {"\xC3"sv, u"\uFFFD"sv},
        {"\xE1"sv, u"\uFFFD"sv},
        {"\xE1\x80"sv, u"\uFFFD"sv},
        {"\xE0\xA0"sv, u"\uFFFD"sv},
        {"\xED\x9F"sv, u"\uFFFD"sv},
        {"\xF1"sv, u"\uFFFD"sv},
        {"\xF1\x80"sv, u"\uFFFD"sv},
        {"\xF1\x80\x80"sv, u"\uFFFD"sv},
        {"\xF0\x90\x80"sv, u"\uFFFD"sv},
        {"\xF4\x8F\xBF"sv, u"\uFFFD"sv},
        // cut off by what follows, which is kept
        {"\xC3\x41"sv, u"\uFFFD\u0041"sv},
        {"\xE1\x80\x41"sv, u"\uFFFD\u0041"sv},
        {"\xF1\x80\x80\x41"sv, u"\uFFFD\u0041"sv},
        {"\xE1\x80\xC3\xA4"sv, u"\uFFFD\u00E4"sv},
        {"\xF0\x90\x80\xF0\x9F\x98\x80"sv, u"\uFFFD\U0001F600"sv},
        {"\xE1\x00"sv, u"\uFFFD\0"sv},
        // the examples of the Unicode standard, tables 3-8 to 3-11
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"sv,
         u"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"sv},
        {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"sv,
         u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"sv},
        {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"sv,
         u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"sv},
        {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"sv,
         u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"sv},
        {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"sv, u"\uFFFD\uFFFD\uFFFD\uFFFDA"sv},
    };
    for (const FromUtf8& row : kRows) {
        EXPECT_EQ(qel::ToUtf16(row.bytes), row.text) << ::testing::PrintToString(row.bytes);
    }
}

TEST(ToUtf16, ReadsOnlyTheBytesThatItIsGiven) {
    // The byte that would complete the sequence stands right behind the view.
    const std::string whole = "\xE2\x82\xAC";
    EXPECT_EQ(qel::ToUtf16(std::string_view(whole).substr(0, 2)), u"\uFFFD");
}

TEST(ToUtf8, ReplacesSurrogatesWithoutAPartner) {
    // Spelled in numbers, since a literal cannot hold half a pair.
    constexpr char16_t kHigh = 0xD800;
    constexpr char16_t kLastHigh = 0xDBFF;
    constexpr char16_t kLow = 0xDC00;
    constexpr char16_t kLastLow = 0xDFFF;
    struct {
        std::u16string text;
        std::string_view bytes;
    } const rows[] = {
        {{kHigh}, "\xEF\xBF\xBD"sv},
        {{kLow}, "\xEF\xBF\xBD"sv},
        {{kLastHigh}, "\xEF\xBF\xBD"sv},
        {{kLastLow}, "\xEF\xBF\xBD"sv},
        {{kHigh, u'A'}, "\xEF\xBF\xBD\x41"sv},
        {{u'A', kLow, u'B'}, "\x41\xEF\xBF\xBD\x42"sv},
        {{kLow, kHigh}, "\xEF\xBF\xBD\xEF\xBF\xBD"sv},
        {{kHigh, kHigh, kLow}, "\xEF\xBF\xBD\xF0\x90\x80\x80"sv},
        {{kHigh, kLow, kLow}, "\xF0\x90\x80\x80\xEF\xBF\xBD"sv},
        {{kLastHigh, kLastLow}, "\xF4\x8F\xBF\xBF"sv},
        {{kHigh, 0xE000}, "\xEF\xBF\xBD\xEE\x80\x80"sv},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(qel::ToUtf8(row.text), row.bytes) << ::testing::PrintToString(row.text);
    }
}

TEST(IsUtf8, AcceptsEveryScalarsEncodingAndNothingElse) {
    for (const std::string_view good :
         {""sv, "a"sv, "\0"sv, "\x7F"sv, "\xC2\x80"sv, "\xDF\xBF"sv, "\xE0\xA0\x80"sv,
          "\xED\x9F\xBF"sv, "\xEE\x80\x80"sv, "\xEF\xBF\xBF"sv, "\xF0\x90\x80\x80"sv,
          "\xF4\x8F\xBF\xBF"sv, "aä€😀"sv}) {
        EXPECT_TRUE(qel::IsUtf8(good)) << ::testing::PrintToString(good);
    }
    for (const std::string_view bad :
         {"\x80"sv, "\xBF"sv, "\xC0\x80"sv, "\xC1\xBF"sv, "\xC2"sv, "\xC2\x7F"sv, "\xC2\xC0"sv,
          "\xC2\x00"sv, "\xE0\x9F\xBF"sv, "\xE2\x82"sv, "\xE2\x28\xA1"sv, "\xED\xA0\x80"sv,
          "\xF0\x8F\xBF\xBF"sv, "\xF0\x90\x80"sv, "\xF4\x90\x80\x80"sv, "\xF5\x80\x80\x80"sv,
          "\xFF"sv, "a\xE2\x28\xA1"sv, "ä\x80"sv}) {
        EXPECT_FALSE(qel::IsUtf8(bad)) << ::testing::PrintToString(bad);
    }
}

TEST(IsUtf8, ReadsOnlyTheBytesThatItIsGiven) {
    EXPECT_FALSE(qel::IsUtf8(std::string_view("\xE2\x82\xAC").substr(0, 2)));
}

TEST(Utf, RoundTripsEveryCodePoint) {
    std::u16string all;
    for (char32_t point = 0; point <= 0x10FFFF; ++point) {
        if (point >= 0xD800 && point <= 0xDFFF) {
            continue;
        }
        if (point < 0x10000) {
            all.push_back(static_cast<char16_t>(point));
        } else {
            all.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10U)));
            all.push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FFU)));
        }
    }
    const std::string bytes = qel::ToUtf8(all);
    // 128 points of one byte, 1920 of two, 61440 of three, 1048576 of four.
    EXPECT_EQ(bytes.size(), 128U + 2 * 1920U + 3 * 61440U + 4 * 1048576U);
    EXPECT_TRUE(qel::ToUtf16(bytes) == all);
    EXPECT_TRUE(qel::IsUtf8(bytes));
}

}  // namespace
