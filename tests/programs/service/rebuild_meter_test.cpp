#include "channels/rebuild_meter.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "channels/text_meter.h"
#include "common/id_specification.h"
#include "data/upload_file.h"
#include "support/random_tree.h"
#include "tree_json/tree_json.h"
#include "zuv/path_codec.h"

namespace zam_service {
namespace {

using zam_connector::common::RawZamParam;
using RawList = std::vector<RawZamParam>;

std::vector<unsigned char> BlockOf(const zuv::TValue& value) {
    RawList records;
    EXPECT_EQ(zam_connector::common::Serialize(zuv::Root, value, records).first, 0);
    return records.front().value;
}

/// Vectors under these paths, so that anything may stand below them.
RawList Vectors(const std::vector<std::string>& paths) {
    RawList list;
    for (const std::string& path : paths) {
        list.push_back({BlockOf(zuv::Vector()), path});
    }
    return list;
}

/// What the meter counts besides the records and their own nodes.
std::size_t GapBytes(const RawList& list) {
    RebuildMeter meter;
    std::size_t bytes = 0;
    for (const RawZamParam& record : list) {
        const std::size_t added = meter.Add(record);
        bytes = added == kUncountable ? added : SaturatedSum(bytes, added - NodeBytes(record));
    }
    return bytes;
}

/// Nodes of the tree that a list rebuilds to; 0 when it makes none.
std::size_t RebuiltNodes(const RawList& list) {
    zuv::Path root;
    zuv::TValue tree;
    RawList again;
    if (zam_connector::common::Deserialize(list, root, tree).first != 0) {
        return 0;
    }
    EXPECT_EQ(zam_connector::common::Serialize(root, tree, again).first, 0);
    return again.size();
}

TEST(RebuildMeter, CountsARecordAndItsNodeWithTheirBytesTwice) {
    const RawZamParam empty{std::vector<unsigned char>(16), ""};
    const RawZamParam text{std::vector<unsigned char>(16 + 1000), std::string(10, 'p')};
    EXPECT_EQ(NodeBytes(text) - NodeBytes(empty), 2 * (1000 + 10));
    EXPECT_GE(NodeBytes(empty), sizeof(RawZamParam) + sizeof(zuv::Map::value_type));
    EXPECT_EQ(RebuildMeter().Add(text), NodeBytes(text));
}

TEST(RebuildMeter, CountsTheValuesThatFillGaps) {
    struct Row {
        std::vector<std::string> paths;
        std::vector<std::pair<std::size_t, std::size_t>> gaps;  // values, depth
    };
    const Row rows[] = {
        {{"", "0/", "1/"}, {}},
        {{"", "5/"}, {{5, 1}}},
        {{"", "3"}, {{3, 1}}},
        {{"", "0005/"}, {{5, 1}}},
        {{"", "2/", "7/"}, {{6, 1}}},
        {{"a/", "a/3/"}, {{3, 1}}},
        {{"1/2/", "1/2/3/"}, {{3, 1}}},
        {{"", "0/", "0/4/", "1/", "1/2/"}, {{6, 2}}},
        {{"", "0/", "0/1/", "2/", "2/1/"}, {{2, 2}, {1, 1}}},
        {{"", "0/", "0/0/", "0/0/9/", "0/1/", "1/"}, {{9, 3}}},
        {{"", "0/", "9/5/"}, {{5, 2}}},  // the parent is the node placed last, whatever its name
    };
    for (const Row& row : rows) {
        const RawList list = Vectors(row.paths);
        std::size_t values = 0;
        std::size_t bytes = 0;
        for (const auto& [count, depth] : row.gaps) {
            values += count;
            bytes += count * GapValueBytes(depth);
        }
        EXPECT_EQ(GapBytes(list), bytes) << row.paths.back();
        EXPECT_EQ(RebuiltNodes(list), list.size() + values) << row.paths.back();
    }
}

TEST(RebuildMeter, CountsNoGapBehindARecordThatEndsTheRebuild) {
    const std::vector<std::string> rows[] = {
        {"", "1/", "0/", "90/"},   // twice the same element
        {"", "a/b/", "90/"},       // two levels at once
        {"a/", "a/", "a/90/"},     // the root once more
        {"", "1/", "4x/", "90/"},  // no position
        {"", "1/", "a'/", "90/"},  // a reserved character
        {"", "1/", "/", "90/"},    // an empty level
        {"", "1/", "", "90/"},     // no level at all
        {"", "1/", "99999999999999999999/", "90/"},
    };
    for (const auto& paths : rows) {
        const RawList list = Vectors(paths);
        EXPECT_LE(GapBytes(list), GapValueBytes(1)) << paths[2];
        EXPECT_EQ(RebuiltNodes(list), 0U) << paths[2];
    }
}

TEST(RebuildMeter, CountsNoGapTooLow) {
    for (const char* const path :
         {"18446744073709551615/", "18446744073709551614/", "9223372036854775807/"}) {
        EXPECT_EQ(GapBytes(Vectors({"", path})), kUncountable) << path;
    }
}

TEST(RebuildMeter, CountsWhatRandomListsWithHolesRebuildTo) {
    std::mt19937 random(20261121);
    for (int round = 0; round < 300; ++round) {
        std::vector<std::string> paths = {""};
        // Elements of two levels, some of them left out.
        for (unsigned outer = 0; outer < 8; ++outer) {
            if (random() % 3 == 0) {
                continue;
            }
            const std::string path = std::to_string(outer) + "/";
            paths.push_back(path);
            for (unsigned inner = 0; inner < 5; ++inner) {
                if (random() % 2 == 0) {
                    paths.push_back(path + std::to_string(inner) + "/");
                }
            }
        }
        const RawList list = Vectors(paths);
        const std::size_t filled = RebuiltNodes(list) - list.size();
        EXPECT_GE(GapBytes(list), filled * GapValueBytes(1));
        EXPECT_LE(GapBytes(list), filled * GapValueBytes(2));
    }
}

std::string MissingOf(const RawList& list) {
    RebuildMeter meter;
    for (const RawZamParam& record : list) {
        meter.Add(record);
    }
    return meter.Missing();
}

RawZamParam VectorOf(std::uint64_t announced, const std::string& path) {
    RawZamParam record{BlockOf(zuv::Vector()), path};
    for (std::size_t byte = 0; byte < 8; ++byte) {
        record.value[8 + byte] = static_cast<unsigned char>(announced >> 8 * byte);
    }
    return record;
}

TEST(RebuildMeter, FindsAVectorThatHasFewerElementsThanAnnounced) {
    const RawZamParam none{BlockOf(zuv::TValue()), ""};
    const auto at = [&none](const std::string& path) { return RawZamParam{none.value, path}; };
    struct {
        const char* what;
        RawList list;
        std::string missing;
    } const rows[] = {
        {"an empty list", {}, ""},
        {"a scalar", {none}, ""},
        {"empty as announced", {VectorOf(0, "")}, ""},
        {"whole", {VectorOf(2, ""), at("0/"), at("1/")}, ""},
        {"more than announced", {VectorOf(1, ""), at("0/"), at("1/")}, ""},
        {"the root without any",
         {VectorOf(1, "")},
         "the vector at '' has 0 elements of the 1 announced"},
        {"the last is missing",
         {VectorOf(2, ""), at("0/")},
         "the vector at '' has 1 elements of the 2 announced"},
        {"a gap counts", {VectorOf(3, ""), at("2/")}, ""},
        {"inside", {VectorOf(1, ""), VectorOf(1, "0/"), at("0/0/")}, ""},
        {"one that is left",
         {VectorOf(2, ""), VectorOf(2, "0/"), at("0/0/"), at("1/")},
         "the vector at '0/' has 1 elements of the 2 announced"},
        {"the last of all, deep",
         {VectorOf(1, ""), VectorOf(1, "0/"), VectorOf(7, "0/0/")},
         "the vector at '0/0/' has 0 elements of the 7 announced"},
        {"below another root",
         {VectorOf(1, "a/b/"), VectorOf(5, "a/b/0/")},
         "the vector at 'a/b/0/' has 0 elements of the 5 announced"},
        {"as many as there can be",
         {VectorOf(kUncountable, "")},
         "the vector at '' has 0 elements of the 18446744073709551615 announced"},
        {"a block that is cut off", {{std::vector<unsigned char>(15, 1), ""}}, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(MissingOf(row.list), row.missing) << row.what;
    }
    RawZamParam map = VectorOf(5, "");
    map.value[0] = 2;
    EXPECT_EQ(MissingOf({map}), "") << "a map announces nothing";
}

TEST(RebuildMeter, FindsNothingMissingInAnyFlattenedTree) {
    std::mt19937 random(20261122);
    for (int round = 0; round < 300; ++round) {
        zuv::Vector outer;
        for (unsigned at = random() % 4; at != 0; --at) {
            zuv::Vector inner(random() % 3);
            outer.emplace_back(zuv::Map{{"k", std::move(inner)}, {"n", 1L}});
        }
        RawList records;
        ASSERT_EQ(
            zam_connector::common::Serialize(zuv::Root, zuv::TValue(std::move(outer)), records)
                .first,
            0);
        EXPECT_EQ(MissingOf(records), "");
        while (records.size() > 1) {
            const bool wasElement = records.back().path.back() == '/' &&
                                    std::isdigit(static_cast<unsigned char>(
                                        records.back().path[records.back().path.size() - 2])) != 0;
            records.pop_back();
            if (wasElement) {
                EXPECT_NE(MissingOf(records), "") << records.back().path;
            }
        }
    }
}

std::size_t CountedFor(const zuv::TValue& tree) {
    RawList records;
    EXPECT_EQ(zam_connector::common::Serialize(zuv::Root, tree, records).first, 0);
    RebuildMeter meter;
    std::size_t bytes = 0;
    for (const RawZamParam& record : records) {
        bytes += meter.Add(record);
    }
    return bytes;
}

/// A tree's text as its upload's file holds it.
std::size_t TextBytesOf(const zuv::TValue& tree) {
    return zam_connector::tree_json::Write(tree, {.indent = kUploadIndent}).size() + 1;
}

TEST(RebuildMeter, CountsTheTextWhereItIsMoreThanTheRecords) {
    const std::string controls(100'000, '\x01');
    const std::string noUtf8(100'000, '\xff');
    const zuv::TValue escaped = zuv::Map{{"text", controls}};
    EXPECT_GE(CountedFor(escaped), controls.size() + TextBytesOf(escaped));
    EXPECT_LE(CountedFor(escaped), controls.size() + TextBytesOf(escaped) + 1000);
    const zuv::TValue inBase64 = zuv::Map{{"text", noUtf8}};
    EXPECT_GE(CountedFor(inBase64), noUtf8.size() + TextBytesOf(inBase64));
    EXPECT_LE(CountedFor(inBase64), noUtf8.size() + TextBytesOf(inBase64) + 1000);
    const zuv::TValue plain = zuv::Map{{"text", std::string(100'000, 'x')}};
    EXPECT_LT(CountedFor(plain), 2 * TextBytesOf(plain) + 1000);
}

TEST(RebuildMeter, CountsTheIndentationOfPairsBelowAKeyThatIsNoUtf8) {
    zuv::Map inner;
    for (int index = 0; index < 300; ++index) {
        inner.emplace("k" + std::to_string(index), zuv::Map{{"x", 1}});
    }
    // The key that makes pairs of every map comes last.
    zuv::Map map{{"a", inner}, {"\xff", 1}};
    for (int level = 0; level < 60; ++level) {
        map = zuv::Map{{"a", std::move(map)}, {"\xff", 1}};
    }
    const zuv::TValue tree(std::move(map));
    RawList records;
    EXPECT_EQ(zam_connector::common::Serialize(zuv::Root, tree, records).first, 0);
    EXPECT_GE(CountedFor(tree), TextBytesOf(tree));
    EXPECT_LE(CountedFor(tree), TextBytesOf(tree) + 400 * records.size());
}

TEST(TextMeter, CountsNoLessThanIsWritten) {
    zam_test::RandomTrees trees(20261122);
    for (int round = 0; round < 2000; ++round) {
        const zuv::TValue tree = trees.Next(100);
        RawList records;
        EXPECT_EQ(zam_connector::common::Serialize(zuv::Root, tree, records).first, 0);
        TextMeter meter;
        const zuv::PathCodec codec{zam_connector::common::meta::IdSpecification()};
        meter.AddRoot(records.front().value);
        for (std::size_t index = 1; index < records.size(); ++index) {
            zuv::PathCodec::LevelText level;
            std::size_t depth = 0;
            for (std::size_t next = 0; next < records[index].path.size(); next = level.next) {
                ASSERT_EQ(codec.Read(records[index].path, next, level), zuv::IdState::Ok);
                ++depth;
            }
            if (level.isPosition) {
                meter.AddElement(depth, records[index].value);
            } else {
                meter.AddEntry(depth, level.key, records[index].value);
            }
        }
        const std::size_t written = TextBytesOf(tree);
        ASSERT_GE(meter.Bytes(), written) << round;
        ASSERT_LE(meter.Bytes(), written + 80 * records.size()) << round;
    }
}

TEST(SaturatedSum, EndsAtTheLargestNumber) {
    EXPECT_EQ(SaturatedSum(1, 2), 3U);
    EXPECT_EQ(SaturatedSum(kUncountable - 1, 1), kUncountable);
    EXPECT_EQ(SaturatedSum(kUncountable, 1), kUncountable);
    EXPECT_EQ(SaturatedSum(kUncountable, kUncountable), kUncountable);
}

}  // namespace
}  // namespace zam_service
