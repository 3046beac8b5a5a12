#include <algorithm>

#include "common/arena.h"
#include "data_rig.h"
#include "qel/exception.h"
#include "support/literal_list.h"

namespace zam_connector {
namespace {

using test::HolderLine;
using test::HolderRig;
using test::Lines;
using test::List;
using ::testing::IsEmpty;
using zam_test::Block;

List TwoRecords() {
    return {{Block(2, 0), ""}, {Block(6, 42), "b/"}};
}

TEST(SendRawZamParams, SendsChannelAndRecordsWithTheArena) {
    HolderRig rig;
    List list = TwoRecords();
    common::HeapArena arena(64);
    EXPECT_EQ(rig.proxy.SendRawZamParams(test::kChannel, arena.Get(), list.begin(), list.end()), 0);
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.operation, test::kSendData);
    EXPECT_EQ(call.request, (testing::Bytes{8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 25, 0, 0, 0}));
    EXPECT_EQ(call.requestArena, (testing::Bytes{1,                                 //
                                                 2, 8, 0, 0,  0, 0, 0, 0, 0, 0, 0,  //
                                                 6, 8, 2, 42, 0, 0, 0, 0, 0, 0, 0, 'b', '/'}));
    EXPECT_EQ(call.requestArenaCapacity, 64U);
    EXPECT_FALSE(call.hasResponseArena);
}

TEST(SendRawZamParams, LeavesItsRecordsMovedFromAndTheOthersAlone) {
    HolderRig rig;
    List list{{Block(6, 1), "before/"},
              {Block(6, 2), "a/"},
              {Block(6, 3), "b/"},
              {Block(6, 4), "behind/"}};
    common::HeapArena arena(1000);
    EXPECT_EQ(rig.proxy.SendRawZamParams(1, arena.Get(), list.begin() + 1, list.end() - 1), 0);
    EXPECT_EQ(list, (List{{Block(6, 1), "before/"}, {}, {}, {Block(6, 4), "behind/"}}));
    EXPECT_EQ(rig.Sent(), (List{{Block(6, 2), "a/"}, {Block(6, 3), "b/"}}));
}

TEST(SendRawZamParams, SendsAPieceWithoutRecords) {
    HolderRig rig;
    List list;
    common::HeapArena arena(8);
    EXPECT_EQ(rig.proxy.SendRawZamParams(-1, arena.Get(), list.begin(), list.end()), 0);
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.request,
              (testing::Bytes{255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(call.requestArena, testing::Bytes());
}

TEST(SendRawZamParams, ThrowsWithoutAnArena) {
    HolderRig rig;
    List list = TwoRecords();
    try {
        rig.proxy.SendRawZamParams(1, nullptr, list.begin(), list.end());
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::CheckFailedException));
        EXPECT_STREQ(exception.File(), "product_data_holder_proxy");
        EXPECT_GT(exception.Line(), 0);
    }
    EXPECT_EQ(list, TwoRecords());
    EXPECT_THAT(rig.Operations(), IsEmpty());
}

TEST(SendRawZamParams, ReportsAConversionThatThrows) {
    HolderRig rig;
    List list = TwoRecords();
    common::HeapArena small(24);
    EXPECT_EQ(rig.proxy.SendRawZamParams(1, small.Get(), list.begin(), list.end()),
              test::kUnspecified);
    EXPECT_EQ(rig.TakeLines(),
              Lines{HolderLine("SendRawZamParams",
                               "ProductDataHolderProxy: SendRawZamParams terminated with "
                               "exceptionraw parameters: 25 bytes do not fit, 24 of the arena's 24 "
                               "bytes are free")});
    EXPECT_THAT(rig.Operations(), IsEmpty());
    EXPECT_EQ(list, (List{{}, {}})) << "the records are moved before they are converted";
    list = TwoRecords();
    common::HeapArena exact(25);
    EXPECT_EQ(rig.proxy.SendRawZamParams(1, exact.Get(), list.begin(), list.end()), 0);
}

TEST(SendRawZamParams, MapsAndLogsFailures) {
    List none;
    common::HeapArena arena(8);
    for (const auto& row : test::kSessionFailures) {
        HolderRig rig;
        rig.Fail(test::kSendData, {.session = row.status});
        EXPECT_EQ(rig.proxy.SendRawZamParams(1, arena.Get(), none.begin(), none.end()), row.code);
        EXPECT_EQ(rig.TakeLines(), Lines{test::SessionLine("SendData", row.status)});
    }
    for (const int status : test::kTransportStatuses) {
        HolderRig rig;
        rig.Fail(test::kSendData, {.transport = status});
        EXPECT_EQ(rig.proxy.SendRawZamParams(1, arena.Get(), none.begin(), none.end()),
                  test::kUnspecified);
        EXPECT_EQ(rig.TakeLines(), Lines{test::TransportLine("SendData", status)});
    }
    HolderRig rig;
    rig.Fail(test::kSendData, {.session = 1});
    EXPECT_EQ(rig.proxy.SendRawZamParams(1, arena.Get(), none.begin(), none.end()), 0);
}

TEST(HolderChannels, AreOpenedWithTheirNumberOnSuccessOnly) {
    struct {
        int (proxy::ProductDataHolderProxy::*open)(long&);
        unsigned operation;
        const char* name;
    } const rows[] = {
        {&proxy::ProductDataHolderProxy::OpenAppEulasChannel, test::kOpenAppEulasChannel,
         "OpenAppEulasChannel"},
        {&proxy::ProductDataHolderProxy::OpenAppUpdatesChannel, test::kOpenAppUpdatesChannel,
         "OpenAppUpdatesChannel"},
    };
    for (const auto& row : rows) {
        HolderRig rig;
        rig.Fail(row.operation, {.session = -3}, 0);
        rig.Fail(row.operation, {.transport = 3}, 1);
        rig.Fail(row.operation, {.session = 1}, 2);
        long channel = 1;
        EXPECT_EQ((rig.proxy.*row.open)(channel), test::kInvalidResult);
        EXPECT_EQ((rig.proxy.*row.open)(channel), test::kUnspecified);
        EXPECT_EQ(channel, 1);
        EXPECT_EQ(rig.TakeLines(),
                  (Lines{test::SessionLine(row.name, -3), test::TransportLine(row.name, 3)}));
        EXPECT_EQ((rig.proxy.*row.open)(channel), 0);
        EXPECT_EQ(channel, test::kChannel);
        EXPECT_EQ(rig.Operations(), std::vector<unsigned>(3, row.operation));
    }
}

TEST(HolderChannels, AreClosedWithTheServicesCodeAndHash) {
    for (const int code : test::kResultCodes) {
        HolderRig rig;
        rig.result = code;
        unsigned long hash = 5;
        EXPECT_EQ(rig.proxy.CloseChannel(test::kChannel, hash), code);
        EXPECT_EQ(hash, rig.hash);
        EXPECT_EQ(rig.OnlyCall().request, test::kChannelBytes);
    }
    HolderRig rig;
    rig.Fail(test::kCloseHolderChannel, {.session = -1}, 0);
    rig.Fail(test::kCloseHolderChannel, {.transport = -1}, 1);
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.CloseChannel(1, hash), test::kInvalidArgument);
    EXPECT_EQ(rig.proxy.CloseChannel(1, hash), test::kUnspecified);
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(rig.TakeLines(), (Lines{test::SessionLine("CloseChannel", -1),
                                      test::TransportLine("CloseChannel", -1)}));
}

