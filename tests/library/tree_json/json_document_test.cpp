#include "json_text/json_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace zam_json {
namespace {

using ::testing::HasSubstr;

/// One faulty text: what is read of it, and where and how it is refused.
struct WrongDocument {
    const char* name;
    std::string text;
    std::function<void(const JsonValue&)> read;
    std::size_t line;
    std::size_t column;
    std::string pointer;
    std::string message;
};

std::ostream& operator<<(std::ostream& out, const WrongDocument& row) {
    return out << row.name;
}

class FaultyJson : public ::testing::TestWithParam<WrongDocument> {};

TEST_P(FaultyJson, RefusesWithFileLineColumnPointerAndReason) {
    const WrongDocument& row = GetParam();
    try {
        const JsonDocument document("some.json", row.text);
        row.read(document.Root());
        FAIL() << "accepted: " << row.text;
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Position().line, row.line) << error.what();
        EXPECT_EQ(error.Position().column, row.column) << error.what();
        EXPECT_EQ(error.Pointer(), row.pointer) << error.what();
        const std::string place = "some.json:" + std::to_string(row.line) + ":" +
                                  std::to_string(row.column) + ": at \"" + row.pointer + "\": ";
        EXPECT_THAT(error.what(), ::testing::StartsWith(place));
        EXPECT_THAT(error.what(), HasSubstr(row.message));
    }
}

void ReadNothing(const JsonValue& /*root*/) {}

std::string Nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

std::string DeepPointer(std::size_t depth) {
    std::string pointer;
    for (std::size_t level = 0; level < depth; ++level) {
        pointer += "/0";
    }
    return pointer;
}

