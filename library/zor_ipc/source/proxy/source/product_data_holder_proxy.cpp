#include "product_data_holder_proxy.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "call_scope.h"
#include "common/arena.h"
#include "common/check_vd_proxy.h"
#include "common/log.h"
#include "common/product_data_casts.h"
#include "common/raw_zam_param_casts.h"
#include "ipc_transfer_call.h"
#include "zam_connector/zam_converter.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "product_data_holder_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};

/// Bytes of licence text in one value.
constexpr int kEulaPieceBytes = 32'768;

/// Bounds of a piece: a cheap estimate that its records fit the arena.
constexpr std::ptrdiff_t kMaxPieceRecords = 10;
constexpr std::size_t kMaxPieceWeight = 675'999;

constexpr char kPrefix[] = "ProductDataHolderProxy: {}";

/// The end of the piece that begins with `first`; `first` itself when that record is too heavy.
ProductDataHolderProxy::RawIterator CutPiece(ProductDataHolderProxy::RawIterator first,
                                             ProductDataHolderProxy::RawIterator end) {
    const auto limit = first + std::min(kMaxPieceRecords, end - first);
    std::size_t left = kMaxPieceWeight;
    for (; first != limit; ++first) {
        const std::size_t weight = common::WeightOf(*first);
        if (weight > left) {
            break;
        }
        left -= weight;
    }
    return first;
}

/// Opens a channel; `channel` is written on success only.
template <typename Operation>
int OpenChannel(const qx_zam_connector_ProductDataHolder_proxy& proxy, const char* name,
                Operation operation, long& channel) {
    qx::EmptyRequest request{};
    qx::OpenChannelResponse response{};
    const int code =
        IpcTransferCallAndErrorHandle(name, operation, proxy, request, nullptr, response, nullptr);
    if (code < 0) {
        return code;
    }
    channel = response.channel;
    return qel::kNoError;
}

}  // namespace

ProductDataHolderProxy::ProductDataHolderProxy(
    const qx_zam_connector_ProductDataHolder_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ProductDataHolderProxy::SetAppInfo(const AppInfo& info) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "SetAppInfo");
    try {
        qx_zam_connector_ProductDataHolder_SetAppInfo_req request{};
        qx_zam_connector_ProductDataHolder_SetAppInfo_rsp response{};
        common::HeapArena arena(qx_zam_connector_ProductDataHolder_SetAppInfo_request_arena);
        request.info = common::CastToVd(info, arena.Get());
        const int status =
            proxy_.ops->SetAppInfo(&proxy_, &request, arena.Get(), &response, nullptr);
        if (status != 0) {
            return common::Failure(
                site, "ProductDataHolderProxy: ipc call SetAppInfo terminated with a error {}",
                status);
        }
        return response.resultCode;
    } catch (...) {
        return common::CaughtFailure(site, kPrefix);
    }
}

int ProductDataHolderProxy::SetAppInfoDynamic(const DynamicAppInfo& info) noexcept {
    qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req request{};
    qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_rsp response{};
    request.info = common::CastToVd(info);
    const common::LogSite site = common::Here(kSourceFile, "SetAppInfoDynamic");
    try {
        const int status =
            proxy_.ops->SetAppInfoDynamic(&proxy_, &request, nullptr, &response, nullptr);
        if (status != 0) {
            return common::Failure(
                site,
                "ProductDataHolderProxy: ipc call SetAppInfoDynamic terminated with a error {}",
                status);
        }
        return response.resultCode;
    } catch (...) {
        return common::CaughtFailure(site, kPrefix);
    }
}

int ProductDataHolderProxy::SetAppEulas(const std::vector<AppEula>& eulas,
                                        unsigned long& hash) noexcept {
    return Transfer(
        "SetAppEulas", &ProductDataHolderProxy::OpenAppEulasChannel,
        [&eulas] { return zam_converter::ConvertEulas(eulas, kEulaPieceBytes); }, hash);
}

int ProductDataHolderProxy::SetAppUpdates(const AppUpdates& updates, unsigned long& hash) noexcept {
    return Transfer(
        "SetAppUpdates", &ProductDataHolderProxy::OpenAppUpdatesChannel,
        [&updates] { return zam_converter::ConvertAppUpdates(updates); }, hash);
}

int ProductDataHolderProxy::SetSettings(const ZamProductSettings& settings,
                                        unsigned long& hash) noexcept {
    return Transfer(
        "SetSettings", &ProductDataHolderProxy::OpenSetSettingsChannel,
        [&settings] { return &settings.tree; }, hash);
}

