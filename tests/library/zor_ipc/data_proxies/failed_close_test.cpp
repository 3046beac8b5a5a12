#include <functional>
#include <stdexcept>

#include "data_rig.h"
#include "support/literal_list.h"
#include "zam_connector/call_deadline.h"

// Transfers that fail and then cannot close their channel either: whose code is returned, and in
// which order the records stand.

namespace zam_connector {
namespace {

using test::HolderLine;
using test::HolderRig;
using test::Lines;
using test::ProviderLine;
using test::ProviderRig;

template <typename... Arguments>
int ThrowInTransfer(Arguments... /*arguments*/) {
    throw std::runtime_error("torn");
}

int g_closesThrown = 0;

template <typename... Arguments>
int ThrowInClose(Arguments... /*arguments*/) {
    ++g_closesThrown;
    throw std::runtime_error("stuck");
}

/// Something that goes wrong in one step, alone.
template <typename TheRig, typename Ops>
struct Trouble {
    int code;
    Lines lines;
    std::function<void(TheRig&, Ops&)> cause;
};

using ProviderTrouble = Trouble<ProviderRig, qx_zam_connector_ZamDataProvider_ops>;
using HolderTrouble = Trouble<HolderRig, qx_zam_connector_ProductDataHolder_ops>;

/// The lines of both, one behind the other.
Lines Joined(Lines first, const Lines& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// The troubles of a checked call, without that of an operation that throws.
template <typename TheTrouble>
std::vector<TheTrouble> TroublesOfCall(unsigned operation, const std::string& name,
                                       std::int8_t session, int code) {
    return {{code,
             {test::SessionLine(name, session)},
             [=](auto& rig, auto& /*ops*/) { rig.Fail(operation, {.session = session}); }},
            {test::kUnspecified,
             {test::TransportLine(name, session)},
             [=](auto& rig, auto& /*ops*/) { rig.Fail(operation, {.transport = session}); }}};
}

/// Checks that every trouble of the transfer is told before every one of the close, which is called
/// once. `run(rig, ops, code)` makes the call and checks what it gives; `code` is the close's.
template <typename TheRig, typename Ops, typename Run>
void ExpectEveryPair(const Ops& ops, const std::vector<Trouble<TheRig, Ops>>& ofTransfer,
                     const std::vector<Trouble<TheRig, Ops>>& ofClose, unsigned close,
                     const Run& run) {
    for (const auto& first : ofTransfer) {
        for (const auto& second : ofClose) {
            const Lines lines = Joined(first.lines, second.lines);
            SCOPED_TRACE(::testing::PrintToString(lines));
            TheRig rig;
            Ops troubled = ops;
            first.cause(rig, troubled);
            second.cause(rig, troubled);
            g_closesThrown = 0;
            run(rig, troubled, second.code);
            EXPECT_EQ(rig.TakeLines(), lines);
            EXPECT_EQ(static_cast<int>(rig.CallsOf(close).size()) + g_closesThrown, 1);
        }
    }
}

template <typename Value,
          int (proxy::ZamDataProviderProxy::*kGet)(std::pair<unsigned long, Value>&)>
void ExpectTreeFailure(ProviderRig& rig, const qx_zam_connector_ZamDataProvider_ops& ops,
                       int code) {
    auto record = test::ProviderRecord(rig.transport.Get());
    record.ops = &ops;
    proxy::ZamDataProviderProxy proxy(record);
    std::pair<unsigned long, Value> value{5, {zuv::TValue("before")}};
    EXPECT_EQ((proxy.*kGet)(value), code);
    EXPECT_EQ(value.first, 5U);
    EXPECT_EQ(value.second.tree, zuv::TValue("before"));
}

std::vector<ProviderTrouble> TroublesOfTree(const char* function) {
    auto troubles =
        TroublesOfCall<ProviderTrouble>(test::kGetData, "GetData", -2, test::kInvalidResult);
    for (ProviderTrouble& trouble : troubles) {
        trouble.cause = [cause = trouble.cause](auto& rig, auto& ops) {
            rig.Give(1);
            cause(rig, ops);
        };
    }
    troubles.push_back({test::kUnspecified,
                        {ProviderLine(function, "Zam_data_pvr proxy: std::exception: torn")},
                        [](auto& /*rig*/, auto& ops) { ops.GetData = &ThrowInTransfer; }});
    troubles.push_back({test::kInvalidArgument,
                        {ProviderLine("GetDataFromChannel",
                                      "Zam_data_pvr proxy: piece of raw parameters, before byte 1 "
                                      "of 2: version 2, only 1 is known")},
                        [](auto& rig, auto& /*ops*/) { rig.pieces = {"\x02\x10"}; }});
    troubles.push_back({test::kInvalidArgument,
                        {ProviderLine("GetDataFromChannel",
                                      "Zam_data_pvr proxy: data deserialization error - "
                                      "[RawZamParams] empty raw setting!")},
                        [](auto& rig, auto& /*ops*/) { rig.pieces = {""}; }});
    return troubles;
}

std::vector<ProviderTrouble> TroublesOfTreesClose(const char* function) {
    auto troubles = TroublesOfCall<ProviderTrouble>(test::kCloseChannel, "CloseChannel", -5,
                                                    test::kInvalidArgument);
    troubles.push_back({test::kUnspecified,
                        {ProviderLine(function, "Zam_data_pvr proxy: std::exception: stuck")},
                        [](auto& /*rig*/, auto& ops) { ops.CloseChannel = &ThrowInClose; }});
    return troubles;
}

TEST(FailedCloseOfATree, WinsOverTheFailureOfItsTransferAndIsToldBehindIt) {
    ExpectEveryPair(qx_zam_connector_ZamDataProvider_operations, TroublesOfTree("GetPolicy"),
                    TroublesOfTreesClose("GetPolicy"), test::kCloseChannel,
                    &ExpectTreeFailure<ZamPolicy, &proxy::ZamDataProviderProxy::GetPolicy>);
    ExpectEveryPair(
        qx_zam_connector_ZamDataProvider_operations, TroublesOfTree("GetProductSettings"),
        TroublesOfTreesClose("GetProductSettings"), test::kCloseChannel,
        &ExpectTreeFailure<ZamProductSettings, &proxy::ZamDataProviderProxy::GetProductSettings>);
}

/// The record of a pull of identifiers that failed.
std::string PullLine(int code, const std::string& description) {
    return ProviderLine("GetZamUpdatesStatus",
                        "GetZamUpdatesStatus: Can't get zam update status code " +
                            std::to_string(code) + " description " + description);
}

TEST(FailedCloseOfTheUpdatesStatus, IsToldBehindTheFailureOfItsTransferWhichIsReturned) {
    const std::vector<ProviderTrouble> ofTransfer{
        {test::kUnspecified,
         {PullLine(test::kInvalidResult, "Invalid result = 0x80000071. At ipc_transfer_call(112)")},
         [](auto& rig, auto& /*ops*/) { rig.Fail(test::kGetUpdates, {.session = -2}, 1); }},
        {test::kUnspecified,
         {"4 ipc_transfer_call IpcTransferCall: Ipc call GetUpdatesStatus terminated with a error "
          "7",
          PullLine(test::kUnspecified,
                   "Unspecified error = 0x8000004B. At ipc_transfer_call(106)")},
         [](auto& rig, auto& /*ops*/) { rig.Fail(test::kGetUpdates, {.transport = 7}, 2); }},
        {test::kUnspecified,
         {PullLine(test::kUnspecified, "std::exception: torn")},
         [](auto& /*rig*/, auto& ops) { ops.GetUpdatesStatus = &ThrowInTransfer; }},
    };
    auto ofClose = TroublesOfCall<ProviderTrouble>(
        test::kCloseUpdates, "CloseZamUpdatesStatusChannel", -5, test::kInvalidArgument);
    ofClose.push_back(
        {test::kUnspecified,
         {ProviderLine("CloseZamUpdatesStatusChannel",
                       "GetZamUpdatesStatus: Can't close zam update status "
                       "channelstd::exception: stuck")},
         [](auto& /*rig*/, auto& ops) { ops.CloseZamUpdatesStatusChannel = &ThrowInClose; }});
    ExpectEveryPair(qx_zam_connector_ZamDataProvider_operations, ofTransfer, ofClose,
                    test::kCloseUpdates, [](ProviderRig& rig, const auto& ops, int /*code*/) {
                        auto record = test::ProviderRecord(rig.transport.Get());
                        record.ops = &ops;
                        proxy::ZamDataProviderProxy proxy(record);
                        std::pair<unsigned long, ZamUpdatesStatus> status{5, {}};
                        status.second.revoked = {test::MakeId(9)};
                        const auto before = status;
                        EXPECT_EQ(proxy.GetZamUpdatesStatus(status), test::kUnspecified);
                        EXPECT_EQ(status, before);
                    });
}

std::vector<HolderTrouble> TroublesOfSending(const char* function) {
    auto troubles =
        TroublesOfCall<HolderTrouble>(test::kSendData, "SendData", -2, test::kInvalidResult);
    troubles.push_back({test::kUnspecified,
                        {HolderLine(function, "ProductDataHolderProxy: std::exception: torn")},
                        [](auto& /*rig*/, auto& ops) { ops.SendData = &ThrowInTransfer; }});
    return troubles;
}

std::vector<HolderTrouble> TroublesOfHoldersClose(const char* function) {
    auto troubles = TroublesOfCall<HolderTrouble>(test::kCloseHolderChannel, "CloseChannel", -5,
                                                  test::kInvalidArgument);
    troubles.push_back({test::kUnspecified,
                        {HolderLine(function, "ProductDataHolderProxy: std::exception: stuck")},
                        [](auto& /*rig*/, auto& ops) { ops.CloseChannel = &ThrowInClose; }});
    troubles.push_back({test::kServiceFailure, {}, [](auto& rig, auto& /*ops*/) {
                            rig.result = test::kServiceFailure;
                        }});
    return troubles;
}

/// `set(proxy, hash)` fails with the code and the hash as it was.
template <typename Set>
void ExpectHoldersCloseToWin(const char* function, const std::vector<HolderTrouble>& ofTransfer,
                             const Set& set) {
    ExpectEveryPair(qx_zam_connector_ProductDataHolder_operations, ofTransfer,
                    TroublesOfHoldersClose(function), test::kCloseHolderChannel,
                    [&](HolderRig& rig, const auto& ops, int code) {
                        auto record = test::HolderRecord(rig.transport.Get());
                        record.ops = &ops;
                        proxy::ProductDataHolderProxy proxy(record);
                        unsigned long hash = 5;
                        EXPECT_EQ(set(proxy, hash), code);
                        EXPECT_EQ(hash, 5U);
                    });
}

TEST(FailedCloseOfTheHolder, WinsOverTheFailureOfItsTransferAndIsToldBehindIt) {
    ExpectHoldersCloseToWin(
        "SetSettings", TroublesOfSending("SetSettings"),
        [](auto& proxy, unsigned long& hash) { return proxy.SetSettings({zuv::TValue(1)}, hash); });
    ExpectHoldersCloseToWin("SetAppEulas", TroublesOfSending("SetAppEulas"),
                            [](auto& proxy, unsigned long& hash) {
                                return proxy.SetAppEulas(std::vector<AppEula>(2), hash);
                            });
    ExpectHoldersCloseToWin(
        "SetAppUpdates", TroublesOfSending("SetAppUpdates"),
        [](auto& proxy, unsigned long& hash) { return proxy.SetAppUpdates({}, hash); });
}

TEST(FailedCloseOfTheHolder, WinsOverATreeThatCannotBeFlattened) {
    const std::vector<HolderTrouble> unflattened{
        {test::kInvalidArgument,
         {HolderLine("SendZamParams",
                     "SendZamParams: data serialization error - [RawZamParams] Invalid value "
                     "state!")},
         [](auto& /*rig*/, auto& /*ops*/) {}}};
    ExpectHoldersCloseToWin("SetSettings", unflattened, [](auto& proxy, unsigned long& hash) {
        return proxy.SetSettings({zam_test::ValuelessValue()}, hash);
    });
}

Canceller* g_canceller = nullptr;

/// A close that is cancelled while it is under way, as often as it is made under a canceller.
template <typename Record, typename Request, typename Response>
int CancelledClose(const Record* /*record*/, Request* /*request*/, vd_arena* /*requestArena*/,
                   Response* response, vd_arena* /*responseArena*/) {
    ++g_closesThrown;
    VdCallBounds* const bounds = VdZorTransport_SetCallBounds(nullptr);
    VdZorTransport_SetCallBounds(bounds);
    g_canceller->Cancel();
    const int status = bounds->enter != nullptr ? 10 : 0;
    response->sessionStatus = 0;
    return *VdZorTransport_LastStatus() = status;
}

TEST(CancelledCloseOfAChannel, IsTriedOnceMoreSoThatNoneStaysOpen) {
    {
        Canceller canceller;
        g_canceller = &canceller;
        g_closesThrown = 0;
        HolderRig rig;
        auto ops = qx_zam_connector_ProductDataHolder_operations;
        ops.CloseChannel = &CancelledClose;
        auto record = test::HolderRecord(rig.transport.Get());
        record.ops = &ops;
        unsigned long hash = 5;
        const Canceller::Scope scope(canceller);
        EXPECT_EQ(proxy::ProductDataHolderProxy(record).SetSettings({zuv::TValue(1)}, hash), 0);
        EXPECT_EQ(g_closesThrown, 2);
        EXPECT_EQ(rig.TakeLines(), Lines{test::TransportLine("CloseChannel", 10)});
    }
    auto ops = qx_zam_connector_ZamDataProvider_operations;
    ops.CloseChannel = &CancelledClose;
    ops.CloseZamUpdatesStatusChannel = &CancelledClose;
    for (const bool isTree : {true, false}) {
        Canceller canceller;
        g_canceller = &canceller;
        g_closesThrown = 0;
        ProviderRig rig;
        if (isTree) {
            rig.Give(1);
        }
        auto record = test::ProviderRecord(rig.transport.Get());
        record.ops = &ops;
        proxy::ZamDataProviderProxy provider(record);
        std::pair<unsigned long, ZamPolicy> policy;
        std::pair<unsigned long, ZamUpdatesStatus> updates;
        const Canceller::Scope scope(canceller);
        EXPECT_EQ(isTree ? provider.GetPolicy(policy) : provider.GetZamUpdatesStatus(updates), 0);
        EXPECT_EQ(g_closesThrown, 2);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
    }
}

}  // namespace
}  // namespace zam_connector
