#include <algorithm>

#include "data_rig.h"

// The arena that the pieces of a transfer are received in; that of pieces sent is "RequestArena".

namespace zam_connector {
namespace {

using test::MakeId;
using test::ProviderRig;

using Ops = qx_zam_connector_ZamDataProvider_ops;

/// A response arena as a call brings it.
struct ResponseArenaState {
    const vd_arena* arena;
    const unsigned char* base;
    std::uint32_t capacity;
    bool isEmptyAndZero;
};

std::vector<ResponseArenaState> g_responseArenas;

/// An operation of the provider that takes down its response arena.
template <auto kOperation, typename Request, typename Response>
int Noting(const qx_zam_connector_ZamDataProvider_proxy* proxy, Request* request,
           vd_arena* requestArena, Response* response, vd_arena* arena) {
    const bool isZero = std::all_of(arena->base, arena->base + arena->capacity,
                                    [](unsigned char byte) { return byte == 0; });
    g_responseArenas.push_back({arena, arena->base, arena->capacity, arena->used == 0 && isZero});
    const auto operation = qx_zam_connector_ZamDataProvider_operations.*kOperation;
    return operation(proxy, request, requestArena, response, arena);
}

/// A provider that takes down what its pulls are received in.
class ResponseArena : public ::testing::Test {
protected:
    ResponseArena() {
        g_responseArenas.clear();
        ops_.GetData = &Noting<&Ops::GetData>;
        ops_.GetUpdatesStatus = &Noting<&Ops::GetUpdatesStatus>;
    }

    proxy::ZamDataProviderProxy Proxy() {
        auto record = test::ProviderRecord(rig_.transport.Get());
        record.ops = &ops_;
        return proxy::ZamDataProviderProxy(record);
    }

    /// Checks `count` arenas from `first`, which must be the same.
    static void ExpectOne(std::size_t first, std::size_t count, std::uint32_t capacity) {
        ASSERT_LE(first + count, g_responseArenas.size());
        for (std::size_t index = first; index < first + count; ++index) {
            SCOPED_TRACE(index);
            EXPECT_EQ(g_responseArenas[index].arena, g_responseArenas[first].arena);
            EXPECT_EQ(g_responseArenas[index].base, g_responseArenas[first].base);
            EXPECT_EQ(g_responseArenas[index].capacity, capacity);
            EXPECT_TRUE(g_responseArenas[index].isEmptyAndZero);
        }
    }

    Ops ops_ = qx_zam_connector_ZamDataProvider_operations;
    ProviderRig rig_;
};

TEST_F(ResponseArena, IsOneForAllPiecesOfATreeAndEmptyAndZeroBeforeEach) {
    const zuv::TValue tree = zuv::MakeVector(zuv::Blob(675'900, 0xFF), 1, zuv::Blob(300'000, 0xFF));
    rig_.Give(tree, 2);
    ASSERT_EQ(rig_.pieces.size(), 2U);
    std::pair<unsigned long, ZamPolicy> policy;
    EXPECT_EQ(Proxy().GetPolicy(policy), 0);
    EXPECT_TRUE(policy.second.tree == tree);
    ASSERT_EQ(g_responseArenas.size(), 2U);
    ExpectOne(0, 2, 676'000);

    g_responseArenas.clear();
    rig_.pieces.clear();
    rig_.Give(tree, 1);
    std::pair<unsigned long, ZamProductSettings> settings;
    // The service counts the pieces on.
    rig_.pieces.insert(rig_.pieces.begin(), 2, "");
    EXPECT_EQ(Proxy().GetProductSettings(settings), 0);
    EXPECT_TRUE(settings.second.tree == tree);
    ASSERT_EQ(g_responseArenas.size(), 4U);
    ExpectOne(0, 4, 676'000);
}

TEST_F(ResponseArena, IsEmptyAndZeroInTheTransferBehindOneThatFailed) {
    rig_.Give(std::string(1000, 'x'), 1);
    rig_.pieces.push_back("");
    rig_.Fail(test::kGetData, {.session = -2});
    std::pair<unsigned long, ZamPolicy> policy;
    EXPECT_EQ(Proxy().GetPolicy(policy), test::kInvalidResult);
    EXPECT_EQ(Proxy().GetPolicy(policy), test::kInvalidArgument);
    ASSERT_EQ(g_responseArenas.size(), 2U);
    EXPECT_TRUE(g_responseArenas[0].isEmptyAndZero);
    EXPECT_TRUE(g_responseArenas[1].isEmptyAndZero);
}

TEST_F(ResponseArena, IsOneForAllPiecesOfAListOfIdentifiersAndEmptyAndZeroBeforeEach) {
    rig_.updates[0] = {std::vector<ZamId>(10, MakeId(0xA0)), {MakeId(1)}, {MakeId(2)}};
    rig_.updates[1] = {std::vector<ZamId>(10, MakeId(0xB0)), {}};
    rig_.updates[2] = {{MakeId(3)}};
    std::pair<unsigned long, ZamUpdatesStatus> status;
    EXPECT_EQ(Proxy().GetZamUpdatesStatus(status), 0);
    EXPECT_EQ(status.second.approved.size(), 12U);
    // Each list takes one call more than it has pieces.
    ASSERT_EQ(g_responseArenas.size(), 9U);
    ExpectOne(0, 4, 160);
    ExpectOne(4, 3, 160);
    ExpectOne(7, 2, 160);
}

}  // namespace
}  // namespace zam_connector
