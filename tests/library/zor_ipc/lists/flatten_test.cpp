#include <gtest/gtest.h>

#include <stdexcept>

#include "common/raw_zam_param.h"
#include "support/literal_list.h"

namespace zam_connector::common {
namespace {

using zam_test::Block;
using zuv::TValue;

using Result = std::pair<int, std::string>;
using List = std::vector<RawZamParam>;

const Result kFlattened{0, ""};

int Code(unsigned bits) {
    return static_cast<int>(bits);
}

TEST(Serialize, MakesOneRecordOfALoneScalar) {
    List list;
    EXPECT_EQ(Serialize<zuv::Path>(zuv::Root, 5, list), kFlattened);
    EXPECT_EQ(list, (List{{Block(6, 5), ""}}));
}

TEST(Serialize, PutsParentsBeforeChildren) {
    List list;
    const TValue tree = zuv::Map{{"b", 5}, {"a", zuv::Vector{}}};
    EXPECT_EQ(Serialize(zuv::Root, tree, list), kFlattened);
    EXPECT_EQ(list, (List{{Block(2, 0), ""}, {Block(1, 0), "a/"}, {Block(6, 5), "b/"}}));
}

TEST(Serialize, WritesPositionsAsLevels) {
    List list;
    const TValue tree = zuv::Map{{"list", zuv::MakeVector(1, zuv::Map{{"x", true}}, "ab")}};
    EXPECT_EQ(Serialize(zuv::Root, tree, list), kFlattened);
    EXPECT_EQ(list, (List{{Block(2, 0), ""},
                          {Block(1, 3), "list/"},
                          {Block(6, 1), "list/0/"},
                          {Block(2, 0), "list/1/"},
                          {Block(3, 1), "list/1/x/"},
                          {Block(10, 3, std::string("ab\0", 3)), "list/2/"}}));
}

TEST(Serialize, WritesTheRootInFrontOfEveryPath) {
    List list;
    EXPECT_EQ(Serialize<zuv::Path>({"root", 7UL}, zuv::MakeVector(1), list), kFlattened);
    EXPECT_EQ(list, (List{{Block(1, 1), "root/7/"}, {Block(6, 1), "root/7/0/"}}));
}

TEST(Serialize, AppendsToWhatIsThere) {
    List list{{Block(0, 0), "before/"}};
    EXPECT_EQ(Serialize<zuv::Path>(zuv::Root, true, list), kFlattened);
    EXPECT_EQ(list, (List{{Block(0, 0), "before/"}, {Block(3, 1), ""}}));
}

struct WrongTree {
    zuv::Path root;
    TValue tree;
    unsigned code;
    std::string text;
};

TEST(Serialize, FailsAtTheFirstBadNodeAndLeavesTheListAsItWas) {
    const std::string path = "[RawZamParams] Path to str fail: state = ";
    const std::string state = "[RawZamParams] Invalid value state";
    const std::vector<WrongTree> table{
        {{}, zam_test::ValuelessValue(), 0x8000006aU, state},
        {{}, zuv::Map{{"a", zam_test::ValuelessValue()}}, 0x8000006aU, state},
        {{}, zuv::MakeVector(1, 2, zam_test::ValuelessValue()), 0x8000006aU, state},
        {{}, zuv::Map{{"", 1}}, 0x80000046U, path + "4"},
        {{}, zuv::Map{{"0", 1}}, 0x80000046U, path + "6"},
        {{}, zuv::Map{{"a%", 1}}, 0x80000046U, path + "7"},
        {{}, zuv::MakeVector(zuv::Map{{"a", zuv::Map{{"b/c", 1}}}}), 0x80000046U, path + "7"},
        {{""}, 1, 0x80000046U, path + "4"},
        {{"a", "1"}, 1, 0x80000046U, path + "6"},
        {{"%", ""}, 1, 0x80000046U, path + "7"},
        // The value is looked at before the path, and the first node in the walk decides.
        {{"%"}, zam_test::ValuelessValue(), 0x8000006aU, state},
        {{}, zuv::Map{{"%", zam_test::ValuelessValue()}}, 0x8000006aU, state},
        {{}, zuv::Map{{"%", 1}, {"a", zam_test::ValuelessValue()}}, 0x80000046U, path + "7"},
        {{}, zuv::Map{{"a", zam_test::ValuelessValue()}, {"b%", 1}}, 0x8000006aU, state},
    };
    for (const WrongTree& row : table) {
        List list{{Block(0, 0), "before/"}};
        EXPECT_EQ(Serialize(row.root, row.tree, list), (Result{Code(row.code), row.text}));
        EXPECT_EQ(list, (List{{Block(0, 0), "before/"}}));
    }
}

TEST(Serialize, TellsALevelWithoutAlternative) {
    zuv::Path root{"a", 0UL};
    const zam_test::ValuelessLevel valueless(root.back());
    List list;
    EXPECT_EQ(Serialize(root, TValue(1), list),
              (Result{Code(0x80000046U), "[RawZamParams] Path to str fail: state = 1"}));
}

}  // namespace
}  // namespace zam_connector::common
