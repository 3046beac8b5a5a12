#include "tree_listing.h"

#include <gtest/gtest.h>

#include <limits>

namespace zamctl::test {
namespace {

using zuv::Map;

TEST(TreeListing, ShowsValuesOfEveryKind) {
    struct Row {
        zuv::TValue value;
        const char* text;
    };
    const Row rows[] = {
        {{}, "none"},
        {true, "true"},
        {static_cast<signed char>(-5), "int8 -5"},
        {static_cast<short>(-300), "int16 -300"},
        {7, "int32 7"},
        {-7L, "-7"},
        {static_cast<unsigned char>(200), "uint8 200"},
        {static_cast<unsigned short>(443), "uint16 443"},
        {7U, "uint32 7"},
        {18446744073709551615UL, "uint64 18446744073709551615"},
        {0.25, "0.25"},
        {2.0, "2.0"},
        {-0.0, "-0.0"},
        {1e22, "1e+22"},
        {std::numeric_limits<double>::infinity(), "inf"},
        {std::numeric_limits<double>::quiet_NaN(), "nan"},
        {qor::types::Timestamp(1732000000), "timestamp 1732000000"},
        {"text \"and\" \x1b[0m\n", R"("text \"and\" \x1b[0m\n")"},
        {zuv::Blob{}, "blob of 0 bytes"},
        {zuv::Blob{0x00, 0x7F, 0xFF}, "blob of 3 bytes 007fff"},
        {zuv::Vector{}, "[]"},
        {Map{}, "{}"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ListTree(row.value), row.text);
    }
}

TEST(TreeListing, IndentsWhatLiesBelow) {
    const zuv::TValue tree =
        Map{{"b", zuv::MakeVector(1L, Map{{"deep", "x"}, {"none", zuv::None()}}, zuv::Vector{})},
            {"a", Map{{"empty", Map{}}}}};
    EXPECT_EQ(ListTree(tree),
              "a:\n"
              "  empty: {}\n"
              "b:\n"
              "  [0]: 1\n"
              "  [1]:\n"
              "    deep: \"x\"\n"
              "    none: none\n"
              "  [2]: []");
}

TEST(TreeListing, QuotesKeysThatCouldMislead) {
    const zuv::TValue tree =
        Map{{"a b", 1L}, {"plain-key_1.x", 2L}, {"k\x1b[2J", 3L}, {"\xff", 4L}};
    EXPECT_EQ(ListTree(tree),
              "\"a b\": 1\n"
              "\"k\\x1b[2J\": 3\n"
              "plain-key_1.x: 2\n"
              "\"\\xff\": 4");
}

TEST(TreeListing, CutsLongBlobs) {
    const std::string shown(2 * kMaxListedBlobBytes, '0');
    EXPECT_EQ(ListTree(zuv::Blob(kMaxListedBlobBytes)), "blob of 32 bytes " + shown);
    EXPECT_EQ(ListTree(zuv::Blob(kMaxListedBlobBytes + 1)), "blob of 33 bytes " + shown + "...");
}

TEST(TreeListing, ListsTreesDeeperThanAnyStack) {
    constexpr std::size_t kLevels = 5000;
    zuv::TValue tree = 1L;
    for (std::size_t level = 0; level < kLevels; ++level) {
        zuv::Vector outer;
        outer.push_back(std::move(tree));
        tree = std::move(outer);
    }
    const std::string listing = ListTree(tree);
    EXPECT_EQ(listing.substr(listing.rfind('\n') + 1),
              std::string(2 * (kLevels - 1), ' ') + "[0]: 1");
}

}  // namespace
}  // namespace zamctl::test
