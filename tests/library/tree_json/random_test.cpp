#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/random_tree.h"
#include "tree_json/tree_json.h"

namespace {

using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;

TEST(TypedJson, ReadsBackTenThousandRandomTreesIdentically) {
    constexpr std::uint64_t kSeed = 20241121;
    constexpr unsigned kTrees = 10'000;
    zam_test::RandomTrees trees(kSeed, zam_test::TreeKeys::Any);
    for (unsigned number = 0; number < kTrees; ++number) {
        const zuv::TValue tree = trees.Next();
        const std::string compact = Write(tree);
        const std::string indented = Write(tree, {.indent = 1 + number % 4});
        ASSERT_EQ(compact.find('\n'), std::string::npos) << number;
        const zuv::TValue fromCompact = Read(compact);
        ASSERT_TRUE(fromCompact.IsIdenticalTo(tree)) << number << ": " << compact;
        ASSERT_TRUE(Read(indented).IsIdenticalTo(tree)) << number << ": " << indented;
        ASSERT_EQ(Write(fromCompact), compact) << number;
    }
}

}  // namespace
