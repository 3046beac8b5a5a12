#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "placed_reader.h"
#include "quick_reader.h"
#include "tree_json/tree_json.h"

namespace zam_connector::tree_json {
namespace {

using namespace std::string_literals;

std::optional<zuv::TValue> ReadPlaced(std::string_view text) {
    try {
        return ReadWithPlaces(text, "text");
    } catch (const JsonError&) {
        return std::nullopt;
    }
}

/// A copy without a byte behind it, so that a look beyond the end shows.
std::optional<zuv::TValue> ReadExactly(std::string_view text) {
    const std::vector<char> bytes(text.begin(), text.end());
    return ReadQuickly({bytes.data(), bytes.size()});
}

void ExpectSameTree(std::string_view text) {
    const auto placed = ReadPlaced(text);
    ASSERT_TRUE(placed) << text;
    const auto quick = ReadExactly(text);
    ASSERT_TRUE(quick) << text;
    EXPECT_TRUE(quick->IsIdenticalTo(*placed)) << text << ": " << zuv::ToText(*quick);
}

void ExpectRefused(std::string_view text) {
    EXPECT_FALSE(ReadPlaced(text)) << text;
    EXPECT_FALSE(ReadExactly(text)) << text;
}

std::string Nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

TEST(QuickReader, MakesTheTreeOfTheReaderWithPlaces) {
    for (
        const std::string& text :
        {R"([])"s,
         R"({})"s,
         R"( [ ] )"s,
         R"([null, true, false, "", [], {}, [[]], [{}]])"s,
         R"([0, -0, 1, -1, 9223372036854775807, -9223372036854775808])"s,
         R"([0.0, -0.0, 0e5, -0e0, 1e22, 1E+22, 2e-3, 1.5e+10, 5e-324, -5e-324])"s,
         R"([2.4703282292062328e-324, 2.2250738585072011e-308])"s,
         R"([1.7976931348623157e308, 1.7976931348623158e308, 9007199254740993.0])"s,
         R"([0.1000000000000000055511151231257827021181583404541015625, 1.00000000000000000001 ])"s,
         R"([0.1, 0.30000000000000004, 123456789012345678901234567890.0])"s,
         R"(["\"\\\/\b\f\n\r\t", "\u0000", "\u00e4\u20AC\uD83D\ude00", "a\\", "\\\""])"s,
         R"({"\u0024int8": 5})"s,
         R"({"\"": 1, "a\u0000b": 2, "": 3})"s,
         R"([{"$int8": -128}, {"$int16": 32767}, {"$int32": -5}, {"$uint8": 255}])"s,
         R"([{"$uint16": 65535}, {"$uint32": 4294967295}, {"$time": -1}, {"$uint64": 0}])"s,
         R"([{"$uint64": 9223372036854775807}, {"$uint64": 9223372036854775808}])"s,
         R"({"$uint64": 18446744073709551615})"s,
         R"({"$uint8": -0})"s,
         R"([{"$double": "nan"}, {"$double": "-inf"}, {"$double": "0xFFF8000000000000"}])"s,
         R"([{"$blob": ""}, {"$blob": "AH//"}, {"$string": "Yf8="}, {"$string": "YQ=="}])"s,
         R"({"$map": []})"s,
         R"({"$map": [["b", 1], [{"$string": "/w=="}, {"$int8": 2}]]})"s,
         R"({"$map": [["$int8", {"$map": [["$", []]]}]]})"s,
         R"({"$$": 1})"s,
         R"({"$$int8": {"$$$x": 1}})"s,
         R"({"$int8": 1, "$$": 2})"s,
         R"({"$x": 1, "a": 2})"s,
         R"({"a": 1, "$x": 2})"s,
         R"({"b": 1, "a": 2, "c": 3})"s,
         R"({"$map": [], "$uint64": {"$uint64": 18446744073709551615}})"s,
         "[1, // one\r2] /* two */ // three"s,
         "/**/[/***/1/*/*/]//"s,
         "//\n{//\n}"s,
         "[\"//\", \"/*\", \"\\\"//\", 1 /* \" */]"s,
         "[1] // \xFF"s,
         "[/*\xFF\"*/1]"s,
         "[\"\x7F\xC3\xA4\xF4\x8F\xBF\xBF\"]"s,
         Nested(kMaxQuickDepth)}) {
        ExpectSameTree(text);
    }
}

