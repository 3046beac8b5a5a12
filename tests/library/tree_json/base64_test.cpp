#include "json_text/base64.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_view_literals;
using zam_json::DecodeBase64;
using zam_json::EncodeBase64;

struct Base64Row {
    std::string_view bytes;
    std::string_view text;
};

TEST(Base64, FollowsTheVectorsOfItsDefinition) {
    constexpr Base64Row kRows[] = {
        {""sv, ""sv},         {"f"sv, "Zg=="sv},          {"fo"sv, "Zm8="sv},
        {"foo"sv, "Zm9v"sv},  {"foob"sv, "Zm9vYg=="sv},   {"fooba"sv, "Zm9vYmE="sv},
        {"\0"sv, "AA=="sv},   {"foobar"sv, "Zm9vYmFy"sv}, {"\xFB\xFF\x00"sv, "+/8A"sv},
        {"\xFF"sv, "/w=="sv}, {"\xFF\xFF"sv, "//8="sv},   {"\xFF\xFF\xFF"sv, "////"sv},
    };
    for (const Base64Row& row : kRows) {
        EXPECT_EQ(EncodeBase64(row.bytes), row.text);
        EXPECT_EQ(DecodeBase64(row.text), row.bytes) << row.text;
    }
}

TEST(Base64, UsesEveryDigitOnceInOrder) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto bytes = DecodeBase64(kDigits);
    ASSERT_TRUE(bytes);
    ASSERT_EQ(bytes->size(), 48U);
    // The digits 0, 1, 2, 3 are 000000 000001 000010 000011, the last four 60, 61, 62, 63.
    EXPECT_EQ(bytes->substr(0, 3), "\x00\x10\x83"sv);
    EXPECT_EQ(bytes->substr(45), "\xF3\xDF\xBF"sv);
    EXPECT_EQ(EncodeBase64(*bytes), kDigits);
}

TEST(Base64, RefusesWhatIsNeverWritten) {
    constexpr std::string_view kTexts[] = {
        // cut short, padding missing
        "Q"sv, "QQ"sv, "QQ="sv, "QUI"sv, "QUJDR"sv, "QUJDRA"sv, "QUJDRA="sv,
        // padding where none may stand
        "="sv, "=="sv, "===="sv, "Q==="sv, "QQ=A"sv, "Q=QQ"sv, "=QQQ"sv, "QQ==QUJD"sv, "QUI=QUJD"sv,
        "QUJD="sv, "QUJD===="sv, "QUJDRA==="sv,
        // stray bits
        "QR=="sv, "QX=="sv, "Q/=="sv, "QUJDRB=="sv, "QUJ="sv, "QUL="sv, "QUN="sv,
        // other characters
        "QU I"sv, "QUI=\n"sv, "\nQUI"sv, "QU-_"sv, "QUI\0"sv, "QUI\xFF"sv, "QU.D"sv, "@[`{"sv,
        ":AAA"sv};
    for (const std::string_view text : kTexts) {
        EXPECT_FALSE(DecodeBase64(text)) << text;
    }
}

TEST(Base64, DecodesWhatItEncodes) {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
        EXPECT_EQ(DecodeBase64(EncodeBase64(bytes)), bytes);
    }
}

}  // namespace
