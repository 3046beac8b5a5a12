#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "common/raw_zam_param.h"

namespace zam_test {

/// The records of a tree; the test fails when it cannot be sent.
inline std::vector<zam_connector::common::RawZamParam> Flattened(
    const zuv::TValue& tree, const zuv::Path& root = zuv::Root) {
    std::vector<zam_connector::common::RawZamParam> records;
    EXPECT_EQ(zam_connector::common::Serialize(root, tree, records), std::pair(0, std::string()));
    return records;
}

}  // namespace zam_test
