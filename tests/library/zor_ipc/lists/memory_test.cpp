#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "common/raw_zam_param_casts.h"
#include "support/allocations.h"
#include "support/literal_list.h"
#include "support/pieces.h"

namespace zam_connector::common {
namespace {

using List = std::vector<RawZamParam>;
using Result = std::pair<int, std::string>;
using zam_test::Block;
using zuv::TValue;

const char kLong[] = "a text too long to be held inside a string";

TValue Tree() {
    return zuv::Map{{"blob", zuv::Blob(100)},
                    {"a key too long to be held inside a string", 1},
                    {"list", zuv::MakeVector(kLong, zuv::Map{{"x", kLong}}, zuv::MakeVector(1))}};
}

List Flat(const TValue& tree) {
    List list;
    Serialize(zuv::Root, tree, list);
    return list;
}

const Result kNoMemory{static_cast<int>(0x8000004bU), "zuv: std::exception: std::bad_alloc"};

class WantOfMemory : public ::testing::TestWithParam<bool> {
protected:
    WantOfMemory() { zam_test::g_keepFailing = GetParam(); }

    /// Runs `act` with every one of its allocations failing in turn, until it gets through. `act`
    /// gives 0, or the code of a failure; what it throws must be `std::bad_alloc`. `check` looks at
    /// what a failure has left behind.
    static void FailEach(const std::function<Result()>& act, const std::function<void()>& check) {
        for (int allowed = 0;; ++allowed) {
            zam_test::g_failed = false;
            zam_test::g_allocationsLeft = allowed;
            Result result{0, ""};
            bool thrown = false;
            try {
                result = act();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            zam_test::g_allocationsLeft = -1;
            if (!zam_test::g_failed) {
                EXPECT_EQ(result, Result(0, ""));
                return;
            }
            EXPECT_TRUE(thrown || result == kNoMemory) << result.second;
            check();
        }
    }
};

TEST_P(WantOfMemory, LeavesTheListOfSerializeAsItWas) {
    const TValue tree = Tree();
    const List before{{Block(0, 0), "before/"}};
    List list = before;
    FailEach([&] { return Serialize(zuv::Path{"root"}, tree, list); },
             [&] { EXPECT_EQ(list, before); });
    EXPECT_EQ(list.size(), 10U);
}

TEST_P(WantOfMemory, LeavesTheTreeOfDeserializeAsItWas) {
    const List list = Flat(Tree());
    zuv::Path root{"before"};
    TValue tree = "before";
    FailEach([&] { return Deserialize(list, root, tree); },
             [&] {
                 EXPECT_EQ(root, zuv::Path{"before"});
                 EXPECT_EQ(tree, TValue("before"));
             });
    EXPECT_EQ(tree, Tree());
}

/// Allocations for a list whose root has so many long keys.
int AllocationsForLevels(int levels) {
    zuv::Path path;
    for (int level = 0; level < levels; ++level) {
        path.emplace_back(std::in_place_type<std::string>, kLong);
    }
    List list;
    Serialize(path, TValue(1), list);
    zuv::Path root;
    TValue tree;
    const int before = zam_test::g_allocations;
    EXPECT_EQ(Deserialize(list, root, tree), Result(0, ""));
    const int after = zam_test::g_allocations;
    EXPECT_EQ(root, path);
    return after - before;
}

TEST(Deserialize, TakesMemoryOnceForEachLevelOfTheRoot) {
    // The vectors of levels and of their ends have grown to 64 each in both cases.
    EXPECT_EQ(AllocationsForLevels(60) - AllocationsForLevels(40), 20);
}

TEST_P(WantOfMemory, LeavesTheRootOfDeserializeAsItWas) {
    List list;
    Serialize(zuv::Path{kLong, kLong, kLong}, TValue(1), list);
    zuv::Path root{"before"};
    TValue tree = "before";
    FailEach([&] { return Deserialize(list, root, tree); },
             [&] {
                 EXPECT_EQ(root, zuv::Path{"before"});
                 EXPECT_EQ(tree, TValue("before"));
             });
    EXPECT_EQ(root, (zuv::Path{kLong, kLong, kLong}));
}

TEST_P(WantOfMemory, LeavesTheRecordsOfAPieceAsTheyWere) {
    const List list = Flat(Tree());
    std::vector<unsigned char> bytes(10'000);
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), 10'000);
    const auto piece = CastToVd(list, &arena);
    List records;
    FailEach(
        [&] {
            AppendFromVd(piece, &arena, records);
            return Result(0, "");
        },
        [&] { EXPECT_TRUE(records.empty()); });
    EXPECT_EQ(records, list);
}

TEST_P(WantOfMemory, LeavesPiecesAndWhatTheyAreRebuiltToAsTheyWere) {
    RawZamPieces pieces;
    zam_test::AppendInPieces(Flat(Tree()), 4, pieces);
    const std::size_t countBefore = pieces.Count();
    const std::vector<std::string> before = pieces.Pieces();
    std::string bytes = before[0];
    vd_arena arena{};
    vd_arena_init(&arena, reinterpret_cast<unsigned char*>(bytes.data()),
                  static_cast<std::uint32_t>(bytes.size()));
    arena.used = arena.capacity;
    FailEach(
        [&] {
            pieces.Append({{0, arena.used}}, &arena);
            return Result(0, "");
        },
        [&] {
            EXPECT_EQ(pieces.Count(), countBefore);
            EXPECT_EQ(pieces.Pieces(), before);
        });
    EXPECT_EQ(pieces.Pieces().size(), before.size() + 1);
    RawZamPieces rebuilt;
    zam_test::AppendInPieces(Flat(Tree()), 4, rebuilt);
    const TValue old = true;
    TValue tree = old;
    zuv::Path root{"old"};
    FailEach([&] { return Deserialize(rebuilt, root, tree); },
             [&] {
                 EXPECT_EQ(tree, old);
                 EXPECT_EQ(root, zuv::Path{"old"});
             });
    EXPECT_EQ(tree, Tree());
}

TEST_P(WantOfMemory, LeavesAValueAsItWasThatACopyIsAssignedTo) {
    const TValue tree = Tree();
    TValue deep = 1;
    for (int level = 0; level < 200; ++level) {
        deep = zuv::MakeVector(std::move(deep), level);
    }
    for (const TValue& from : {tree, deep}) {
        TValue value = "before";
        FailEach(
            [&] {
                value = from;
                return Result(0, "");
            },
            [&] { EXPECT_EQ(value, TValue("before")); });
        EXPECT_EQ(value, from);
    }
}

TEST_P(WantOfMemory, LeavesADecodedValueAsItWas) {
    const RawZamParam record{Block(10, 51, std::string(51, 'x')), ""};
    TValue value = "before";
    FailEach(
        [&] {
            record.DeserializeValue(value);
            return Result(0, "");
        },
        [&] { EXPECT_EQ(value, TValue("before")); });
}

INSTANTIATE_TEST_SUITE_P(Once, WantOfMemory, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(FromThenOn, WantOfMemory, ::testing::Values(true));

}  // namespace
}  // namespace zam_connector::common
