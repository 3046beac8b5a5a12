#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <ostream>
#include <string>

#include "tree_json/tree_json.h"

namespace {

using namespace std::string_literals;
using zam_connector::tree_json::JsonError;
using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;

struct WrongJson {
    const char* name;
    std::string text;
    std::size_t line;
    std::size_t column;
    std::string pointer;
    std::string message;
};

std::ostream& operator<<(std::ostream& out, const WrongJson& row) {
    return out << row.name;
}

class WrongTypedJson : public ::testing::TestWithParam<WrongJson> {};

TEST_P(WrongTypedJson, IsRefusedWithLineColumnPointerAndReason) {
    const WrongJson& row = GetParam();
    try {
        Read(row.text, "t");
        FAIL() << "accepted: " << row.text;
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Line(), row.line) << error.what();
        EXPECT_EQ(error.Column(), row.column) << error.what();
        EXPECT_EQ(error.Pointer(), row.pointer);
        EXPECT_EQ(error.Message(), row.message);
    }
}

const std::string kBase64 = "allowed is a text in Base64, with padding and no stray bits";
const std::string kDoubles =
    R"(allowed is "nan", "inf", "-inf" or the bits of a NaN as 0x and 16 hexadecimal digits)";
const std::string kKinds =
    "the key names no kind, allowed are $int8, $int16, $int32, $uint8, $uint16, $uint32, $uint64, "
    "$time, $double, $string, $blob, $map; the only key of a map is written with one more dollar "
    "sign";
const std::string k64Bits =
    "allowed is a whole number from -9223372036854775808 to "
    "9223372036854775807";
const std::string kTooLarge = "allowed is a whole number of at most 64 bits";

