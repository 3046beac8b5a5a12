#include "data/tree_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "common/raw_zam_param_casts.h"
#include "support/flattened.h"
#include "tree_json/tree_json.h"

namespace zam_service {
namespace {

using ::testing::HasSubstr;
using zam_connector::common::RawZamParam;
using zam_test::Flattened;

/// The records of one piece, as a client reads them.
std::vector<RawZamParam> RecordsOf(std::vector<unsigned char> piece) {
    vd_arena arena{};
    vd_arena_init(&arena, piece.data(), static_cast<std::uint32_t>(piece.size()));
    arena.used = arena.capacity;
    return zam_connector::common::CastFromVd(qx_zam_connector_ZamTypes_ZamParams{{0, arena.used}},
                                             &arena);
}

std::vector<RawZamParam> RecordsOf(const TreeSnapshot& snapshot) {
    std::vector<RawZamParam> records;
    for (const auto& piece : snapshot.pieces) {
        for (RawZamParam& record : RecordsOf(piece)) {
            records.push_back(std::move(record));
        }
    }
    return records;
}

std::string TreeErrorOf(const std::string& text) {
    try {
        ReadTree("policy.json", text);
        return "none";
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// A map with one text of so many bytes under the key "a"; with its block's header, the text's
/// closing zero and the path "a/" it weighs 19 bytes more.
std::string TextOf(std::size_t bytes) {
    return R"({"a": ")" + std::string(bytes, 'x') + "\"}";
}

std::string BoundsErrorOf(const std::string& text, const TreeBounds& bounds) {
    try {
        ReadTree("policy.json", text, bounds);
        return "none";
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(TreeFile, TakesSoManyNodesAndNoMore) {
    const TreeBounds four{.nodes = 4};
    const std::string error = "policy.json: has more than the 4 nodes allowed";
    EXPECT_EQ(BoundsErrorOf(R"({"a": [1, 2]})", four), "none");
    EXPECT_EQ(BoundsErrorOf(R"({"a": [1, 2, 3]})", four), error);
    EXPECT_EQ(BoundsErrorOf(R"([{"$int8": 1}, {"$int8": 2}, {"$int8": 3}])", four), "none");
    EXPECT_EQ(BoundsErrorOf(R"([",,,[[[{{{\"[[[[", /* ,,,[[[" */ 2 // [[[,,,
                                ])",
                            four),
              "none")
        << "what is no value";
    EXPECT_EQ(BoundsErrorOf("[" + std::string(100, '[') + "no JSON", four), error)
        << "before it is read";
}

TEST(TreeFile, CountsThePathOfEveryNode) {
    // Two levels' blocks and paths, and the elements' with a path of 101 + 2 bytes each.
    const std::string text = R"({")" + std::string(100, 'k') + R"(": [0, 0, 0]})";
    const std::size_t bytes = 16 + (16 + 101) + 3 * (16 + 103);
    EXPECT_EQ(BoundsErrorOf(text, {.bytes = bytes}), "none");
    EXPECT_EQ(BoundsErrorOf(text, {.bytes = bytes - 1}), "policy.json: has more than the " +
                                                             std::to_string(bytes - 1) +
                                                             " bytes of values and paths allowed");
    std::size_t weight = 0;
    const std::string mixed = R"({"b": [1, "text", {"$blob": "AAAA"}, 3, 4, 5, 6, 7, 8, 9, 10, 11],
                                  "d": {"e": null, "f": 0.5}})";
    for (const RawZamParam& record : Flattened(zam_connector::tree_json::Read(mixed))) {
        weight += zam_connector::common::WeightOf(record);
    }
    EXPECT_EQ(BoundsErrorOf(mixed, {.bytes = weight}), "none");
    EXPECT_NE(BoundsErrorOf(mixed, {.bytes = weight - 1}), "none");
}

TEST(TreeFile, GivesThePiecesOfTheFlattenedTree) {
    const std::string text = R"({"b": [1, {"$int8": 2}, "c"], "d": {"e": null, "f": 0.5}})";
    const TreeSnapshotPtr snapshot = ReadTree("policy.json", text);
    EXPECT_EQ(snapshot->pieces.size(), 1U);
    const zuv::TValue tree = zam_connector::tree_json::Read(text);
    EXPECT_EQ(RecordsOf(*snapshot), Flattened(tree));
    EXPECT_EQ(snapshot->hash, HashOf(tree));
}

TEST(TreeFile, FillsPiecesBySize) {
    zuv::Vector vector;
    for (long number = 0; number < 100'000; ++number) {
        vector.emplace_back(number);
    }
    const zuv::TValue tree(std::move(vector));
    const TreeSnapshotPtr snapshot = ReadTree("policy.json", zam_connector::tree_json::Write(tree));
    EXPECT_EQ(RecordsOf(*snapshot), Flattened(tree));
    std::size_t bytes = 0;
    for (const auto& piece : snapshot->pieces) {
        EXPECT_LE(piece.size(), kPieceBytes);
        bytes += piece.size();
    }
    EXPECT_LE(snapshot->pieces.size(), bytes * 3 / 2 / kPieceBytes + 1);
    EXPECT_GT(snapshot->pieces.size(), 1U);
}

TEST(TreeFile, TakesAValueThatJustCanBeSentAndNoLargerOne) {
    const std::size_t largest = kMaxRecordBytes - 19;
    const TreeSnapshotPtr snapshot = ReadTree("policy.json", TextOf(largest));
    EXPECT_EQ(snapshot->pieces.size(), 2U) << "the root does not fit beside it";
    EXPECT_EQ(RecordsOf(*snapshot).size(), 2U);
    EXPECT_EQ(
        TreeErrorOf(TextOf(largest + 1)),
        "policy.json:1:7: at \"/a\": has 675998 bytes of value and 2 of path, \"a/\"; at most "
        "675999 can be sent together");
}

TEST(TreeFile, RefusesKeysThatCannotBeSentWithTheirPlaces) {
    const std::pair<const char*, const char*> rows[] = {
        {"{\n  \"\": 1}", "policy.json:2:3: at \"/\": the key cannot be sent"},
        {"{\"a\": {\"9\": 1}}", "policy.json:1:8: at \"/a/9\": the key cannot be sent"},
        {"{\"a\": [1, {\"x/y\": 1}]}", "policy.json:1:12: at \"/a/1/x~1y\": the key"},
        {"{\"$$\": {\"a%\": 1}}", "policy.json:1:9: at \"/$$/a%\": the key"},
        {R"({"a": {"$map": [["b", {"c'": 1}]]}})", "policy.json:1:24: at \"/a/$map/0/1/c'\""},
        {R"({"a": {"$map": [["b", 0], [{"$string": "YA=="}, 1]]}})",
         "policy.json:1:49: at \"/a/$map/1/1\": the key"},
        {"\xEF\xBB\xBF{\"`\": 1}", "policy.json:1:2: at \"/`\""},
    };
    for (const auto& [text, error] : rows) {
        EXPECT_THAT(TreeErrorOf(text), HasSubstr(error)) << text;
    }
}

TEST(TreeFile, RefusesWhatIsNoTypedJsonWithItsPlace) {
    EXPECT_THAT(TreeErrorOf("{\n\"a\": {\"$int8\": 300}}"),
                HasSubstr("policy.json:2:16: at \"/a/$int8\": is 300, allowed is"));
    EXPECT_THAT(TreeErrorOf(""), HasSubstr("policy.json:1:1"));
}

TEST(TreeFile, HasTheSameHashHoweverItIsWritten) {
    const std::uint64_t hash = ReadTree("p", R"({"a": 1, "b": [true]})")->hash;
    EXPECT_EQ(ReadTree("q", "// comment\n{\"b\" : [ true ],\n \"a\" : 1}")->hash, hash);
    EXPECT_NE(ReadTree("p", R"({"a": 2, "b": [true]})")->hash, hash);
    EXPECT_NE(ReadTree("p", R"({"a": 1.0, "b": [true]})")->hash, hash);
}

TEST(TreeFile, ServesANoneRootWithoutAHashWhenThereIsNoFile) {
    const ServedFile file = ServeTree("policy.json", [](const TreeSnapshotPtr& tree) {
        EXPECT_EQ(RecordsOf(*tree), Flattened(zuv::TValue()));
        EXPECT_EQ(tree->hash, kAbsentHash);
    });
    file.read(std::nullopt)();
    const TreeSnapshotPtr null = ReadTree("policy.json", "null");
    EXPECT_EQ(RecordsOf(*null), Flattened(zuv::TValue()));
    EXPECT_NE(null->hash, kAbsentHash) << "a file that holds nothing is there all the same";
}

}  // namespace
}  // namespace zam_service
