#include "zuv/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <sstream>

#include "support/literal_list.h"
#include "zuv/error.h"

namespace zuv {
namespace {

/// One value of every kind, in the order of the kinds.
std::vector<TValue> OneOfEach() {
    return {TValue(),
            Vector{},
            Map{},
            true,
            static_cast<signed char>(-1),
            static_cast<short>(-2),
            -3,
            -4L,
            0.5,
            qor::types::Timestamp(6),
            "text",
            Blob{1, 2},
            static_cast<unsigned char>(1),
            static_cast<unsigned short>(2),
            3U,
            4UL};
}

TEST(Value, HoldsSixteenAlternativesInTheOrderOfTheWire) {
    const std::vector<TValue> values = OneOfEach();
    ASSERT_EQ(values.size(), kKindCount);
    for (std::size_t index = 0; index < values.size(); ++index) {
        EXPECT_EQ(values[index].Index(), index);
        EXPECT_EQ(values[index].Kind(), static_cast<Kind>(index));
    }
    EXPECT_TRUE(values[0].Is<zuv_sm::None>());
    EXPECT_TRUE(values[1].Is<std::vector<TValue>>());
    EXPECT_TRUE(values[2].Is<Map>());
    EXPECT_TRUE(values[3].Is<bool>());
    EXPECT_TRUE(values[4].Is<signed char>());
    EXPECT_TRUE(values[5].Is<short>());
    EXPECT_TRUE(values[6].Is<int>());
    EXPECT_TRUE(values[7].Is<long>());
    EXPECT_TRUE(values[8].Is<double>());
    EXPECT_TRUE(values[9].Is<qor::types::Timestamp>());
    EXPECT_TRUE(values[10].Is<std::string>());
    EXPECT_TRUE(values[11].Is<std::vector<unsigned char>>());
    EXPECT_TRUE(values[12].Is<unsigned char>());
    EXPECT_TRUE(values[13].Is<unsigned short>());
    EXPECT_TRUE(values[14].Is<unsigned int>());
    EXPECT_TRUE(values[15].Is<unsigned long>());
}

TEST(Value, IsTheTemplateOfItsTag) {
    EXPECT_TRUE((std::is_same_v<TValue, aux::impl::TValue<aux::impl::UValueTag>>));
}

TEST(Value, TakesWhatConvertsWithoutLossAndNothingElse) {
    EXPECT_EQ(TValue(1.5F).Get<double>(), 1.5);
    EXPECT_EQ(TValue(-5LL).Get<long>(), -5);
    EXPECT_EQ(TValue(5ULL).Get<unsigned long>(), 5U);
    EXPECT_EQ(TValue(std::string_view("view")).Get<std::string>(), "view");
    const char array[] = "array";
    EXPECT_EQ(TValue(array).Get<std::string>(), "array");
    char text[] = "text";
    EXPECT_EQ(TValue(static_cast<char*>(text)).Get<std::string>(), "text");
    EXPECT_FALSE((std::is_constructible_v<TValue, char>));
    EXPECT_FALSE((std::is_constructible_v<TValue, int*>));
    EXPECT_FALSE((std::is_constructible_v<TValue, std::nullptr_t>));
    EXPECT_FALSE((std::is_constructible_v<TValue, long double>));
}

TEST(Value, NestsInitialisers) {
    const TValue tree = Map{{"name", "gate"},
                            {"ports", MakeVector(80, 443, MakeVector(1))},
                            {"none", TValue()},
                            {"more", Map{{"deep", true}}}};
    EXPECT_EQ(tree.Find("name")->Get<std::string>(), "gate");
    EXPECT_EQ(tree.Find("ports")->Get<Vector>().size(), 3U);
    EXPECT_EQ(tree.Find("ports")->Get<Vector>()[2], TValue(MakeVector(1)));
    EXPECT_TRUE(tree.Find("more")->Find("deep")->Get<bool>());
    EXPECT_EQ(tree.Find("absent"), nullptr);
    const TValue scalar = 1;
    EXPECT_EQ(scalar.Find("absent"), nullptr);
}

TEST(Value, SaysWhichKindItIsNot) {
    const TValue value = Map{};
    try {
        value.Get<std::string>();
        FAIL();
    } catch (const std::bad_variant_access& error) {
        EXPECT_STREQ(error.what(), "the value is of kind map, not string");
    }
    EXPECT_THROW(TValue(5).Get<long>(), BadKind);
    EXPECT_EQ(value.GetIf<std::string>(), nullptr);
    EXPECT_NE(value.GetIf<Map>(), nullptr);
}

TEST(Value, NamesEveryKind) {
    std::set<std::string> names;
    for (std::size_t index = 0; index < kKindCount; ++index) {
        names.insert(KindName(static_cast<Kind>(index)));
    }
    EXPECT_EQ(names.size(), kKindCount);
    EXPECT_STREQ(KindName(Kind::None), "none");
    EXPECT_STREQ(KindName(Kind::UInt64), "uint64");
    EXPECT_STREQ(KindName(Kind::Valueless), "valueless");
    EXPECT_STREQ(KindName(static_cast<Kind>(kKindCount)), "valueless");
}

TEST(Value, CanBeWithoutAnyAlternative) {
    const TValue value = zam_test::ValuelessValue();
    EXPECT_TRUE(value.IsValueless());
    EXPECT_EQ(value.Kind(), Kind::Valueless);
    EXPECT_EQ(value.Index(), std::variant_npos);
    EXPECT_THROW(value.Get<int>(), BadKind);
    EXPECT_THROW(value.Visit([](const auto&) {}), std::bad_variant_access);
    EXPECT_EQ(value, zam_test::ValuelessValue());
    EXPECT_NE(value, TValue());
    EXPECT_EQ(TValue(value), value);
    EXPECT_EQ(ToText(value), "valueless");
}

TEST(Value, VisitsTheAlternativeItHolds) {
    TValue value = 5;
    value.Visit([](auto& held) {
        if constexpr (std::is_same_v<std::decay_t<decltype(held)>, int>) {
            held = 6;
        }
    });
    const std::size_t size = value.Visit([](const auto& held) { return sizeof held; });
    EXPECT_EQ(value, TValue(6));
    EXPECT_EQ(size, sizeof(int));
}

TEST(Value, ComparesKindsAndValues) {
    const std::vector<TValue> values = OneOfEach();
    for (std::size_t left = 0; left < values.size(); ++left) {
        for (std::size_t right = 0; right < values.size(); ++right) {
            EXPECT_EQ(values[left] == values[right], left == right) << left << ' ' << right;
            EXPECT_EQ(values[left] != values[right], left != right) << left << ' ' << right;
        }
    }
    EXPECT_NE(TValue(1), TValue(2));
    EXPECT_NE(TValue(1), TValue(1L));
    EXPECT_NE(TValue(MakeVector(1)), TValue(MakeVector(1, 2)));
    EXPECT_NE(TValue(MakeVector(1, 2)), TValue(MakeVector(2, 1)));
    EXPECT_NE(TValue(Map{{"a", 1}}), TValue(Map{{"b", 1}}));
    EXPECT_NE(TValue(Map{{"a", 1}}), TValue(Map{{"a", 2}}));
    EXPECT_NE(TValue(Map{{"a", 1}}), TValue(Map{{"a", 1}, {"b", 1}}));
    EXPECT_NE(TValue(MakeVector(Map{{"a", MakeVector(1)}})),
              TValue(MakeVector(Map{{"a", MakeVector(2)}})));
    EXPECT_NE(TValue("a"), TValue(std::string("a\0", 2)));
}

TEST(Value, ComparesDoublesAsNumbersOrBitForBit) {
    const TValue nan = std::numeric_limits<double>::quiet_NaN();
    const TValue negativeNan = -std::numeric_limits<double>::quiet_NaN();
    EXPECT_NE(nan, nan);
    EXPECT_TRUE(nan.IsIdenticalTo(nan));
    EXPECT_FALSE(nan.IsIdenticalTo(negativeNan));
    EXPECT_EQ(TValue(0.0), TValue(-0.0));
    EXPECT_FALSE(TValue(0.0).IsIdenticalTo(TValue(-0.0)));
    EXPECT_TRUE(TValue(MakeVector(nan, 1)).IsIdenticalTo(TValue(MakeVector(nan, 1))));
    EXPECT_FALSE(TValue(MakeVector(nan, 1)).IsIdenticalTo(TValue(MakeVector(nan, 2))));
}

TEST(Value, CopiesDeeplyAndMovesWhole) {
    TValue tree = Map{{"list", MakeVector("a text too long to be held inside the string", 2)}};
    TValue copy = tree;
    copy.Get<Map>()["list"].Get<Vector>()[1] = 3;
    EXPECT_EQ(tree.Find("list")->Get<Vector>()[1], TValue(2));
    const std::string* text = tree.Find("list")->Get<Vector>()[0].GetIf<std::string>();
    const TValue moved = std::move(tree);
    EXPECT_EQ(moved.Find("list")->Get<Vector>()[0].GetIf<std::string>(), text);
    EXPECT_TRUE((std::is_nothrow_move_constructible_v<TValue>));
    EXPECT_TRUE((std::is_nothrow_move_assignable_v<TValue>));
}

template <typename Value>
constexpr bool kHasGetIf = requires(Value value) {
    std::forward<Value>(value).template GetIf<int>();
};
template <typename Value>
constexpr bool kHasFind = requires(Value value) {
    std::forward<Value>(value).Find("key");
};

TEST(Value, ThatEndsGivesItsContentAwayAndNoPointerIntoIt) {
    EXPECT_TRUE((std::is_same_v<decltype(TValue(1).Get<int>()), int>));
    EXPECT_EQ(TValue("text").Get<std::string>(), "text");
    EXPECT_TRUE(kHasGetIf<TValue&> && kHasGetIf<const TValue&>);
    EXPECT_FALSE(kHasGetIf<TValue> || kHasGetIf<const TValue>);
    EXPECT_TRUE(kHasFind<TValue&> && kHasFind<const TValue&>);
    EXPECT_FALSE(kHasFind<TValue> || kHasFind<const TValue>);
}

TEST(Value, CanBeAssignedAPartOfItself) {
    TValue tree = Map{{"inner", Map{{"inner", MakeVector(1, 2)}}}};
    tree = std::move(tree.Get<Map>()["inner"]);
    EXPECT_EQ(tree, TValue(Map{{"inner", MakeVector(1, 2)}}));
    tree = tree.Get<Map>()["inner"];
    EXPECT_EQ(tree, TValue(MakeVector(1, 2)));
    TValue& self = tree;
    tree = self;
    EXPECT_EQ(tree, TValue(MakeVector(1, 2)));
    tree = std::move(self);
    EXPECT_EQ(tree, TValue(MakeVector(1, 2)));
}

TEST(Value, OrdersKeysByUnsignedBytes) {
    const TValue tree = Map{{"\xFF", 1}, {"a", 2}, {"B", 3}, {"", 4}, {"aa", 5}, {"\x01", 6}};
    std::string keys;
    for (const auto& [key, value] : tree.Get<Map>()) {
        keys += key + '|';
    }
    EXPECT_EQ(keys, "|\x01|B|a|aa|\xFF|");
}

TEST(ValueText, ShowsEveryKind) {
    EXPECT_EQ(ToText(MakeVector(TValue(), Vector{}, Map{}, true, false)),
              "[none, [], {}, true, false]");
    EXPECT_EQ(ToText(static_cast<signed char>(-1)), "int8 -1");
    EXPECT_EQ(ToText(static_cast<short>(-2)), "int16 -2");
    EXPECT_EQ(ToText(-3), "int32 -3");
    EXPECT_EQ(ToText(-4L), "int64 -4");
    EXPECT_EQ(ToText(0.5), "double 0.5");
    EXPECT_EQ(ToText(qor::types::Timestamp(-6)), "timestamp -6");
    EXPECT_EQ(ToText(Blob{0, 255}), "blob 00ff");
    EXPECT_EQ(ToText(static_cast<unsigned char>(65)), "uint8 65");
    EXPECT_EQ(ToText(static_cast<unsigned short>(2)), "uint16 2");
    EXPECT_EQ(ToText(3U), "uint32 3");
    EXPECT_EQ(ToText(4UL), "uint64 4");
}

TEST(ValueText, QuotesTextsAndNests) {
    EXPECT_EQ(ToText(Map{{"a\"", "b\\\n\x7F"}, {"list", MakeVector(1, Map{{"x", Map{}}}, 2)}}),
              R"({"a\"": "b\\\x0a\x7f", "list": [int32 1, {"x": {}}, int32 2]})");
}

TEST(ValueText, EscapesWhatATerminalMightObey) {
    EXPECT_EQ(ToText("\x1B[2J"), R"("\x1b[2J")");
    EXPECT_EQ(ToText("\xC2\x9B"
                     "2J\xC2\xA0"),
              "\"\\xc2\\x9b2J\xC2\xA0\"");
    EXPECT_EQ(ToText("\xC3\xA9"), "\"\xC3\xA9\"");
    EXPECT_EQ(ToText("\xC3\xA9\xFF"), R"("\xc3\xa9\xff")") << "no UTF-8 at all";
    EXPECT_EQ(ToText(std::string(100, '\x80'), 10), R"("\x80\x80\...)");
}

TEST(ValueText, IsCutBehindItsLimit) {
    EXPECT_EQ(ToText("abcdef", 7), "\"abcdef...");
    EXPECT_EQ(ToText("abcdef", 8), "\"abcdef\"");
    EXPECT_EQ(ToText("\xC3\xA9\xC3\xA9\xC3\xA9", 4), "\"\xC3\xA9...") << "not within a character";
    EXPECT_LT(ToText(Vector(100'000, TValue("text"))).size(), kDefaultTextBytes + 4);
    EXPECT_LT(ToText(Blob(100'000)).size(), kDefaultTextBytes + 4);
}

TEST(ValueText, IsWhatStreamsGet) {
    std::ostringstream out;
    out << TValue(MakeVector(1));
    EXPECT_EQ(out.str(), "[int32 1]");
}

TEST(Timestamp, OrdersByItsCount) {
    using qor::types::Timestamp;
    EXPECT_EQ(Timestamp().Count(), 0);
    const Timestamp early(-1);
    const Timestamp late(1);
    EXPECT_TRUE(early < late && late > early && early <= late && late >= early && early != late);
    EXPECT_TRUE(early == Timestamp(-1) && early <= early && early >= early);
    EXPECT_FALSE(late < early || early > late || late <= early || early >= late);
}

}  // namespace
}  // namespace zuv
