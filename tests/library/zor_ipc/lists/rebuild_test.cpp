#include <gtest/gtest.h>

#include <limits>

#include "common/raw_zam_param.h"
#include "support/literal_list.h"

namespace zam_connector::common {
namespace {

using zam_test::Block;
using zuv::TValue;

using Result = std::pair<int, std::string>;
using List = std::vector<RawZamParam>;

const Result kRebuilt{0, ""};

RawZamParam Map(const std::string& path) {
    return {Block(2, 0), path};
}

RawZamParam Vector(const std::string& path, unsigned long elements = 0) {
    return {Block(1, elements), path};
}

RawZamParam Int(const std::string& path, unsigned number) {
    return {Block(6, number), path};
}

/// Rebuilds a list that is good.
TValue Rebuild(const List& list, const zuv::Path& expectedRoot = {}) {
    zuv::Path root{"as it was"};
    TValue tree = "as it was";
    EXPECT_EQ(Deserialize(list, root, tree), kRebuilt);
    EXPECT_EQ(root, expectedRoot);
    return tree;
}

TEST(Deserialize, MakesALoneScalar) {
    EXPECT_EQ(Rebuild({Int("", 5)}), TValue(5));
}

TEST(Deserialize, MakesTheTreeOfItsRecords) {
    EXPECT_EQ(Rebuild({Map(""), Vector("a/"), Int("b/", 5)}),
              TValue(zuv::Map{{"a", zuv::Vector{}}, {"b", 5}}));
    EXPECT_EQ(Rebuild({Map(""), Vector("list/", 2), Int("list/0/", 1), Map("list/1/"),
                       Int("list/1/x/", 2), Int("z/", 3)}),
              TValue(zuv::Map{{"list", zuv::MakeVector(1, zuv::Map{{"x", 2}})}, {"z", 3}}));
}

TEST(Deserialize, TakesTheRootFromTheFirstRecord) {
    EXPECT_EQ(Rebuild({Map("root/7/"), Int("root/7/a/", 1)}, {"root", 7UL}),
              TValue(zuv::Map{{"a", 1}}));
    EXPECT_EQ(Rebuild({Int("root", 1)}, {"root"}), TValue(1));
}

TEST(Deserialize, TakesPathsWithAndWithoutTheirLastSeparator) {
    EXPECT_EQ(
        Rebuild({Map("r"), Map("r/a"), Int("r/a/b", 1), Int("r/a/c/", 2), Int("r/d", 3)}, {"r"}),
        TValue(zuv::Map{{"a", zuv::Map{{"b", 1}, {"c", 2}}}, {"d", 3}}));
}

TEST(Deserialize, TellsKeysThatBeginAlikeApart) {
    EXPECT_EQ(
        Rebuild({Map(""), Map("a/"), Int("a/b", 1), Int("a/bc", 2), Int("a/bcd/", 3), Int("ab/", 4),
                 Int("abc", 5)}),
        TValue(zuv::Map{{"a", zuv::Map{{"b", 1}, {"bc", 2}, {"bcd", 3}}}, {"ab", 4}, {"abc", 5}}));
}

TEST(Deserialize, TakesPositionsByTheirNumber) {
    EXPECT_EQ(Rebuild({Vector("007/"), Int("7/0/", 1), Int("07/01", 2)}, {7UL}),
              TValue(zuv::MakeVector(1, 2)));
}

TEST(Deserialize, ReturnsToAnyShallowerLevel) {
    EXPECT_EQ(
        Rebuild({Map(""), Map("a/"), Map("a/b/"), Map("a/b/c/"), Int("a/x/", 1), Int("a/y/", 2),
                 Int("z/", 3)}),
        TValue(zuv::Map{{"a", zuv::Map{{"b", zuv::Map{{"c", zuv::Map{}}}}, {"x", 1}, {"y", 2}}},
                        {"z", 3}}));
}

TEST(Deserialize, TakesTheParentByDepthAlone) {
    // The level above says "other", but the record goes below the one that came before.
    EXPECT_EQ(Rebuild({Map(""), Map("a/"), Int("other/x/", 1), Int("third/y/", 2)}),
              TValue(zuv::Map{{"a", zuv::Map{{"x", 1}, {"y", 2}}}}));
    EXPECT_EQ(Rebuild({Map(""), Map("a/"), Map("a/b/"), Int("q/r/x/", 1), Int("q/s/", 2)}),
              TValue(zuv::Map{{"a", zuv::Map{{"b", zuv::Map{{"x", 1}}}, {"s", 2}}}}));
    EXPECT_EQ(Rebuild({Map(""), Vector("a/"), Int("5/0/", 1)}),
              TValue(zuv::Map{{"a", zuv::MakeVector(1)}}));
}

TEST(Deserialize, FillsGapsOfVectorsWithNone) {
    EXPECT_EQ(Rebuild({Vector(""), Int("0/", 1), Int("3/", 2)}),
              TValue(zuv::MakeVector(1, TValue(), TValue(), 2)));
    EXPECT_EQ(Rebuild({Vector(""), Vector("2/"), Int("2/1/", 1)}),
              TValue(zuv::MakeVector(TValue(), TValue(), zuv::MakeVector(TValue(), 1))));
}

TEST(Deserialize, TakesMapEntriesInAnyOrder) {
    EXPECT_EQ(Rebuild({Map(""), Int("c/", 3), Int("a/", 1), Int("b/", 2)}),
              TValue(zuv::Map{{"a", 1}, {"b", 2}, {"c", 3}}));
}

TEST(Deserialize, DoesNotBelieveTheNumberOfElements) {
    EXPECT_EQ(Rebuild({Vector("", 0), Int("0/", 1), Int("1/", 2)}), TValue(zuv::MakeVector(1, 2)));
    EXPECT_EQ(Rebuild({Vector("", 9), Int("0/", 1)}), TValue(zuv::MakeVector(1)));
}

TEST(Deserialize, ReservesNoMoreThanTheListCanFill) {
    const TValue tree = Rebuild({Vector("", 65536), Vector("0/", 65536), Vector("1/", 65536)});
    std::size_t room = tree.Get<zuv::Vector>().capacity();
    for (const TValue& child : tree.Get<zuv::Vector>()) {
        room += child.Get<zuv::Vector>().capacity();
    }
    EXPECT_EQ(room, 2U);
}

TEST(Deserialize, ReservesForAVectorAllThatTheListHolds) {
    List list{Vector("", 70'000)};
    for (unsigned position = 0; position < 70'000; ++position) {
        list.push_back(Int(std::to_string(position) + "/", position));
    }
    const TValue tree = Rebuild(list);
    EXPECT_EQ(tree.Get<zuv::Vector>().size(), 70'000U);
    EXPECT_EQ(tree.Get<zuv::Vector>().capacity(), 70'000U);
}

struct WrongList {
    List list;
    unsigned code;
    std::string text;
};

std::string StrToPath(const std::string& text, int state) {
    return "[RawZamParams] Str to path fail: src = '" + text +
           "', state = " + std::to_string(state);
}

std::string NonRooted(const std::string& root, const std::string& text) {
    return "[RawZamParams] non-rooted path: root = '" + root + "', this = '" + text + "'";
}

std::string Jump(const std::string& before, const std::string& text) {
    return "[RawZamParams] path level jump: prev = '" + before + "', this = '" + text + "'";
}

const std::string kWrongItem = "zuv: Path or id does not correspond to contained item";
const std::string kExists = "zuv: Item with given id already exists";
const std::string kCut = "[RawZamParams] Insufficient raw data size: fact/plan = 0/16";

class BadList : public ::testing::TestWithParam<WrongList> {};

TEST_P(BadList, IsRefusedWithItsCodeAndText) {
    zuv::Path root{"as it was"};
    TValue tree = "as it was";
    EXPECT_EQ(Deserialize(GetParam().list, root, tree),
              (Result{static_cast<int>(GetParam().code), GetParam().text}));
    EXPECT_EQ(root, zuv::Path{"as it was"});
    EXPECT_EQ(tree, TValue("as it was"));
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadList,
    ::testing::Values(
        WrongList{{}, 0x80000101U, "[RawZamParams] empty raw setting"},
        // The first record.
        WrongList{{{{}, ""}}, 0x8000005cU, kCut},
        WrongList{{{Block(16, 0), ""}}, 0x8000005eU, "[RawZamParams] Invalid value index: 16"},
        WrongList{{Map("/")}, 0x80000046U, StrToPath("/", 5)},
        WrongList{{{{}, "/"}}, 0x8000005cU, kCut},
        // Values and paths of further records.
        WrongList{{Map(""), {{}, "a/"}}, 0x8000005cU, kCut},
        WrongList{{Map(""), {Block(11, 5, "abc"), "a/"}},
                  0x8000005cU,
                  "[RawZamParams] Insufficient raw data size: fact/plan = 19/21"},
        WrongList{{Map(""), Int("/a", 1)}, 0x80000046U, StrToPath("/a", 5)},
        WrongList{{Map(""), Int("a//b", 1)}, 0x80000046U, StrToPath("a//b", 5)},
        WrongList{{Map(""), Map("a/"), Int("a//", 1)}, 0x80000046U, StrToPath("a//", 5)},
        WrongList{{Map(""), Int("0abc/", 1)}, 0x80000046U, StrToPath("0abc/", 7)},
        WrongList{{Map(""), Map("a/"), Int("a/b%c", 1)}, 0x80000046U, StrToPath("a/b%c", 7)},
        WrongList{{Vector(""), Int("18446744073709551616", 1)},
                  0x80000046U,
                  StrToPath("18446744073709551616", 3)},
        // Where it stands.
        WrongList{{Map(""), Int("", 1)}, 0x80000064U, NonRooted("", "")},
        WrongList{{Map("r/"), Int("r/", 1)}, 0x80000064U, NonRooted("r/", "r/")},
        WrongList{{Map("r/"), Int("r", 1)}, 0x80000064U, NonRooted("r/", "r")},
        WrongList{{Map("r/"), Int("s/a/", 1)}, 0x80000064U, NonRooted("r/", "s/a/")},
        WrongList{{Map("r"), Int("rr/a/", 1)}, 0x80000064U, NonRooted("r", "rr/a/")},
        WrongList{{Map("r/"), Int("", 1)}, 0x80000064U, NonRooted("r/", "")},
        WrongList{{Map("r/"), Map("r/a/"), Int("r/", 1)}, 0x80000064U, NonRooted("r/", "r/")},
        WrongList{{Map("7/"), Int("007/", 1)}, 0x80000064U, NonRooted("7/", "007/")},
        WrongList{{Map("7/"), Int("8/a", 1)}, 0x80000064U, NonRooted("7/", "8/a")},
        WrongList{{Map("7/"), Int("a/a", 1)}, 0x80000064U, NonRooted("7/", "a/a")},
        WrongList{{Map("a/"), Int("7/a", 1)}, 0x80000064U, NonRooted("a/", "7/a")},
        WrongList{{Map("r/s/"), Int("r/t/a/", 1)}, 0x80000064U, NonRooted("r/s/", "r/t/a/")},
        WrongList{{Map(""), Vector("a/"), Int("a/0/x/", 1)}, 0x80000065U, Jump("a/", "a/0/x/")},
        WrongList{{Map(""), Int("a/b/", 1)}, 0x80000065U, Jump("", "a/b/")},
        WrongList{{Map("r"), Map("r/a"), Int("r/b", 1), Int("r/b/c/d", 1)},
                  0x80000065U,
                  Jump("r/b", "r/b/c/d")},
        // The order in which a record is looked at.
        WrongList{{Map(""), {{}, "//"}}, 0x8000005cU, kCut},
        WrongList{{Map("r/"), Int("s//", 1)}, 0x80000046U, StrToPath("s//", 5)},
        WrongList{{Map("r/"), Int("s/a/b/c/", 1)}, 0x80000064U, NonRooted("r/", "s/a/b/c/")},
        WrongList{{Int("", 1), Int("a/b/", 1)}, 0x80000065U, Jump("", "a/b/")},
        // What is there.
        WrongList{{Map(""), Int("0/", 1)}, 0x8000004aU, kWrongItem},
        WrongList{{Vector(""), Int("a/", 1)}, 0x8000004aU, kWrongItem},
        WrongList{{Int("", 1), Int("a/", 1)}, 0x8000004aU, kWrongItem},
        WrongList{{Int("", 1), Int("0/", 1)}, 0x8000004aU, kWrongItem},
        WrongList{{{Block(0, 0), ""}, Int("0/", 1)}, 0x8000004aU, kWrongItem},
        WrongList{{Map(""), Int("a/", 1), Int("a/b/", 1)}, 0x8000004aU, kWrongItem},
        WrongList{{Map(""), Int("a/", 1), Int("a/", 2)}, 0x8000004dU, kExists},
        WrongList{{Map(""), Int("b/", 1), Int("a/", 2), Int("b", 3)}, 0x8000004dU, kExists},
        WrongList{{Vector(""), Int("0/", 1), Int("0/", 2)}, 0x8000004dU, kExists},
        WrongList{{Vector(""), Int("3/", 1), Int("1/", 2)}, 0x8000004dU, kExists},
        WrongList{{Vector(""), Int("1/", 1), Int("001/", 2)}, 0x8000004dU, kExists},
        // The limits.
        WrongList{
            {{Block(10, 0), ""}},
            0x8000004bU,
            "zuv: std::exception: a string's length word is 0, at least 1 is needed for its end"},
        WrongList{
            {Vector("", (1UL << 31U) + 1)},
            0x8000004bU,
            "zuv: std::exception: a vector announces 2147483649 elements, at most 2147483648 are "
            "allowed"},
        WrongList{{Vector(""), Int("16777217/", 1)},
                  0x8000004bU,
                  "zuv: std::exception: position 16777217 leaves a gap of 16777217 values behind "
                  "position 0, at most 16777216 more are filled in this list (limit 16777216)"},
        WrongList{
            {Vector(""), Int("18446744073709551615/", 1)},
            0x8000004bU,
            "zuv: std::exception: position 18446744073709551615 leaves a gap of "
            "18446744073709551615 values behind position 0, at most 16777216 more are filled in "
            "this list (limit 16777216)"},
        WrongList{{Vector(""), Int("5/", 1), Int("16777218/", 1)},
                  0x8000004bU,
                  "zuv: std::exception: position 16777218 leaves a gap of 16777212 values behind "
                  "position 6, at most 16777211 more are filled in this list (limit 16777216)"},
        WrongList{{Vector(""), Vector("1000/"), Int("1000/16776217/", 1)},
                  0x8000004bU,
                  "zuv: std::exception: position 16776217 leaves a gap of 16776217 values behind "
                  "position 0, at most 16776216 more are filled in this list (limit 16777216)"}));

TEST(Deserialize, GrowsVectorsUnderTheNodesThatItRemembers) {
    // Every element moves as its vector grows; what comes below an element must not.
    List list{Vector("")};
    for (unsigned position = 0; position < 1000; ++position) {
        const std::string path = std::to_string(position) + "/";
        list.push_back(Vector(path));
        list.push_back(Int(path + "0/", position));
    }
    const TValue tree = Rebuild(list);
    for (unsigned position = 0; position < 1000; ++position) {
        EXPECT_EQ(tree.Get<zuv::Vector>()[position],
                  TValue(zuv::MakeVector(static_cast<int>(position))));
    }
}

TEST(Deserialize, StandsDescendingKeysAndManySiblings) {
    List list{Map("")};
    for (int number = 100'000; number-- > 0;) {
        list.push_back(Int("key" + std::to_string(1'000'000 + number) + "/", 1));
    }
    EXPECT_EQ(Rebuild(list).Get<zuv::Map>().size(), 100'000U);
}

TEST(Deserialize, StandsListsThatKeepReturningToTheRoot) {
    List list{Map("a/b/c/d/")};
    const std::string deep = "a/b/c/d/";
    for (unsigned number = 0; number < 20'000; ++number) {
        const std::string path = deep + "k" + std::to_string(number) + "/";
        list.push_back(Map(path));
        list.push_back(Map(path + "x/"));
        list.push_back(Map(path + "x/y/"));
    }
    EXPECT_EQ(Rebuild(list, {"a", "b", "c", "d"}).Get<zuv::Map>().size(), 20'000U);
}

}  // namespace
}  // namespace zam_connector::common
