#include <gtest/gtest.h>

#include <functional>

#include "common/raw_zam_param.h"
#include "support/stack.h"
#include "zuv/for_each.h"

namespace zuv {
namespace {

constexpr std::size_t kLevels = 20'000;
constexpr std::size_t kStackBytes = std::size_t{8} << 20U;

void OnAnOrdinaryStack(const std::function<void()>& body) {
    zam_test::OnStackOf(kStackBytes, body);
}

/// Maps and vectors in turns, each with a leaf beside the next level.
TValue DeepTree(std::size_t levels) {
    TValue tree = "the end";
    for (std::size_t level = 0; level < levels; ++level) {
        if (level % 2 == 0) {
            Vector vector;
            vector.push_back(std::move(tree));
            vector.emplace_back("beside it");
            tree = std::move(vector);
        } else {
            Map map;
            map.emplace("a", 1);
            map.emplace("b", std::move(tree));
            map.emplace("c", "beside it");
            tree = std::move(map);
        }
    }
    return tree;
}

TEST(DeepTree, IsDestroyedCopiedComparedWalkedAndPrinted) {
    OnAnOrdinaryStack([] {
        TValue tree = DeepTree(kLevels);
        TValue copy = tree;
        EXPECT_TRUE(copy == tree);
        EXPECT_TRUE(copy.IsIdenticalTo(tree));
        std::size_t visits = 0;
        std::size_t deepest = 0;
        Path path;
        ForEach(
            tree,
            [&](const Path& at, const TValue&) {
                ++visits;
                deepest = std::max(deepest, at.size());
                return for_each::Option::Continue;
            },
            path);
        EXPECT_EQ(visits, 1 + kLevels / 2 * 5);
        EXPECT_EQ(deepest, kLevels);
        EXPECT_EQ(ToText(tree).size(), kDefaultTextBytes + 3);
        copy = DeepTree(kLevels + 2);
        EXPECT_FALSE(copy == tree);
        tree = std::move(copy);
        tree = 5;
    });
}

TEST(DeepTree, IsDestroyedFromItsContainersToo) {
    OnAnOrdinaryStack([] {
        Vector vector;
        vector.push_back(DeepTree(kLevels));
        vector.push_back(DeepTree(kLevels));
        vector.clear();
        Map map;
        map.emplace("a", DeepTree(kLevels));
        const Map copy = map;
        EXPECT_EQ(copy.at("a"), map.at("a"));
        map.erase("a");
    });
}

TEST(DeepTree, OfManyMoreLevelsIsDestroyedAndCopied) {
    OnAnOrdinaryStack([] {
        const TValue tree = DeepTree(10 * kLevels);
        const TValue copy = tree;
        EXPECT_TRUE(copy == tree);
    });
}

TEST(DeepTree, IsFlattenedAndRebuilt) {
    OnAnOrdinaryStack([] {
        const TValue tree = DeepTree(kLevels);
        std::vector<zam_connector::common::RawZamParam> list;
        EXPECT_EQ(zam_connector::common::Serialize(Root, tree, list), std::pair(0, std::string()));
        EXPECT_EQ(list.size(), 1 + kLevels / 2 * 5);
        Path root;
        TValue rebuilt;
        EXPECT_EQ(zam_connector::common::Deserialize(list, root, rebuilt),
                  std::pair(0, std::string()));
        EXPECT_TRUE(rebuilt.IsIdenticalTo(tree));
    });
}

}  // namespace
}  // namespace zuv
