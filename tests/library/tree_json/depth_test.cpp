#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "support/stack.h"
#include "tree_json/tree_json.h"

namespace {

using zam_connector::tree_json::JsonError;
using zam_connector::tree_json::kMaxDepth;
using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;
using zuv::TValue;

TValue InVectors(std::size_t depth, TValue leaf) {
    for (std::size_t level = 0; level < depth; ++level) {
        leaf = zuv::MakeVector(std::move(leaf));
    }
    return leaf;
}

std::string InBrackets(std::size_t depth, const std::string& leaf) {
    return std::string(depth, '[') + leaf + std::string(depth, ']');
}

std::string Steps(std::size_t depth) {
    std::string pointer;
    for (std::size_t level = 0; level < depth; ++level) {
        pointer += "/0";
    }
    return pointer;
}

/// A leaf that takes levels of its own, and the pointer of its deepest level.
struct DepthRow {
    TValue leaf;
    std::string text;
    std::size_t levels;
    std::string pointer;
};

const DepthRow kRows[] = {
    {zuv::None(), "null", 0, ""},
    {zuv::Vector(), "[]", 1, ""},
    {zuv::Map(), "{}", 1, ""},
    {static_cast<signed char>(1), R"({"$int8":1})", 1, ""},
    {zuv::Blob(), R"({"$blob":""})", 1, ""},
    {"\xFF", R"({"$string":"/w=="})", 1, ""},
    {zuv::Map{{"k", zuv::Map{{"$m", 5}}}}, R"({"k":{"$$m":{"$int32":5}}})", 3, "/k/$$m"},
    {zuv::Map{{"\xFF", 1L}}, R"({"$map":[[{"$string":"/w=="},1]]})", 4, "/$map/0/0"},
    {zuv::Map{{"a", zuv::Vector()}, {"\xFF", 1L}}, R"({"$map":[["a",[]],[{"$string":"/w=="},1]]})",
     4, "/$map/0/1"},
};

TEST(TypedJsonDepth, IsReadAndWrittenUpToTheLimit) {
    for (const DepthRow& row : kRows) {
        for (const std::size_t depth : {kMaxDepth - 1, kMaxDepth}) {
            const TValue tree = InVectors(depth - row.levels, row.leaf);
            const std::string text = InBrackets(depth - row.levels, row.text);
            EXPECT_TRUE(Write(tree) == text) << row.text;
            EXPECT_TRUE(Read(text).IsIdenticalTo(tree)) << row.text;
            EXPECT_TRUE(Read(Write(tree, {.indent = 1})).IsIdenticalTo(tree)) << row.text;
        }
    }
}

/// The deepest trees of every shape: vectors, maps, maps in `$map`, and keys that are escaped.
void ReadAndWriteTheDeepest() {
    TValue inMaps = 1L;
    TValue inEscapes = 1L;
    TValue inPairs = 1L;
    for (std::size_t level = 0; level < kMaxDepth; ++level) {
        inMaps = zuv::Map{{"k", std::move(inMaps)}};
        inEscapes = zuv::Map{{"$k", std::move(inEscapes)}};
    }
    for (std::size_t level = 0; level < kMaxDepth / 4; ++level) {
        inPairs = zuv::Map{{"\xFF", std::move(inPairs)}};
    }
    for (const TValue& tree : {InVectors(kMaxDepth, 1L), inMaps, inEscapes, inPairs}) {
        EXPECT_TRUE(Read(Write(tree, {.indent = 1})).IsIdenticalTo(tree));
    }
    EXPECT_THROW(Read(InBrackets(kMaxDepth, "?")), JsonError);
}

TEST(TypedJsonDepth, NeedsNoMoreStackThanPromised) {
    constexpr std::size_t kStackBytes = (zam_test::HasLargeFrames() ? std::size_t{4} : 1) << 20U;
    zam_test::OnStackOf(kStackBytes, ReadAndWriteTheDeepest);
}

TEST(TypedJsonDepth, IsRefusedBeyondTheLimitWithTheSamePointerInBothDirections) {
    for (const DepthRow& row : kRows) {
        if (row.levels == 0) {
            continue;
        }
        const std::size_t vectors = kMaxDepth + 1 - row.levels;
        try {
            Write(InVectors(vectors, row.leaf));
            FAIL() << row.text;
        } catch (const JsonError& error) {
            EXPECT_EQ(error.Pointer(), Steps(vectors) + row.pointer);
            EXPECT_EQ(error.Message(), "is nested 513 deep, at most 512 are allowed");
            EXPECT_EQ(error.Line(), 0U);
        }
        try {
            Read(InBrackets(vectors, row.text));
            FAIL() << row.text;
        } catch (const JsonError& error) {
            EXPECT_EQ(error.Pointer(), Steps(vectors) + row.pointer);
            EXPECT_EQ(error.Message(), "is nested 513 deep, at most 512 are allowed");
            EXPECT_EQ(error.Line(), 1U);
            EXPECT_GT(error.Column(), vectors);
        }
    }
}

TEST(TypedJsonDepth, IsMeasuredInEveryContainerOnItsOwn) {
    // Many containers side by side are not deep.
    zuv::Vector wide(3 * kMaxDepth, zuv::MakeVector(static_cast<signed char>(1)));
    const TValue tree(std::move(wide));
    EXPECT_TRUE(Read(Write(tree)).IsIdenticalTo(tree));
}

TEST(TypedJsonDepth, OfAnyTreeAndTextIsRefusedWithoutOverflowingTheStack) {
    constexpr std::size_t kDeep = 1'000'000;
    EXPECT_THROW(Write(InVectors(kDeep, zuv::None())), JsonError);
    EXPECT_THROW(Read(std::string(kDeep, '[')), JsonError);
    std::string objects;
    for (std::size_t level = 0; level < kDeep / 10; ++level) {
        objects += "{\"$$a\":";
    }
    EXPECT_THROW(Read(objects), JsonError);
}

}  // namespace