INSTANTIATE_TEST_SUITE_P(
    Numbers, WrongTypedJson,
    ::testing::Values(
        WrongJson{"Int8Below", R"({"$int8": -129})", 1, 11, "/$int8",
                  "is -129, allowed is a whole number from -128 to 127"},
        WrongJson{"Int8Above", R"({"$int8": 128})", 1, 11, "/$int8",
                  "is 128, allowed is a whole number from -128 to 127"},
        WrongJson{"Int16Above", R"({"$int16": 32768})", 1, 12, "/$int16",
                  "is 32768, allowed is a whole number from -32768 to 32767"},
        WrongJson{"Int32Above", R"({"$int32": 2147483648})", 1, 12, "/$int32",
                  "is 2147483648, allowed is a whole number from -2147483648 to 2147483647"},
        WrongJson{"Int64Above", "[1,\n9223372036854775808]", 2, 1, "/1",
                  "is 9223372036854775808, " + k64Bits},
        WrongJson{"Int64Below", "-9223372036854775809", 1, 1, "",
                  "is -9223372036854775809, " + k64Bits},
        WrongJson{"UInt8Below", R"({"$uint8": -1})", 1, 12, "/$uint8",
                  "is -1, allowed is a whole number from 0 to 255"},
        WrongJson{"UInt8Above", R"({"$uint8": 256})", 1, 12, "/$uint8",
                  "is 256, allowed is a whole number from 0 to 255"},
        WrongJson{"UInt16Above", R"({"$uint16": 65536})", 1, 13, "/$uint16",
                  "is 65536, allowed is a whole number from 0 to 65535"},
        WrongJson{"UInt32Above", R"({"$uint32": 4294967296})", 1, 13, "/$uint32",
                  "is 4294967296, allowed is a whole number from 0 to 4294967295"},
        WrongJson{"UInt64Below", R"({"$uint64": -1})", 1, 13, "/$uint64",
                  "is -1, allowed is a whole number from 0 to 18446744073709551615"},
        WrongJson{
            "UInt64Above", R"({"$uint64": 18446744073709551616})", 1, 13, "/$uint64",
            "is 18446744073709551616, allowed is a whole number from 0 to 18446744073709551615"},
        WrongJson{"UInt64AboveAsItStands", "{\"a\": 18446744073709551616}", 1, 7, "/a",
                  "is 18446744073709551616, " + k64Bits},
        WrongJson{"Int8FarAbove", R"({"$int8": 18446744073709551616})", 1, 11, "/$int8",
                  "is 18446744073709551616, allowed is a whole number from -128 to 127"},
        WrongJson{"WideIntegerForBlob", R"({"$blob": 18446744073709551616})", 1, 11, "/$blob",
                  "is 18446744073709551616, " + kBase64},
        WrongJson{"WideIntegerForKey", R"({"$map": [[18446744073709551616, 1]]})", 1, 12,
                  "/$map/0/0",
                  R"(is 18446744073709551616, allowed is a text or {"$string": Base64})"},
        WrongJson{"TimeAbove", R"({"$time": 9223372036854775808})", 1, 11, "/$time",
                  "is 9223372036854775808, " + k64Bits},
        WrongJson{"Fraction", R"({"$int8": 1.0})", 1, 11, "/$int8",
                  "is 1.0, allowed is a whole number from -128 to 127"},
        WrongJson{"Exponent", R"({"$uint8": 1e1})", 1, 12, "/$uint8",
                  "is 1e1, allowed is a whole number from 0 to 255"},
        WrongJson{"TextForNumber", R"({"$int8": "1"})", 1, 11, "/$int8",
                  R"(is "1", allowed is a whole number from -128 to 127)"},
        WrongJson{"ArrayForNumber", R"({"$time": [1]})", 1, 11, "/$time",
                  "is an array, " + k64Bits},
        WrongJson{"ObjectForNumber", R"({"$uint8": {"$uint8": 1}})", 1, 12, "/$uint8",
                  "is an object, allowed is a whole number from 0 to 255"},
        WrongJson{"NullForNumber", R"({"$int8": null})", 1, 11, "/$int8",
                  "is null, allowed is a whole number from -128 to 127"},
        WrongJson{"VeryLongInteger", "[" + std::string(400, '7') + "]", 1, 2, "/0",
                  "is " + std::string(64, '7') + "..., " + kTooLarge},
        WrongJson{"DoubleTooLarge", "[-1e400]", 1, 2, "/0", "number overflow parsing '-1e400'"},
        WrongJson{"LongDoubleTooLarge", "[" + std::string(400, '7') + ".0]", 1, 2, "/0",
                  "number overflow parsing '" + std::string(64, '7') + "...'"}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Kinds, WrongTypedJson,
    ::testing::Values(
        WrongJson{"UnknownKind", "[{}, {\n \"$int64\" : 5}]", 2, 2, "/1/$int64", kKinds},
        WrongJson{"DollarAlone", R"({"$": 5})", 1, 2, "/$", kKinds},
        WrongJson{"KindInCapitals", R"({"$Int8": 5})", 1, 2, "/$Int8", kKinds},
        WrongJson{"KindWithMore", R"({"$int8 ": 5})", 1, 2, "/$int8 ", kKinds},
        WrongJson{"NumberForDouble", R"({"$double": 1.5})", 1, 13, "/$double",
                  "is 1.5, " + kDoubles},
        WrongJson{"OtherNameOfDouble", R"({"$double": "NaN"})", 1, 13, "/$double",
                  "is \"NaN\", " + kDoubles},
        WrongJson{"BitsOfANumber", R"({"$double": "0x3ff0000000000000"})", 1, 13, "/$double",
                  "is \"0x3ff0000000000000\", " + kDoubles},
        WrongJson{"BitsOfInfinity", R"({"$double": "0x7ff0000000000000"})", 1, 13, "/$double",
                  "is \"0x7ff0000000000000\", " + kDoubles},
        WrongJson{"BitsTooFew", R"({"$double": "0x7ff800000000000"})", 1, 13, "/$double",
                  "is \"0x7ff800000000000\", " + kDoubles},
        WrongJson{"BitsTooMany", R"({"$double": "0x07ff8000000000000"})", 1, 13, "/$double",
                  "is \"0x07ff8000000000000\", " + kDoubles},
        WrongJson{"BitsWithASign", R"({"$double": "0x-ff8000000000000"})", 1, 13, "/$double",
                  "is \"0x-ff8000000000000\", " + kDoubles},
        WrongJson{"BitsWithOtherLetters", R"({"$double": "0xfff800000000000g"})", 1, 13, "/$double",
                  "is \"0xfff800000000000g\", " + kDoubles},
        WrongJson{"BitsWithOtherPrefix", R"({"$double": "0Xfff8000000000000"})", 1, 13, "/$double",
                  "is \"0Xfff8000000000000\", " + kDoubles},
        WrongJson{"NumberForBlob", R"({"$blob": 5})", 1, 11, "/$blob", "is 5, " + kBase64},
        WrongJson{"BlobWithoutPadding", R"({"$blob": "QQ"})", 1, 11, "/$blob",
                  "is \"QQ\", " + kBase64},
        WrongJson{"BlobWithStrayBits", R"({"$blob": "QR=="})", 1, 11, "/$blob",
                  "is \"QR==\", " + kBase64},
        WrongJson{"StringWithStrayBits", R"({"$string": "QR=="})", 1, 13, "/$string",
                  "is \"QR==\", " + kBase64},
        WrongJson{"StringOfOtherAlphabet", R"({"$string": "_-8="})", 1, 13, "/$string",
                  "is \"_-8=\", " + kBase64},
        WrongJson{"BehindComments", "// \xC3\xA4\n{/* {\"$int8\": 1} */\"$blob\":/**/1}", 2, 32,
                  "/$blob", "is 1, " + kBase64}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Maps, WrongTypedJson,
    ::testing::Values(
        WrongJson{"ObjectForPairs", R"({"$map": {"a": 1}})", 1, 10, "/$map",
                  "is an object, allowed is an array of pairs [key, value]"},
        WrongJson{"TextForPairs", R"({"$map": "a"})", 1, 10, "/$map",
                  R"(is "a", allowed is an array of pairs [key, value])"},
        WrongJson{"TextForPair", R"({"$map": [["a", 1], "b"]})", 1, 21, "/$map/1",
                  R"(is "b", allowed is a pair [key, value])"},
        WrongJson{"PairTooShort", R"({"$map": [["a"]]})", 1, 11, "/$map/0",
                  "has 1 elements, allowed is a pair [key, value]"},
        WrongJson{"PairTooLong", R"({"$map": [["a", 1, 2]]})", 1, 11, "/$map/0",
                  "has 3 elements, allowed is a pair [key, value]"},
        WrongJson{"NumberForKey", R"({"$map": [[1, 1]]})", 1, 12, "/$map/0/0",
                  R"(is 1, allowed is a text or {"$string": Base64})"},
        WrongJson{"ObjectForKey", R"({"$map": [[{}, 1]]})", 1, 12, "/$map/0/0",
                  R"(is an object, allowed is a text or {"$string": Base64})"},
        WrongJson{"OtherKindForKey", R"({"$map": [[{"$blob": "QQ=="}, 1]]})", 1, 12, "/$map/0/0",
                  R"(is an object, allowed is a text or {"$string": Base64})"},
        WrongJson{"KeyWithMoreMembers", R"({"$map": [[{"$string": "", "a": 1}, 1]]})", 1, 12,
                  "/$map/0/0", R"(is an object, allowed is a text or {"$string": Base64})"},
        WrongJson{"KeyInBadBase64", R"({"$map": [[{"$string": "QQ"}, 1]]})", 1, 24,
                  "/$map/0/0/$string", "is \"QQ\", " + kBase64},
        WrongJson{"KeyTwice", R"({"$map": [["a", 1], ["b", 2], ["a", 3]]})", 1, 32, "/$map/2/0",
                  "the key stands twice in the same map"},
        WrongJson{"KeyTwiceInOtherForm", R"({"$map": [["a", 1], [{"$string": "YQ=="}, 2]]})", 1, 22,
                  "/$map/1/0", "the key stands twice in the same map"},
        WrongJson{"ValueOfPair", R"({"$map": [["a", {"$int8": 128}]]})", 1, 27, "/$map/0/1/$int8",
                  "is 128, allowed is a whole number from -128 to 127"},
        WrongJson{"KeyTwiceInObject", "{\"a\": 1,\n \"\\u0061\": 2}", 2, 2, "/a",
                  "the key stands twice in the same object"},
        WrongJson{"KindTwice", R"({"$int8": 1, "$int8": 1})", 1, 14, "/$int8",
                  "the key stands twice in the same object"},
        WrongJson{"BehindMarkedKey", R"({"$$a": {"$b": 1}})", 1, 10, "/$$a/$b", kKinds},
        WrongJson{"InObjectOfMoreMembers", R"({"$a": 1, "$b": {"$c": 1}})", 1, 18, "/$b/$c",
                  kKinds}),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Syntax, WrongTypedJson,
    ::testing::Values(
        WrongJson{
            "Empty", "", 1, 1, "",
            "syntax error while parsing value - unexpected end of input; expected '[', '{', or a "
            "literal"},
        WrongJson{
            "TrailingComma", "[1,\n]", 2, 1, "/1",
            "syntax error while parsing value - unexpected ']'; expected '[', '{', or a literal"},
        WrongJson{
            "TwoDocuments", "1 2", 1, 3, "",
            "syntax error while parsing value - unexpected number literal; expected end of input"},
        WrongJson{"NoUtf8", "[\"a\xFF\"]", 1, 4, "/0",
                  "syntax error while parsing value - invalid string: ill-formed UTF-8 byte"},
        WrongJson{"NoUtf8InKey", "{\"a\xFF\": 1}", 1, 4, "",
                  "syntax error while parsing object key - invalid string: ill-formed UTF-8 byte"},
        WrongJson{
            "HalfASurrogatePair", R"(["\uD83D"])", 1, 9, "/0",
            "syntax error while parsing value - invalid string: surrogate U+D800..U+DBFF must be "
            "followed by U+DC00..U+DFFF"},
        WrongJson{"OpenComment", "1 /* no end", 1, 12, "",
                  "syntax error while parsing value - invalid comment; missing closing '*/'"},
        WrongJson{"ZeroByteBehind", "[1]\0"s, 1, 4, "", "a byte 00 stands in the text"},
        WrongJson{"ZeroByteInside", "[1,\0 2]"s, 1, 4, "/1", "a byte 00 stands in the text"},
        WrongJson{"ZeroByteInText", "[\"a\0b\"]"s, 1, 4, "/0", "a byte 00 stands in the text"},
        WrongJson{"ZeroByteInComment", "1 // a\0b"s, 1, 7, "", "a byte 00 stands in the text"},
        WrongJson{"ErrorBeforeAZeroByte", "[?,\0]"s, 1, 2, "/0",
                  "syntax error while parsing value - invalid literal"},
        WrongJson{"SecondByteOrderMark",
                  "\xEF\xBB\xBF\xEF\xBB\xBF"
                  "1",
                  1, 1, "", "begins with a second byte order mark"},
        WrongJson{
            "HalfAByteOrderMark",
            "\xEF\xBB"
            "1",
            1, 2, "",
            "syntax error while parsing value - invalid BOM; must be 0xEF 0xBB 0xBF if given"},
        WrongJson{"BehindACommentThatACarriageReturnEnds", "[// a\r1, {\"$x\": 1}]", 1, 11, "/1/$x",
                  kKinds}),
    [](const auto& row) { return std::string(row.param.name); });

/// Fails to become what it is asked to be, as an allocation that fails would.
struct Thrower {
    operator zuv::Map() const { throw std::bad_alloc(); }  // NOLINT
};

TEST(TypedJsonWriter, RefusesANodeWithoutAnAlternativeAndNamesIt) {
    zuv::TValue broken(5L);
    EXPECT_THROW(broken.Emplace<zuv::Map>(Thrower()), std::bad_alloc);
    ASSERT_TRUE(broken.IsValueless());
    zuv::Map map{{"\xFF", zuv::None()}, {"a/b", zuv::MakeVector(1L)}};
    map["a/b"].Get<zuv::Vector>().push_back(std::move(broken));
    try {
        Write(zuv::Map{{"$k", std::move(map)}});
        FAIL();
    } catch (const JsonError& error) {
        EXPECT_EQ(error.Line(), 0U);
        EXPECT_EQ(error.Column(), 0U);
        EXPECT_EQ(error.Pointer(), "/$$k/$map/0/1/1");
        EXPECT_EQ(error.Message(), "holds no value: an assignment to it failed half way");
        EXPECT_STREQ(error.what(),
                     "at \"/$$k/$map/0/1/1\": holds no value: an assignment to it failed half way");
    }
}

}  // namespace
