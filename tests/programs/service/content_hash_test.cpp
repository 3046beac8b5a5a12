#include "data/content_hash.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace zam_service {
namespace {

using zuv::Blob;
using zuv::Map;
using zuv::TValue;
using zuv::Vector;

/// Trees of which no two are identical.
std::vector<TValue> Trees() {
    return {TValue(),
            Vector{},
            Map{},
            false,
            true,
            static_cast<signed char>(1),
            static_cast<short>(1),
            1,
            1L,
            2L,
            static_cast<unsigned char>(1),
            static_cast<unsigned short>(1),
            1U,
            1UL,
            1.0,
            0.0,
            -0.0,
            std::numeric_limits<double>::quiet_NaN(),
            qor::types::Timestamp(1),
            "",
            "a",
            std::string("a\0", 2),
            Blob{},
            Blob{'a'},
            Vector{TValue()},
            Vector{TValue(), TValue()},
            Vector{TValue(Vector{})},
            Vector{TValue("ab"), TValue("c")},
            Vector{TValue("a"), TValue("bc")},
            Map{{"a", TValue()}},
            Map{{"b", TValue()}},
            Map{{"a", Map{{"b", 1}}}},
            Map{{"a", Map{}}, {"b", 1}},
            Map{{"ab", "c"}},
            Map{{"a", "bc"}}};
}

TEST(ContentHash, TellsTreesApart) {
    std::set<std::uint64_t> hashes;
    for (const TValue& tree : Trees()) {
        EXPECT_TRUE(hashes.insert(HashOf(tree)).second) << zuv::ToText(tree);
    }
    EXPECT_EQ(hashes.count(kAbsentHash), 0U);
}

TEST(ContentHash, IsEqualForIdenticalTrees) {
    for (const TValue& tree : Trees()) {
        const TValue copy(tree);
        EXPECT_EQ(HashOf(copy), HashOf(tree)) << zuv::ToText(tree);
    }
}

TEST(ContentHash, TellsBytesFromTheirNeighbours) {
    const auto hashOf = [](const std::vector<std::string>& parts) {
        ContentHash hash;
        for (const std::string& part : parts) {
            hash.AddBytes(part);
        }
        return hash.Value();
    };
    EXPECT_EQ(hashOf({"ab", "c"}), hashOf({"ab", "c"}));
    EXPECT_NE(hashOf({"ab", "c"}), hashOf({"a", "bc"}));
    EXPECT_NE(hashOf({}), hashOf({""}));
    EXPECT_NE(hashOf({}), kAbsentHash);
}

/// Clients keep hashes across restarts and updates of the service: another value for the same
/// content would make every one of them fetch everything anew.
TEST(ContentHash, StaysWhatItWasInEarlierVersions) {
    EXPECT_EQ(HashOf(Map{{"port", 443L}, {"list", Vector{TValue(true), TValue("a")}}}),
              18310195894501778458U);
}

}  // namespace
}  // namespace zam_service
