#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "tree_json/tree_json.h"

namespace {

using namespace std::string_literals;
using zam_connector::tree_json::JsonError;
using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;
using zuv::TValue;
using Time = qor::types::Timestamp;

struct KindRow {
    TValue tree;
    std::string text;
};

/// Written as the text, read back as the tree.
void Check(const std::vector<KindRow>& rows) {
    for (const KindRow& row : rows) {
        EXPECT_EQ(Write(row.tree), row.text);
        const TValue read = Read(row.text);
        EXPECT_TRUE(read.IsIdenticalTo(row.tree)) << row.text << " read as " << zuv::ToText(read);
    }
}

double FromBits(std::uint64_t bits) {
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

TEST(TypedJson, WritesWhatJsonHasAsItIs) {
    Check({{zuv::None(), "null"},
           {true, "true"},
           {false, "false"},
           {5L, "5"},
           {0L, "0"},
           {-1L, "-1"},
           {1.5, "1.5"},
           {"text", "\"text\""},
           {"", "\"\""},
           {zuv::Vector(), "[]"},
           {zuv::Map(), "{}"},
           {zuv::MakeVector(1L, zuv::None(), "a"), R"([1,null,"a"])"},
           {zuv::MakeVector(zuv::Vector(), zuv::Map()), "[[],{}]"},
           {zuv::Map{{"b", 2L}, {"a", 1L}, {"", zuv::Vector()}}, R"({"":[],"a":1,"b":2})"}});
}

TEST(TypedJson, WritesOtherKindsAsObjectsWithOneKey) {
    Check({{static_cast<signed char>(-5), R"({"$int8":-5})"},
           {static_cast<short>(-5), R"({"$int16":-5})"},
           {-5, R"({"$int32":-5})"},
           {static_cast<unsigned char>(7), R"({"$uint8":7})"},
           {static_cast<unsigned short>(7), R"({"$uint16":7})"},
           {7U, R"({"$uint32":7})"},
           {7UL, R"({"$uint64":7})"},
           {Time(1732000000), R"({"$time":1732000000})"},
           {zuv::Blob{0x00, 0x7F, 0xFF}, R"({"$blob":"AH//"})"},
           {zuv::Blob(), R"({"$blob":""})"},
           {"a\xFF", R"({"$string":"Yf8="})"},
           {zuv::Map{{"\xFF", 1L}}, R"({"$map":[[{"$string":"/w=="},1]]})"}});
}

TEST(TypedJson, KeepsTheLimitsOfEveryIntegerKind) {
    Check({{std::numeric_limits<signed char>::min(), R"({"$int8":-128})"},
           {std::numeric_limits<signed char>::max(), R"({"$int8":127})"},
           {std::numeric_limits<short>::min(), R"({"$int16":-32768})"},
           {std::numeric_limits<short>::max(), R"({"$int16":32767})"},
           {std::numeric_limits<int>::min(), R"({"$int32":-2147483648})"},
           {std::numeric_limits<int>::max(), R"({"$int32":2147483647})"},
           {std::numeric_limits<long>::min(), "-9223372036854775808"},
           {std::numeric_limits<long>::max(), "9223372036854775807"},
           {std::numeric_limits<unsigned char>::max(), R"({"$uint8":255})"},
           {std::numeric_limits<unsigned short>::max(), R"({"$uint16":65535})"},
           {std::numeric_limits<unsigned>::max(), R"({"$uint32":4294967295})"},
           {std::numeric_limits<unsigned long>::max(), R"({"$uint64":18446744073709551615})"},
           {static_cast<unsigned char>(0), R"({"$uint8":0})"},
           {static_cast<unsigned short>(0), R"({"$uint16":0})"},
           {0U, R"({"$uint32":0})"},
           {0UL, R"({"$uint64":0})"},
           {Time(std::numeric_limits<std::int64_t>::min()), R"({"$time":-9223372036854775808})"},
           {Time(std::numeric_limits<std::int64_t>::max()), R"({"$time":9223372036854775807})"}});
}

/// The numbers around a limit, and the one beyond it.
struct Limit {
    std::string key;  ///< empty: a number as it stands
    std::string inside;
    std::string outside;
};

TEST(TypedJson, TakesIntegersUpToTheLimitsOfTheirKindsAndNoFurther) {
    const Limit limits[] = {
        {"$int8", "-127", "-129"},
        {"$int8", "126", "128"},
        {"$int16", "-32767", "-32769"},
        {"$int16", "32766", "32768"},
        {"$int32", "-2147483647", "-2147483649"},
        {"$int32", "2147483646", "2147483648"},
        {"", "-9223372036854775807", "-9223372036854775809"},
        {"", "9223372036854775806", "9223372036854775808"},
        {"$uint8", "1", "-1"},
        {"$uint8", "254", "256"},
        {"$uint16", "1", "-1"},
        {"$uint16", "65534", "65536"},
        {"$uint32", "1", "-1"},
        {"$uint32", "4294967294", "4294967296"},
        {"$uint64", "1", "-1"},
        {"$uint64", "18446744073709551614", "18446744073709551616"},
        {"$time", "-9223372036854775807", "-9223372036854775809"},
        {"$time", "9223372036854775806", "9223372036854775808"},
    };
    for (const Limit& limit : limits) {
        const auto text = [&limit](const std::string& number) {
            return limit.key.empty() ? number : "{\"" + limit.key + "\":" + number + "}";
        };
        EXPECT_EQ(Write(Read(text(limit.inside))), text(limit.inside));
        EXPECT_THROW(Read(text(limit.outside)), JsonError) << text(limit.outside);
    }
}

TEST(TypedJson, WritesDoublesInTheirShortestFormWithAPointOrAnExponent) {
    Check({{0.0, "0.0"},
           {-0.0, "-0.0"},
           {1.0, "1.0"},
           {-1.0, "-1.0"},
           {0.1, "0.1"},
           {1.0 / 3, "0.3333333333333333"},
           {1e22, "1e+22"},
           {1e-7, "1e-07"},
           {123456.0, "123456.0"},
           {9007199254740993.0, "9007199254740992.0"},
           {9223372036854775808.0, "9223372036854775808.0"},
           {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
           {std::numeric_limits<double>::lowest(), "-1.7976931348623157e+308"},
           {std::numeric_limits<double>::min(), "2.2250738585072014e-308"},
           {std::numeric_limits<double>::denorm_min(), "5e-324"}});
}

TEST(TypedJson, NamesTheDoublesThatAreNoNumbers) {
    Check({{std::numeric_limits<double>::infinity(), R"({"$double":"inf"})"},
           {-std::numeric_limits<double>::infinity(), R"({"$double":"-inf"})"},
           {FromBits(0x7FF8000000000000), R"({"$double":"nan"})"},
           {FromBits(0xFFF8000000000000), R"({"$double":"0xfff8000000000000"})"},
           {FromBits(0x7FF0000000000001), R"({"$double":"0x7ff0000000000001"})"},
           {FromBits(0x7FF8DEADBEEF0123), R"({"$double":"0x7ff8deadbeef0123"})"},
           {FromBits(0xFFFFFFFFFFFFFFFF), R"({"$double":"0xffffffffffffffff"})"}});
}

TEST(TypedJson, ReadsTheBitsOfANanInCapitalsAndThoseOfTheNamedOne) {
    EXPECT_EQ(Write(Read(R"({"$double": "0xFFF800000000ABCD"})")),
              R"({"$double":"0xfff800000000abcd"})");
    EXPECT_EQ(Write(Read(R"({"$double": "0x7ff8000000000000"})")), R"({"$double":"nan"})");
}

TEST(TypedJson, TellsWholeNumbersFromDoublesByTheirSpelling) {
    struct {
        const char* text;
        TValue tree;
    } const rows[] = {
        {"-0", 0L},
        {"1.0", 1.0},
        {"1e0", 1.0},
        {"1E+2", 100.0},
        {"100", 100L},
        {"-0e0", -0.0},
        {"1e-400", 0.0},
        {"18446744073709551616.0", 18446744073709551616.0},
        {R"({"$int8": -0})", static_cast<signed char>(0)},
        {R"({"$uint8": -0})", static_cast<unsigned char>(0)},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(Read(row.text).IsIdenticalTo(row.tree)) << row.text;
    }
}

TEST(TypedJson, EscapesInTextsWhatMustBeAndNothingElse) {
    Check({{"\"\\", R"("\"\\")"},
           {"\b\f\n\r\t", R"("\b\f\n\r\t")"},
           {"\0\x01\x1F"s, R"("\u0000\u0001\u001f")"},
           {"/\x7F", "\"/\x7F\""},
           {"aä€😀", "\"aä€😀\""},
           {"\xC2\x80\xE2\x80\xA8", "\"\xC2\x80\xE2\x80\xA8\""},
           {zuv::Map{{"\n\0"s, 1L}}, R"({"\n\u0000":1})"}});
}

TEST(TypedJson, ReadsEveryEscapeOfJson) {
    EXPECT_EQ(Read(R"("\"\\\/\b\f\n\r\t\u0041\u00e4\uD83D\uDE00\u0000")"),
              TValue("\"\\/\b\f\n\r\tAä😀\0"s));
}

TEST(TypedJson, WritesTextsAsBase64ExactlyIfTheyAreNoUtf8) {
    Check({{"\xED\x9F\xBF", "\"\xED\x9F\xBF\""},
           {"\xED\xA0\x80", R"({"$string":"7aCA"})"},
           {"\xC0\x80", R"({"$string":"wIA="})"},
           {"\xF4\x90\x80\x80", R"({"$string":"9JCAgA=="})"},
           {"a\xC3", R"({"$string":"YcM="})"}});
    EXPECT_EQ(Read(R"({"$string": "YQ=="})"), TValue("a"));
}

TEST(TypedJson, WritesOneItemALineWhenIndented) {
    const TValue tree =
        zuv::Map{{"a", zuv::MakeVector(1L, static_cast<signed char>(2), zuv::Vector(), zuv::Map())},
                 {"b", zuv::Map{{"\xFF", "x"}, {"y", zuv::Blob{1}}}},
                 {"c", zuv::Map{{"$d", zuv::None()}}}};
    constexpr char kText[] = R"({
  "a": [
    1,
    {"$int8": 2},
    [],
    {}
  ],
  "b": {
    "$map": [
      [
        "y",
        {"$blob": "AQ=="}
      ],
      [
        {"$string": "/w=="},
        "x"
      ]
    ]
  },
  "c": {
    "$$d": null
  }
})";
    EXPECT_EQ(Write(tree, {.indent = 2}), kText);
    EXPECT_TRUE(Read(kText).IsIdenticalTo(tree));
}

TEST(TypedJson, TakesWiderIndentationsForTheWidest) {
    const TValue tree = zuv::MakeVector(1L);
    EXPECT_EQ(Write(tree, {.indent = 1}), "[\n 1\n]");
    EXPECT_EQ(Write(tree, {.indent = 15}), "[\n" + std::string(15, ' ') + "1\n]");
    EXPECT_EQ(Write(tree, {.indent = 16}), "[\n" + std::string(16, ' ') + "1\n]");
    EXPECT_EQ(Write(tree, {.indent = 17}), "[\n" + std::string(16, ' ') + "1\n]");
}

}  // namespace