/// What stands in a request arena when it is sent.
struct RequestArenaState {
    std::uint32_t used = 0;
    bool isZeroBehind = false;
    const unsigned char* base = nullptr;
};

std::vector<RequestArenaState> g_requestArenas;

TEST(RequestArena, IsOneForAllPiecesAndEmptyAndZeroBeforeEach) {
    g_requestArenas.clear();
    auto ops = qx_zam_connector_ProductDataHolder_operations;
    ops.SendData = [](const qx_zam_connector_ProductDataHolder_proxy* proxy,
                      qx_zam_connector_ProductDataHolder_SendData_req* request, vd_arena* arena,
                      qx_zam_connector_ProductDataHolder_SendData_rsp* response,
                      vd_arena* responseArena) {
        const unsigned char* const base = arena->base;
        g_requestArenas.push_back({arena->used,
                                   std::all_of(base + arena->used, base + arena->capacity,
                                               [](unsigned char byte) { return byte == 0; }),
                                   base});
        EXPECT_EQ(request->params.records.offset, 0U);
        EXPECT_EQ(request->params.records.length, arena->used);
        return qx_zam_connector_ProductDataHolder_operations.SendData(proxy, request, arena,
                                                                      response, responseArena);
    };
    HolderRig rig;
    auto record = test::HolderRecord(rig.transport.Get());
    record.ops = &ops;
    proxy::ProductDataHolderProxy proxy(record);
    unsigned long hash = 0;
    const zuv::TValue tree = zuv::MakeVector(zuv::Blob(675'960, 0xFF), 1, zuv::Blob(675'970, 0xFF),
                                             zuv::Blob(300'000, 0xFF), 2);
    EXPECT_EQ(proxy.SetSettings({tree}, hash), 0);
    EXPECT_EQ(rig.PieceSizes(), (std::vector<std::size_t>{2, 1, 1, 2}));
    ASSERT_EQ(g_requestArenas.size(), 4U);
    for (const RequestArenaState& arena : g_requestArenas) {
        EXPECT_TRUE(arena.isZeroBehind);
        EXPECT_EQ(arena.base, g_requestArenas.front().base);
    }
    EXPECT_GT(g_requestArenas[0].used, 675'000U);
    EXPECT_EQ(g_requestArenas[1].used, 14U);
}

}  // namespace
}  // namespace zam_connector
