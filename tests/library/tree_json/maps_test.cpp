#include <gtest/gtest.h>

#include <string>

#include "tree_json/tree_json.h"

namespace {

using namespace std::string_literals;
using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;
using zuv::TValue;

struct MapRow {
    zuv::Map map;
    std::string text;
};

TEST(TypedJsonMap, MarksItsOnlyKeyWhenThatBeginsWithADollarSign) {
    const MapRow rows[] = {
        {{{"$", 1L}}, R"({"$$":1})"},
        {{{"$int8", 1L}}, R"({"$$int8":1})"},
        {{{"$$", 1L}}, R"({"$$$":1})"},
        {{{"$$int8", 1L}}, R"({"$$$int8":1})"},
        {{{"$map", zuv::Vector()}}, R"({"$$map":[]})"},
        {{{"$unknown", zuv::Map{{"$int8", 300L}}}}, R"({"$$unknown":{"$$int8":300}})"},
    };
    for (const MapRow& row : rows) {
        EXPECT_EQ(Write(row.map), row.text);
        EXPECT_TRUE(Read(row.text).IsIdenticalTo(row.map)) << row.text;
    }
}

TEST(TypedJsonMap, KeepsEveryOtherKeyAsItStands) {
    const MapRow rows[] = {
        {{{"$int8", 1L}, {"a", 2L}}, R"({"$int8":1,"a":2})"},
        {{{"$int8", 300L}, {"$map", 2L}}, R"({"$int8":300,"$map":2})"},
        {{{"$$", 1L}, {"$", 2L}}, R"({"$":2,"$$":1})"},
        {{{"$unknown", 1L}, {"", 2L}}, R"({"":2,"$unknown":1})"},
        {{{"a$", 1L}}, R"({"a$":1})"},
        {{{" $", 1L}}, R"({" $":1})"},
        {{{"", 1L}}, R"({"":1})"},
    };
    for (const MapRow& row : rows) {
        EXPECT_EQ(Write(row.map), row.text);
        EXPECT_TRUE(Read(row.text).IsIdenticalTo(row.map)) << row.text;
    }
}

TEST(TypedJsonMap, IsWrittenInPairsWhenAKeyIsNoUtf8) {
    const MapRow rows[] = {
        {{{"\x80", 1L}}, R"({"$map":[[{"$string":"gA=="},1]]})"},
        {{{"$\x80", 1L}}, R"({"$map":[[{"$string":"JIA="},1]]})"},
        {{{"$int8", 1L}, {"\x80", zuv::Vector()}},
         R"({"$map":[["$int8",1],[{"$string":"gA=="},[]]]})"},
        {{{"a", zuv::Map{{"\x80", 1L}}}}, R"({"a":{"$map":[[{"$string":"gA=="},1]]}})"},
    };
    for (const MapRow& row : rows) {
        EXPECT_EQ(Write(row.map), row.text);
        EXPECT_TRUE(Read(row.text).IsIdenticalTo(row.map)) << row.text;
    }
}

TEST(TypedJsonMap, IsReadFromPairsInAnyOrderAndWithAnyKeys) {
    EXPECT_EQ(Read(R"({"$map": []})"), TValue(zuv::Map()));
    EXPECT_EQ(Read(R"({"$map": [["b", 1], [{"$string": "YQ=="}, 2], ["", 3]]})"),
              TValue(zuv::Map{{"b", 1L}, {"a", 2L}, {"", 3L}}));
}

TEST(TypedJsonMap, HasItsKeysInTheOrderOfTheirBytes) {
    EXPECT_EQ(Write(zuv::Map{{"ä", 1L}, {"z", 2L}, {"Z", 3L}, {"z\0"s, 4L}, {"\x7F", 5L}}),
              "{\"Z\":3,\"z\":2,\"z\\u0000\":4,\"\x7F\":5,\"ä\":1}");
}

}  // namespace
