#include <gtest/gtest.h>

#include <string>

#include "tree_json/tree_json.h"

namespace {

using namespace std::string_literals;
using zam_connector::tree_json::JsonError;
using zam_connector::tree_json::Read;
using zuv::TValue;

TEST(TypedJsonText, MayHaveCommentsAndBlanksBetweenTokens) {
    EXPECT_EQ(Read("// first\n{ /* a */ \"a\" /**/ :\t[1, // one\r2]\r\n}\n// last"),
              TValue(zuv::Map{{"a", zuv::MakeVector(1L, 2L)}}));
}

TEST(TypedJsonText, MayBeginWithAByteOrderMark) {
    EXPECT_EQ(Read("\xEF\xBB\xBF[5]"), TValue(zuv::MakeVector(5L)));
}

TEST(TypedJsonText, CountsColumnsBehindAByteOrderMarkFromTheFirstCharacter) {
    try {
        Read("\xEF\xBB\xBF?");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Column(), 1U);
    }
}

TEST(TypedJsonText, IsReadWithoutALookBeyondItsEnd) {
    // What stands behind the view would change the number.
    EXPECT_EQ(Read(std::string_view("123", 2)), TValue(12L));
}

TEST(TypedJsonError, NamesThePlaceInEveryWay) {
    try {
        Read("{\"ä/b\":\n [0, {\"$int8\": 300}]}", "some.json");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Line(), 2U);
        EXPECT_EQ(error.Column(), 16U);
        EXPECT_EQ(error.Pointer(), "/ä~1b/1/$int8");
        EXPECT_EQ(error.Message(), "is 300, allowed is a whole number from -128 to 127");
        EXPECT_STREQ(error.what(),
                     "some.json:2:16: at \"/ä~1b/1/$int8\": is 300, allowed is a whole number from "
                     "-128 to 127");
    }
}

TEST(TypedJsonError, CallsATextWithoutANameJson) {
    try {
        Read("");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_STREQ(error.what(),
                     "JSON:1:1: at \"\": syntax error while parsing value - unexpected end of "
                     "input; expected '[', '{', "
                     "or a literal");
    }
}

TEST(TypedJsonError, KeepsKeysFromBreakingItsLine) {
    try {
        Read(R"({"a\nb": {"$x": 1}})");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Pointer(), "/a\nb/$x");
        EXPECT_EQ(std::string(error.what()).find("JSON:1:11: at \"/a\\nb/$x\": "), 0U);
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
    }
}

TEST(TypedJsonError, IsCopiedWithAllThatItTells) {
    const JsonError error("name", 2, 3, "/p", "m");
    JsonError copy("", "");
    copy = JsonError(error);
    EXPECT_STREQ(copy.what(), "name:2:3: at \"/p\": m");
    EXPECT_EQ(copy.Line(), 2U);
    EXPECT_EQ(copy.Column(), 3U);
    EXPECT_EQ(copy.Pointer(), "/p");
    EXPECT_EQ(copy.Message(), "m");
    // Those who catch it otherwise keep what() at least.
    EXPECT_STREQ(static_cast<const std::runtime_error&>(copy).what(), error.what());
}

TEST(TypedJsonText, TakesRoomForALargeTreeOnce) {
    const TValue tree(zuv::MakeVector(std::string(std::size_t{17} << 20U, 'x'),
                                      std::string(std::size_t{55} << 20U, 'x')));
    const std::string text = zam_connector::tree_json::Write(tree);
    EXPECT_EQ(text.size(), (std::size_t{72} << 20U) + std::string_view(R"(["",""])").size());
    EXPECT_LE(text.capacity(), text.size() + 1) << "with that of a line's end";
}

}  // namespace
