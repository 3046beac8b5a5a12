#include "zuv/path.h"

#include <gtest/gtest.h>

#include "common/id_specification.h"
#include "support/literal_list.h"
#include "zuv/path_codec.h"

namespace zuv {
namespace {

const IdSpec& Spec() {
    return zam_connector::common::meta::IdSpecification();
}

Level Position(unsigned long position) {
    return position;
}

TEST(IdSpecification, SeparatesBySlashesAndReservesSixCharacters) {
    EXPECT_EQ(Spec().chars, "/\\\"'`%");
    EXPECT_EQ(Spec().maxIndex, 0U);
    EXPECT_EQ(&Spec(), &zam_connector::common::meta::IdSpecification());
}

TEST(Root, IsTheEmptyPath) {
    EXPECT_TRUE(Root.empty());
}

TEST(Level, HoldsAPositionOrAKey) {
    EXPECT_TRUE((std::is_same_v<Level, std::variant<unsigned long, std::string>>));
}

struct Good {
    Path path;
    std::string text;
};

TEST(PathText, IsThatOfEveryLevelInOrder) {
    const std::vector<Good> table{
        {{}, ""},
        {{"a"}, "a/"},
        {{"a", Position(0), "b"}, "a/0/b/"},
        {{"list", Position(2)}, "list/2/"},
        {{Position(0)}, "0/"},
        {{Position(18446744073709551615UL)}, "18446744073709551615/"},
        {{Position(1), Position(22), Position(333)}, "1/22/333/"},
        {{"-1"}, "-1/"},
        {{"a0b"}, "a0b/"},
        {{" "}, " /"},
        {{std::string("\0", 1)}, std::string("\0/", 2)},
        {{"\xC3\xA9\xFF"}, "\xC3\xA9\xFF/"},
        {{"a.b-c_d$e:f"}, "a.b-c_d$e:f/"},
        {{std::string(5000, 'k')}, std::string(5000, 'k') + "/"},
    };
    for (const Good& row : table) {
        const auto [text, written] = ToString<Path>(row.path, Spec());
        EXPECT_EQ(text, row.text);
        EXPECT_EQ(written, IdState::Ok);
        const auto [path, read] = FromString(row.text, Spec());
        EXPECT_EQ(path, row.path) << row.text;
        EXPECT_EQ(read, IdState::Ok) << row.text;
        if (!row.text.empty()) {
            const std::string cut = row.text.substr(0, row.text.size() - 1);
            EXPECT_EQ(FromString(cut, Spec()), (std::pair{row.path, IdState::Ok})) << cut;
        }
    }
}

struct Unwritable {
    Path path;
    IdSpec spec;
    int state;
};

TEST(ToString, SaysWhatIsWrongWithTheFirstBadLevel) {
    std::vector<Unwritable> table{
        {{}, {"", 0}, 8},
        {{"a"}, {"", 0}, 8},
        {{Position(6)}, {"/", 5}, 2},
        {{Position(18446744073709551615UL)}, {"/", 18446744073709551614UL}, 2},
        {{""}, Spec(), 4},
        {{"a", "", "0"}, Spec(), 4},
        {{"0abc"}, Spec(), 6},
        {{"9"}, Spec(), 6},
        {{"0/"}, Spec(), 6},
        {{"a", "0", ""}, Spec(), 6},
        {{"100%"}, Spec(), 6},
        {{"a%"}, Spec(), 7},
        {{"%"}, Spec(), 7},
        {{"a\\b"}, Spec(), 7},
        {{"a/b"}, Spec(), 7},
        {{"a\"b"}, Spec(), 7},
        {{"a'b"}, Spec(), 7},
        {{"a`b"}, Spec(), 7},
        {{"ab", "c."}, {".", 0}, 7},
    };
    for (const Unwritable& row : table) {
        const auto [text, state] = ToString<Path>(row.path, row.spec);
        EXPECT_EQ(static_cast<int>(state), row.state);
        EXPECT_EQ(text, "");
    }
}

TEST(ToString, TellsALevelThatIsNeitherPositionNorKey) {
    Path path{"a", 0UL, ""};
    const zam_test::ValuelessLevel valueless(path[1]);
    EXPECT_EQ(ToString<Path>(path, Spec()), std::pair(std::string(), IdState::NoAlternative));
    EXPECT_EQ(static_cast<int>(IdState::NoAlternative), 1);
}

TEST(ToString, TakesPositionsUpToTheLimit) {
    EXPECT_EQ(ToString<Path>({Position(5)}, {"/", 5}).first, "5/");
    EXPECT_EQ(ToString<Path>({Position(6)}, {"/", 5}).second, IdState::IndexTooLarge);
}

struct Unreadable {
    std::string text;
    IdSpec spec;
    int state;
};

TEST(FromString, SaysWhatIsWrongWithTheFirstBadLevel) {
    const std::vector<Unreadable> table{
        {"", {"", 0}, 8},
        {"a", {"", 0}, 8},
        {"6/", {"/", 5}, 2},
        {"6", {"/", 5}, 2},
        {"18446744073709551615", {"/", 18446744073709551614UL}, 2},
        {"18446744073709551616", {"/", 5}, 3},
        {"18446744073709551616", Spec(), 3},
        {"18446744073709551616/", Spec(), 3},
        {"a/99999999999999999999", Spec(), 3},
        {"/", Spec(), 5},
        {"/a", Spec(), 5},
        {"a//b", Spec(), 5},
        {"a//", Spec(), 5},
        {"//", Spec(), 5},
        {"0abc/", Spec(), 7},
        {"0 ", Spec(), 7},
        {"1-", Spec(), 7},
        {"99999999999999999999x", Spec(), 7},
        {"a%/", Spec(), 7},
        {"a/b\\/c", Spec(), 7},
        {"'", Spec(), 7},
        {"`a", Spec(), 7},
        {"a\"", Spec(), 7},
        {"a%//", Spec(), 7},
        {"a//%", Spec(), 5},
    };
    for (const Unreadable& row : table) {
        const auto [path, state] = FromString(row.text, row.spec);
        EXPECT_EQ(static_cast<int>(state), row.state) << row.text;
        EXPECT_TRUE(path.empty()) << row.text;
    }
}

TEST(FromString, ReadsPositionsByTheirNumber) {
    EXPECT_EQ(FromString("007/", Spec()).first, Path{Position(7)});
    EXPECT_EQ(FromString("0000000000000000000000000000001", Spec()).first, Path{Position(1)});
    EXPECT_EQ(FromString("5/", {"/", 5}).first, Path{Position(5)});
    EXPECT_EQ(FromString("a.1.b", {".", 0}).first, (Path{"a", Position(1), "b"}));
}

TEST(FromString, EndsAtTheEndOfItsText) {
    const std::string text = "a/12345";
    EXPECT_EQ(FromString(std::string_view(text).substr(0, 4), Spec()).first,
              (Path{"a", Position(12)}));
}

TEST(IdState, IsOneByte) {
    EXPECT_EQ(sizeof(IdState), 1U);
    EXPECT_EQ(static_cast<int>(IdState::Ok), 0);
    EXPECT_EQ(static_cast<int>(IdState::NumberConversion), 3);
    EXPECT_EQ(static_cast<int>(IdState::EmptyLevel), 5);
}

TEST(PathCodec, LeavesTheTextAsItWasOnFailure) {
    const PathCodec codec(Spec());
    PathText text;
    ASSERT_EQ(codec.Append(text, std::string_view("good")), IdState::Ok);
    EXPECT_EQ(codec.Append(text, std::string_view("ba%d")), IdState::ReservedCharacter);
    EXPECT_EQ(codec.Append(text, std::string_view("")), IdState::EmptyKey);
    EXPECT_EQ(text.View(), "good/");
    ASSERT_EQ(codec.Append(text, 7UL), IdState::Ok);
    EXPECT_EQ(text.View(), "good/7/");
    text.Truncate(5);
    EXPECT_EQ(text.View(), "good/");
}

}  // namespace
}  // namespace zuv
