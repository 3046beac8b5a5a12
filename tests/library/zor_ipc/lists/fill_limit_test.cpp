#include <gtest/gtest.h>

#include "common/raw_zam_param.h"
#include "support/literal_list.h"

namespace zam_connector::common {
namespace {

using zam_test::Block;

TEST(Deserialize, FillsAsManyGapsAsItsLimitAllows) {
    ASSERT_EQ(kMaxFilledElements, 16777216U);
    const std::vector<RawZamParam> list{
        {Block(1, 0), ""}, {Block(6, 1), "1000/"}, {Block(6, 2), "16777217/"}};
    zuv::Path root;
    zuv::TValue tree;
    EXPECT_EQ(Deserialize(list, root, tree), std::pair(0, std::string()));
    const auto& vector = tree.Get<zuv::Vector>();
    ASSERT_EQ(vector.size(), 16777218U);
    EXPECT_EQ(vector[16777216], zuv::TValue());
    EXPECT_EQ(vector[16777217], zuv::TValue(2));
}

}  // namespace
}  // namespace zam_connector::common