INSTANTIATE_TEST_SUITE_P(
    Syntax, FaultyJson,
    ::testing::Values(
        WrongDocument{"Empty", "", ReadNothing, 1, 1, "", "unexpected end of input"},
        WrongDocument{"Blank", " \n\t\n  ", ReadNothing, 3, 3, "", "unexpected end of input"},
        WrongDocument{"OnlyComment", "// nothing\n", ReadNothing, 2, 1, "",
                      "unexpected end of input"},
        WrongDocument{"OpenComment", "/* no end", ReadNothing, 1, 10, "", "invalid comment"},
        WrongDocument{"UnfinishedObject", "{\"a\": 1,\n", ReadNothing, 2, 1, "",
                      "unexpected end of input"},
        WrongDocument{"TrailingComma", "{\"a\": 1,\n  }", ReadNothing, 2, 3, "", "unexpected '}'"},
        WrongDocument{"CommaFirst", "{ ,\"a\": 1}", ReadNothing, 1, 3, "", "unexpected ','"},
        WrongDocument{"TwoCommas", "[1,,2]", ReadNothing, 1, 4, "/1", "unexpected ','"},
        WrongDocument{"TwoColons", "{\"a\"::1}", ReadNothing, 1, 6, "/a", "unexpected ':'"},
        WrongDocument{"NoColon", "{\"a\" 1}", ReadNothing, 1, 6, "/a", "unexpected number literal"},
        WrongDocument{"NoComma", "[10 20]", ReadNothing, 1, 5, "/1", "unexpected number literal"},
        WrongDocument{"KeyIsNumber", "{1: 2}", ReadNothing, 1, 2, "", "unexpected number literal"},
        WrongDocument{"WrongBracket", "{\"a\": [1}", ReadNothing, 1, 9, "/a/1", "unexpected '}'"},
        WrongDocument{"TwoDocuments", "{}\n{}", ReadNothing, 2, 1, "", "unexpected '{'"},
        WrongDocument{"WrongWord", "{\"a\": trua}", ReadNothing, 1, 10, "/a", "invalid literal"},
        WrongDocument{"LeadingZero", "{\"a\": 01}", ReadNothing, 1, 8, "",
                      "unexpected number literal"},
        WrongDocument{"WordsTogether", "[truefalse]", ReadNothing, 1, 6, "/1",
                      "unexpected false literal"},
        WrongDocument{"NumbersTogether", "[-1.5e+10true]", ReadNothing, 1, 10, "/1",
                      "unexpected true literal"},
        WrongDocument{"LonelyMinus", "{\"a\": -}", ReadNothing, 1, 8, "/a", "invalid number"},
        WrongDocument{"NumberOverflow", "{\"a\": [7, 1e400]}", ReadNothing, 1, 11, "/a/1",
                      "number overflow parsing '1e400'"},
        WrongDocument{"OpenText", "{\"a\": \"b", ReadNothing, 1, 9, "/a", "missing closing quote"},
        WrongDocument{"RawControlByte", "{\"a\": \"b\x01\"}", ReadNothing, 1, 9, "/a",
                      "control character U+0001"},
        WrongDocument{"WrongEscape", "{\"a\": \"\\x\"}", ReadNothing, 1, 9, "/a",
                      "forbidden character"},
        WrongDocument{"NoUtf8", "{\"a\": \"\xC3(\"}", ReadNothing, 1, 9, "/a", "ill-formed UTF-8"},
        WrongDocument{"AfterOtherLanguages", "{\"ä€😀\": x}", ReadNothing, 1, 9, "/ä€😀",
                      "invalid literal"},
        WrongDocument{"InSecondElement", "{\"a\": [{\"b\": 1}, {\"b\": ?}]}", ReadNothing, 1, 24,
                      "/a/1/b", "invalid literal"},
        WrongDocument{"BehindComments", "{ // one: {\n/* \"two */ \"a\": ]}", ReadNothing, 2, 17,
                      "/a", "unexpected ']'"}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Structure, FaultyJson,
    ::testing::Values(
        WrongDocument{"DuplicateKey", "{\"a\": 1,\n \"b\": 2, \"a\": 3}", ReadNothing, 2, 10, "/a",
                      "stands twice"},
        WrongDocument{"DuplicateKeyInside", "[{\"x/y\": {\"k\": 1, \"k\": 1}}]", ReadNothing, 1, 19,
                      "/0/x~1y/k", "stands twice"},
        WrongDocument{"DuplicateByEscape", "{\"a\": 1, \"\\u0061\": 2}", ReadNothing, 1, 10, "/a",
                      "stands twice"},
        WrongDocument{"TooDeep", Nested(kMaxJsonDepth + 1), ReadNothing, 1, kMaxJsonDepth + 1,
                      DeepPointer(kMaxJsonDepth), "is nested 65 deep, at most 64 are allowed"},
        WrongDocument{"UnknownKey", "{\"known\": 1,\n  \"unknown\": 2}",
                      [](const JsonValue& root) {
                          root.CheckMembers({"known", "other"});
                      },
                      2, 3, "/unknown", "the key is not known here, allowed are known, other"},
        WrongDocument{
            "UnknownKeyInside", "{\"a\": [{}, {\"a~/b\": 2}]}",
            [](const JsonValue& root) { root.At("a").Elements(2, 2)[1].CheckMembers({"c"}); }, 1,
            13, "/a/1/a~0~1b", "the key is not known here, allowed are c"},
        WrongDocument{"MissingMember", "{\"a\":\n {\"b\": 1}}",
                      [](const JsonValue& root) { root.At("a").At("c"); }, 2, 2, "/a",
                      "the member \"c\" is missing"},
        WrongDocument{"NoObject", "[1]", [](const JsonValue& root) { root.CheckMembers({}); }, 1, 1,
                      "", "is an array, allowed is an object"},
        WrongDocument{"MemberOfText", "{\"a\": \"b\"}",
                      [](const JsonValue& root) { root.At("a").Find("b"); }, 1, 7, "/a",
                      "is \"b\", allowed is an object"},
        WrongDocument{"NoArray", "{\"a\": {}}",
                      [](const JsonValue& root) { root.At("a").Elements(0, 3); }, 1, 7, "/a",
                      "is an object, allowed is an array of 0 to 3 elements"},
        WrongDocument{"ArrayTooShort", "{\"a\": []}",
                      [](const JsonValue& root) { root.At("a").Elements(1, 2); }, 1, 7, "/a",
                      "has 0 elements, allowed is an array of 1 to 2"},
        WrongDocument{"ArrayTooLong", "{\"a\": [1, 2, 3]}",
                      [](const JsonValue& root) { root.At("a").Elements(1, 2); }, 1, 7, "/a",
                      "has 3 elements, allowed is an array of 1 to 2"}),
    [](const auto& row) { return std::string(row.param.name); });

void ReadSmall(const JsonValue& root) {
    root.At("n").Unsigned(1, 10);
}

void ReadByte(const JsonValue& root) {
    root.At("n").Signed(-128, 127);
}

INSTANTIATE_TEST_SUITE_P(
    Values, FaultyJson,
    ::testing::Values(
        WrongDocument{"BelowRange", "{\"n\": 0}", ReadSmall, 1, 7, "/n",
                      "is 0, allowed is a whole number from 1 to 10"},
        WrongDocument{"AboveRange", "{\"n\":\n\n   11}", ReadSmall, 3, 4, "/n",
                      "is 11, allowed is a whole number from 1 to 10"},
        WrongDocument{"Negative", "{\"n\": -1}", ReadSmall, 1, 7, "/n", "is -1, allowed"},
        WrongDocument{"Fraction", "{\"n\": 5.0}", ReadSmall, 1, 7, "/n", "is 5.0, allowed"},
        WrongDocument{"Exponent", "{\"n\": 1e1}", ReadSmall, 1, 7, "/n", "is 1e1, allowed"},
        WrongDocument{"Beyond64Bits", "{\"n\": 18446744073709551616}", ReadSmall, 1, 7, "/n",
                      "is 18446744073709551616, allowed"},
        WrongDocument{"TextForNumber", "{\"n\": \"5\"}", ReadSmall, 1, 7, "/n",
                      "is \"5\", allowed"},
        WrongDocument{"NullForNumber", "{\"n\": null}", ReadSmall, 1, 7, "/n", "is null, allowed"},
        WrongDocument{"SignedBelow", "{\"n\": -129}", ReadByte, 1, 7, "/n",
                      "is -129, allowed is a whole number from -128 to 127"},
        WrongDocument{"SignedAbove", "{\"n\": 128}", ReadByte, 1, 7, "/n", "is 128, allowed"},
        WrongDocument{"SignedFarAbove", "{\"n\": 18446744073709551615}", ReadByte, 1, 7, "/n",
                      "is 18446744073709551615, allowed"},
        WrongDocument{"NumberAbove", "{\"n\": 1.5}",
                      [](const JsonValue& root) { root.At("n").Number(0, 1); }, 1, 7, "/n",
                      "is 1.5, allowed is a number from 0 to 1"},
        WrongDocument{"NumberForFlag", "{\"n\": 1}",
                      [](const JsonValue& root) { root.At("n").Boolean(); }, 1, 7, "/n",
                      "is 1, allowed is true or false"},
        WrongDocument{"FlagForText", "{\"n\": true}",
                      [](const JsonValue& root) { static_cast<void>(root.At("n").Text()); }, 1, 7,
                      "/n", "is true, allowed is a text"},
        WrongDocument{"LongText", "{\"n\": \"" + std::string(62, 'x') + "ä" + "zzzz\"}",
                      [](const JsonValue& root) { root.At("n").Boolean(); }, 1, 7, "/n",
                      "is \"" + std::string(62, 'x') + "..., allowed"},
        WrongDocument{"TextWithEscapes", "{\"n\": \"a\\\"b\\\\\" }",
                      [](const JsonValue& root) { root.At("n").Boolean(); }, 1, 7, "/n",
                      "is \"a\\\"b\\\\\", allowed"},
        WrongDocument{"InArray", "{\"a\": [1,\n 2, /* two */ \"x\"]}",
                      [](const JsonValue& root) { root.At("a").Elements(3, 3)[2].Unsigned(0, 9); },
                      2, 15, "/a/2", "is \"x\", allowed"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(JsonDocument, AcceptsTheDeepestNestingAllowed) {
    for (const std::size_t depth : {kMaxJsonDepth - 1, kMaxJsonDepth}) {
        EXPECT_NO_THROW(JsonDocument("deep.json", Nested(depth))) << depth;
    }
}

TEST(JsonDocument, AcceptsEqualKeysInDifferentObjects) {
    const JsonDocument document("a.json", R"({"a": {"a": 1}, "b": [{"a": 2}, {"a": 3}]})");
    EXPECT_EQ(document.Root().At("b").Elements(2, 2)[1].At("a").Unsigned(0, 9), 3U);
}

TEST(JsonDocument, SkipsAByteOrderMarkAndComments) {
    const JsonDocument document("a.json", "\xEF\xBB\xBF// first\n{/* a */\"a\": /**/ 7 //\n}");
    EXPECT_EQ(document.Root().At("a").Unsigned(0, 9), 7U);
}

TEST(JsonDocument, CountsColumnsBehindAByteOrderMarkFromTheFirstCharacter) {
    try {
        const JsonDocument document("a.json", "\xEF\xBB\xBF?");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Position().column, 1U);
    }
}

TEST(JsonDocument, KeepsAKeyFromBreakingTheErrorsLine) {
    try {
        const JsonDocument document("a.json", R"({"a\nb": ?})");
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_THAT(error.what(), HasSubstr("at \"/a\\nb\": "));
        EXPECT_THAT(error.what(), ::testing::Not(HasSubstr("\n")));
    }
}

TEST(JsonValue, ReadsTheBoundsOfNumbers) {
    const JsonDocument document(
        "a.json",
        R"({"least": -9223372036854775808, "most": 18446744073709551615, "one": 1, "zero": 0})");
    const JsonValue root = document.Root();
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(root.At("least").Signed(kLeast, 0), kLeast);
    EXPECT_EQ(root.At("most").Unsigned(0, kMost), kMost);
    EXPECT_EQ(root.At("one").Unsigned(1, 1), 1U);
    EXPECT_EQ(root.At("zero").Number(0, 1), 0);
    EXPECT_EQ(root.At("one").Number(0, 1), 1);
}

TEST(JsonValue, TellsAMemberThatIsNullFromOneThatIsSet) {
    const JsonDocument document("a.json", R"({"null": null, "set": "x"})");
    EXPECT_TRUE(document.Root().Find("null").has_value());
    EXPECT_FALSE(document.Root().FindSet("null").has_value());
    EXPECT_FALSE(document.Root().FindSet("none").has_value());
    EXPECT_EQ(document.Root().FindSet("set")->Text(), "x");
}

TEST(FindInJson, FindsEveryKeyAndValueByItsPointer) {
    constexpr std::string_view kText = R"({"a": [1, {"b/c": "x"}, []], "": {"~": null}})";
    const std::vector<std::tuple<std::string_view, JsonPart, std::string_view>> rows = {
        {"", JsonPart::Value, "{"},
        {"/a", JsonPart::Key, "\"a\""},
        {"/a", JsonPart::Value, "["},
        {"/a/0", JsonPart::Value, "1"},
        {"/a/1", JsonPart::Value, "{"},
        {"/a/1/b~1c", JsonPart::Key, "\"b/c\""},
        {"/a/1/b~1c", JsonPart::Value, "\"x\""},
        {"/a/2", JsonPart::Value, "["},
        {"/", JsonPart::Key, "\"\""},
        {"/", JsonPart::Value, "{"},
        {"//~0", JsonPart::Value, "null"}};
    for (const auto& [pointer, part, token] : rows) {
        const auto offset = FindInJson(kText, pointer, part);
        ASSERT_TRUE(offset.has_value()) << pointer;
        EXPECT_EQ(TokenAt(kText, *offset), token) << pointer;
    }
    EXPECT_FALSE(FindInJson(kText, "/a/3", JsonPart::Value).has_value());
    EXPECT_FALSE(FindInJson(kText, "/a/0", JsonPart::Key).has_value());
}

TEST(PositionAt, CountsLinesAndCharacters) {
    constexpr std::string_view kText = "ab\nä€c\n";
    EXPECT_EQ(PositionAt(kText, 0).column, 1U);
    EXPECT_EQ(PositionAt(kText, 2).column, 3U);
    EXPECT_EQ(PositionAt(kText, 3).line, 2U);
    EXPECT_EQ(PositionAt(kText, 8).column, 3U);
    EXPECT_EQ(PositionAt(kText, kText.size()).line, 3U);
}

}  // namespace
}  // namespace zam_json