/// `makeTree` gives something like a pointer to a tree, which is empty when there is none: the
/// channel then stays open.
template <typename MakeTree>
int ProductDataHolderProxy::Transfer(const char* function,
                                     int (ProductDataHolderProxy::*open)(long&),
                                     const MakeTree& makeTree, unsigned long& hash) noexcept {
    const common::LogSite site = common::Here(kSourceFile, function);
    try {
        long channel = 0;
        const int opened = (this->*open)(channel);
        if (opened < 0) {
            return opened;
        }
        const auto tree = makeTree();
        if (!tree) {
            return common::Failure(site, "SetAppUpdates: set error appUpdates");
        }
        int sent = 0;
        try {
            sent = SendZamParams(channel, *tree);
        } catch (...) {
            sent = common::CaughtFailure(site, kPrefix);
        }
        unsigned long stored = 0;
        const int closed =
            sent < 0 ? AbandonChannel(channel, stored) : CloseChannel(channel, stored);
        if (closed < 0) {
            return closed;
        }
        if (sent < 0) {
            return sent;
        }
        hash = stored;
        return closed;
    } catch (...) {
        return common::CaughtFailure(site, kPrefix);
    }
}

int ProductDataHolderProxy::OpenAppEulasChannel(long& channel) {
    return OpenChannel(proxy_, "OpenAppEulasChannel", proxy_.ops->OpenAppEulasChannel, channel);
}

int ProductDataHolderProxy::OpenAppUpdatesChannel(long& channel) {
    return OpenChannel(proxy_, "OpenAppUpdatesChannel", proxy_.ops->OpenAppUpdatesChannel, channel);
}

int ProductDataHolderProxy::OpenSetSettingsChannel(long& channel) {
    return OpenChannel(proxy_, "OpenSetSettingsChannel", proxy_.ops->OpenSetSettingsChannel,
                       channel);
}

int ProductDataHolderProxy::CloseChannel(long channel, unsigned long& hash) {
    ChannelCloseScope scope;
    return scope.Close([&] { return CallCloseChannel(channel, hash); });
}

/// Closes a channel over which not all was sent.
int ProductDataHolderProxy::AbandonChannel(long channel, unsigned long& hash) {
    ChannelCloseScope scope({.riid = proxy_.riid,
                             .operation = static_cast<std::uint16_t>(
                                 qx_zam_connector_ProductDataHolder_operation::CloseChannel),
                             .channel = channel});
    return scope.Close([&] { return CallCloseChannel(channel, hash); });
}

int ProductDataHolderProxy::CallCloseChannel(long channel, unsigned long& hash) {
    qx_zam_connector_ProductDataHolder_CloseChannel_req request{};
    request.channel = channel;
    qx_zam_connector_ProductDataHolder_CloseChannel_rsp response{};
    const int code = IpcTransferCallAndErrorHandle("CloseChannel", proxy_.ops->CloseChannel, proxy_,
                                                   request, nullptr, response, nullptr);
    if (code < 0) {
        return code;
    }
    hash = response.hash;
    return response.resultCode;
}

int ProductDataHolderProxy::SendZamParams(long channel, const zuv::TValue& tree) {
    if (tree.Is<zuv::None>()) {
        return qel::kNoError;
    }
    std::vector<common::RawZamParam> list;
    const auto [code, message] = common::Serialize(zuv::Root, tree, list);
    if (code < 0) {
        common::Failure(common::Here(kSourceFile, "SendZamParams"),
                        "SendZamParams: data serialization error - {}!", message);
        return qel::kInvalidArgument;
    }
    common::HeapArena arena(qx_zam_connector_ProductDataHolder_SendData_request_arena);
    for (auto first = list.begin(); first != list.end();) {
        const auto last = CutPiece(first, list.end());
        const int sent = SendRawZamParams(channel, arena.Get(), first, last);
        if (sent < 0) {
            return sent;
        }
        common::ClearArena(arena.Get());
        first = last;
    }
    return qel::kNoError;
}

int ProductDataHolderProxy::SendRawZamParams(long channel, vd_arena* arena, RawIterator first,
                                             RawIterator last) {
    if (arena == nullptr) {
        throw qel::CheckFailedException(kSourceFile, __LINE__) << "There is no arena to send from!";
    }
    const common::LogSite site = common::Here(kSourceFile, "SendRawZamParams");
    const std::vector<common::RawZamParam> records(std::make_move_iterator(first),
                                                   std::make_move_iterator(last));
    qx_zam_connector_ProductDataHolder_SendData_req request{};
    request.channel = channel;
    try {
        request.params = common::CastToVd(records, arena);
    } catch (...) {
        return common::CaughtFailure(
            site, "ProductDataHolderProxy: SendRawZamParams terminated with exception{}");
    }
    qx_zam_connector_ProductDataHolder_SendData_rsp response{};
    return IpcTransferCallAndErrorHandle("SendData", proxy_.ops->SendData, proxy_, request, arena,
                                         response, nullptr);
}

}  // namespace zam_connector::proxy