TEST(QuickReader, RefusesWhatTheReaderWithPlacesRefuses) {
    for (const std::string& text : {""s,
                                    " "s,
                                    "//"s,
                                    "/"s,
                                    "["s,
                                    "{"s,
                                    "[1"s,
                                    "[1,"s,
                                    "[1,]"s,
                                    "[,1]"s,
                                    "[1 2]"s,
                                    "[1]]"s,
                                    "[1] 2"s,
                                    "[1] []"s,
                                    "{}{}"s,
                                    "[1}"s,
                                    "{1]"s,
                                    "{\"a\"}"s,
                                    "{\"a\":}"s,
                                    "{\"a\":1,}"s,
                                    "{a:1}"s,
                                    "{1:1}"s,
                                    "{\"a\" 1}"s,
                                    "['a']"s,
                                    "[tru]"s,
                                    "[truee]"s,
                                    "[nul]"s,
                                    "[nulll]"s,
                                    "[True]"s,
                                    "[NaN]"s,
                                    "[-]"s,
                                    "[+1]"s,
                                    "[01]"s,
                                    "[-01]"s,
                                    "[1.]"s,
                                    "[.5]"s,
                                    "[1e]"s,
                                    "[1e+]"s,
                                    "[0x1]"s,
                                    "[1_0]"s,
                                    "[1\"a\"]"s,
                                    "[\"a\"1]"s,
                                    "[\"a\"\"b\"]"s,
                                    "[1e400]"s,
                                    "[-1e400]"s,
                                    "[9223372036854775808]"s,
                                    "[-9223372036854775809]"s,
                                    "[18446744073709551616]"s,
                                    "[123456789012345678901]"s,
                                    R"({"$uint64": 18446744073709551616})"s,
                                    R"({"$uint64": -1})"s,
                                    R"({"$$a": 9223372036854775808})"s,
                                    R"({"$a": 9223372036854775808, "b": 1})"s,
                                    R"({"$int8": 128})"s,
                                    R"({"$int8": 1.0})"s,
                                    R"({"$int8": "1"})"s,
                                    R"({"$uint8": 18446744073709551615})"s,
                                    R"({"$time": 9223372036854775808})"s,
                                    R"({"$int64": 1})"s,
                                    R"({"$": 1})"s,
                                    R"({"$x": null})"s,
                                    R"({"$int8": null})"s,
                                    R"({"$int8": {"$int8": 1}})"s,
                                    R"({"$uint64": {"$uint64": 1}})"s,
                                    R"({"$double": {"$string": "bmFu"}})"s,
                                    R"({"$string": {"$string": "YQ=="}})"s,
                                    R"({"$double": 1.5})"s,
                                    R"({"$double": "0x3ff0000000000000"})"s,
                                    R"({"$double": "NaN"})"s,
                                    R"({"$blob": "AH/"})"s,
                                    R"({"$blob": "AB=="})"s,
                                    R"({"$blob": "A\n=="})"s,
                                    R"({"$blob": 1})"s,
                                    R"({"$map": {}})"s,
                                    R"({"$map": [["a"]]})"s,
                                    R"({"$map": [["a", 1, 2]]})"s,
                                    R"({"$map": [[1, 2]]})"s,
                                    R"({"$map": [{"a": 1}]})"s,
                                    R"({"$map": [["a", 1], ["a", 2]]})"s,
                                    R"({"$map": [["a", 1], [{"$string": "YQ=="}, 2]]})"s,
                                    R"({"a": 1, "a": 2})"s,
                                    R"({"a": 1, "\u0061": 2})"s,
                                    R"({"$a": 1, "$a": 2})"s,
                                    R"({"b": 1, "a": 2, "b": 3})"s,
                                    R"(["\x"])"s,
                                    R"(["\u12"])"s,
                                    R"(["\u12g4"])"s,
                                    R"(["\ud800"])"s,
                                    R"(["\udc00"])"s,
                                    R"(["\ud800\u0041"])"s,
                                    R"(["\ud800\ud800"])"s,
                                    R"(["\ud800x"])"s,
                                    R"(["\ude00\ud83d"])"s,
                                    R"(["a\"])"s,
                                    R"(["a)"s,
                                    R"(["\)"s,
                                    "[\"\n\"]"s,
                                    "[\"\x1F\"]"s,
                                    "[\"\x80\"]"s,
                                    "[\"\xC0\xAF\"]"s,
                                    "[\"\xED\xA0\x80\"]"s,
                                    "[\"\xF4\x90\x80\x80\"]"s,
                                    "[\"\xC3\"]"s,
                                    "\xEF\xBB\xBF[1]"s,
                                    "[1]\xEF\xBB\xBF"s,
                                    "[1]\0"s,
                                    "\0[1]"s,
                                    "[\"\0\"]"s,
                                    "[1 /*\0*/]"s,
                                    "[1] //\0"s,
                                    "[1\f]"s,
                                    "[1\v2]"s,
                                    "[1\xC2\xA0]"s,
                                    "[1] /"s,
                                    "[1] /*"s,
                                    "[1] /* *"s,
                                    "[1 /*/]"s,
                                    "[1/2]"s,
                                    "[tr/**/ue]"s,
                                    "[1/**/2]"s,
                                    "[-/**/1]"s,
                                    "[\"a\"/**/\"b\"]"s,
                                    Nested(kMaxDepth + 1),
                                    Nested(kMaxDepth + 600),
                                    std::string(4096, '['),
                                    "[" + std::string(300, '{')}) {
        ExpectRefused(text);
    }
}

TEST(QuickReader, LeavesTextsThatAreNestedDeepToTheReaderWithPlaces) {
    for (const std::size_t depth : {kMaxQuickDepth + 1, kMaxDepth}) {
        EXPECT_FALSE(ReadQuickly(Nested(depth)).has_value()) << depth;
        EXPECT_TRUE(ReadPlaced(Nested(depth)).has_value()) << depth;
    }
}

TEST(QuickReader, LeavesScalarsAloneAndNumbersTooSmallForADoubleToTheReaderWithPlaces) {
    for (const std::string_view text :
         {"null", "1", "-0.5", "\"a\"", "true", "[1e-400]", "[-1e-400]"}) {
        EXPECT_TRUE(ReadPlaced(text)) << text;
        EXPECT_FALSE(ReadExactly(text)) << text;
    }
}

}  // namespace
}  // namespace zam_connector::tree_json
