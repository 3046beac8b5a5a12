#include <gtest/gtest.h>

#include "common/arena.h"
#include "common/id_specification.h"
#include "common/raw_zam_param_casts.h"
#include "support/literal_list.h"
#include "support/random_tree.h"

namespace zam_connector::common {
namespace {

using List = std::vector<RawZamParam>;
using zam_test::RandomTrees;
using zuv::TValue;

constexpr int kTrees = 10'000;

class RandomTreeTest : public ::testing::TestWithParam<unsigned> {
protected:
    RandomTrees trees_{GetParam()};
};

TEST_P(RandomTreeTest, ComesBackFromItsList) {
    std::array<int, zuv::kKindCount> kinds{};
    for (int number = 0; number < kTrees; ++number) {
        const TValue tree = trees_.Next();
        const zuv::Path root = trees_.NextPath();
        List list;
        ASSERT_EQ(Serialize(root, tree, list), std::pair(0, std::string())) << tree;
        zuv::Path rebuiltRoot;
        TValue rebuilt;
        ASSERT_EQ(Deserialize(list, rebuiltRoot, rebuilt), std::pair(0, std::string())) << tree;
        ASSERT_TRUE(rebuilt.IsIdenticalTo(tree)) << tree << '\n' << rebuilt;
        ASSERT_EQ(rebuiltRoot, root);
        for (const RawZamParam& record : list) {
            ++kinds.at(record.value[0]);
        }
    }
    for (const int count : kinds) {
        EXPECT_GT(count, kTrees / 10) << "every kind has its share";
    }
}

TEST_P(RandomTreeTest, FlattensAsWrittenDownStepByStep) {
    for (int number = 0; number < kTrees; ++number) {
        const TValue tree = trees_.Next();
        const zuv::Path root = trees_.NextPath();
        List list;
        List literal;
        ASSERT_EQ(Serialize(root, tree, list), zam_test::LiteralSerialize(root, tree, literal));
        ASSERT_EQ(list, literal) << tree;
    }
}

TEST_P(RandomTreeTest, CrossesInPieces) {
    StackArena<676'000> arena;
    for (int number = 0; number < kTrees; ++number) {
        List list;
        Serialize(zuv::Root, trees_.Next(), list);
        List received;
        for (std::size_t begin = 0; begin < list.size(); begin += 10) {
            const auto piece =
                std::span(list).subspan(begin, std::min<std::size_t>(10, list.size() - begin));
            ClearArena(arena.Get());
            const auto sent = CastToVd(piece, arena.Get());
            ASSERT_LT(arena.Get()->used, arena.Get()->capacity);
            AppendFromVd(sent, arena.Get(), received);
        }
        ASSERT_EQ(received, list);
    }
}

TEST_P(RandomTreeTest, HasPathsThatComeBackFromTheirText) {
    for (int number = 0; number < kTrees; ++number) {
        const zuv::Path path = trees_.NextPath();
        const auto [text, state] = zuv::ToString<zuv::Path>(path, meta::IdSpecification());
        ASSERT_EQ(state, zuv::IdState::Ok);
        ASSERT_EQ(zuv::FromString(text, meta::IdSpecification()),
                  (std::pair{path, zuv::IdState::Ok}));
    }
}

TEST_P(RandomTreeTest, IsRebuiltAsStepByStepWhateverIsWrong) {
    // Lists put out of order, cut up and with paths exchanged: the same tree or the same words.
    int good = 0;
    for (int number = 0; number < kTrees; ++number) {
        List list;
        Serialize(trees_.Below(3) == 0 ? trees_.NextPath() : zuv::Root, trees_.Next(30), list);
        for (std::size_t left = trees_.Below(4); left > 0; --left) {
            RawZamParam& one = list[trees_.Below(list.size())];
            RawZamParam& other = list[trees_.Below(list.size())];
            switch (trees_.Below(7)) {
                case 0:
                    std::swap(one, other);
                    break;
                case 1:
                    std::swap(one.path, other.path);
                    break;
                case 2:
                    one.path += std::to_string(trees_.Below(5));
                    break;
                case 3:
                    one.path += "k/";
                    break;
                case 4:
                    one.path.resize(trees_.Below(one.path.size() + 1));
                    break;
                case 5:
                    one.path.insert(trees_.Below(one.path.size() + 1), 1, "/0%a"[trees_.Below(4)]);
                    break;
                default:
                    if (!one.path.empty()) {
                        one.path.pop_back();
                    }
            }
        }
        zuv::Path root;
        TValue tree;
        const auto result = Deserialize(list, root, tree);
        zuv::Path literalRoot;
        TValue literalTree;
        const auto literal = zam_test::LiteralDeserialize(list, literalRoot, literalTree);
        if (literal.second == "zuv: std::exception: gap") {
            continue;  // it fills less than the library does
        }
        ASSERT_EQ(result, literal);
        ASSERT_EQ(root, literalRoot);
        ASSERT_TRUE(tree.IsIdenticalTo(literalTree)) << tree << '\n' << literalTree;
        good += result.first == 0 ? 1 : 0;
    }
    EXPECT_GT(good, kTrees / 10);
    EXPECT_LT(good, kTrees * 9 / 10);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomTreeTest, ::testing::Values(20240229U));

}  // namespace
}  // namespace zam_connector::common
