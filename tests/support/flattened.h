#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "common/raw_zam_param.h"

namespace zam_test {

/// The records of a tree.
inline std::vector<zam_connector::common::RawZamParam> Flattened(const zuv::TValue& tree) {
    std::vector<zam_connector::common::RawZamParam> records;
    EXPECT_EQ(zam_connector::common::Serialize(zuv::Root, tree, records).first, 0);
    return records;
}

}  // namespace zam_test
