#include "zam_data_provider_proxy.h"

#include <string_view>

#include "call_scope.h"
#include "common/arena.h"
#include "common/check_vd_proxy.h"
#include "common/log.h"
#include "common/server_data_casts.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_data_provider_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};

/// The kinds of update lists, in the order in which they are pulled.
constexpr unsigned kApprovedKind = 0;
constexpr unsigned kDeclinedKind = 1;
constexpr unsigned kRevokedKind = 2;

/// Records of what is caught at the outermost level.
constexpr char kDataPrefix[] = "Zam_data_pvr proxy: {}";
constexpr char kServerPrefix[] = "ZamDataProviderProxy: {}";

/// The part of an arena that an answer describes; empty when it is not all there.
std::string_view BytesInUse(const vd_arena& arena, vd_bytes stretch) noexcept {
    if (stretch.offset >= arena.used || stretch.length > arena.used - stretch.offset) {
        return {};
    }
    return {reinterpret_cast<const char*>(arena.base) + stretch.offset, stretch.length};
}

/// One call of an operation that answers a hash, which is stored whatever the code is. `format` is
/// the record of a transport failure.
template <typename Operation>
int GetHash(const qx_zam_connector_ZamDataProvider_proxy& proxy, Operation operation,
            const common::LogSite& site, fmt::format_string<const int&> format,
            unsigned long& hash) noexcept {
    try {
        qx::EmptyRequest request{};
        qx::HashResponse response{};
        const int status = operation(&proxy, &request, nullptr, &response, nullptr);
        if (status != 0) {
            return common::Failure(site, format, status);
        }
        hash = response.hash;
        return response.resultCode;
    } catch (...) {
        return common::CaughtFailure(site, kDataPrefix);
    }
}

}  // namespace

ZamDataProviderProxy::ZamDataProviderProxy(const qx_zam_connector_ZamDataProvider_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ZamDataProviderProxy::GetPolicy(std::pair<unsigned long, ZamPolicy>& policy) noexcept {
    return PullTree("GetPolicy", "OpenPolicyChannel", proxy_.ops->OpenPolicyChannel,
                    policy.second.tree, policy.first);
}

int ZamDataProviderProxy::GetProductSettings(
    std::pair<unsigned long, ZamProductSettings>& settings) noexcept {
    return PullTree("GetProductSettings", "OpenSettingsChannel", proxy_.ops->OpenSettingsChannel,
                    settings.second.tree, settings.first);
}

int ZamDataProviderProxy::PullTree(const char* function, const char* openName, OpenOperation open,
                                   zuv::TValue& tree, unsigned long& hash) noexcept {
    try {
        qx::EmptyRequest request{};
        qx::OpenChannelResponse response{};
        const int opened = IpcTransferCallAndErrorHandle(openName, open, proxy_, request, nullptr,
                                                         response, nullptr);
        if (opened < 0) {
            return opened;
        }
        int result = 0;
        int pulled = 0;
        try {
            pulled = GetDataFromChannel(response.channel, tree, hash, result);
        } catch (...) {
            pulled = common::CaughtFailure(common::Here(kSourceFile, function), kDataPrefix);
        }
        const int closed = CloseChannel(response.channel);
        if (closed < 0) {
            return closed;
        }
        return pulled < 0 ? pulled : result;
    } catch (...) {
        return common::CaughtFailure(common::Here(kSourceFile, function), kDataPrefix);
    }
}

int ZamDataProviderProxy::GetDataFromChannel(long channel, zuv::TValue& tree, unsigned long& hash,
                                             int& result) {
    common::RawZamPieces list;
    const int pulled = GetDataPieces(channel, list);
    if (pulled < 0) {
        return pulled;
    }
    qx_zam_connector_ZamDataProvider_GetZamHash_req request{};
    request.channel = channel;
    qx_zam_connector_ZamDataProvider_GetZamHash_rsp hashResponse{};
    int code = IpcTransferCallAndErrorHandle("GetZamHash", proxy_.ops->GetZamHash, proxy_, request,
                                             nullptr, hashResponse, nullptr);
    if (code < 0) {
        return code;
    }
    qx_zam_connector_ZamDataProvider_GetZamResult_rsp resultResponse{};
    code = IpcTransferCallAndErrorHandle("GetZamResult", proxy_.ops->GetZamResult, proxy_, request,
                                         nullptr, resultResponse, nullptr);
    if (code < 0) {
        return code;
    }
    zuv::Path root;
    zuv::TValue rebuilt;
    const auto [rebuildCode, message] = common::Deserialize(list, root, rebuilt);
    if (rebuildCode < 0) {
        common::Failure(common::Here(kSourceFile, "GetDataFromChannel"),
                        "Zam_data_pvr proxy: data deserialization error - {}!", message);
        return qel::kInvalidArgument;
    }
    tree = std::move(rebuilt);
    hash = hashResponse.hash;
    result = resultResponse.result;
    return qel::kNoError;
}

/// Appends what the pieces hold to `list`.
int ZamDataProviderProxy::GetDataPieces(long channel, common::RawZamPieces& list) {
    common::HeapArena arena(qx_zam_connector_ZamDataProvider_GetData_response_arena);
    for (;;) {
        qx_zam_connector_ZamDataProvider_GetData_req request{};
        request.channel = channel;
        qx_zam_connector_ZamDataProvider_GetData_rsp response{};
        common::ClearArena(arena.Get());
        const int code = IpcTransferCallAndErrorHandle("GetData", proxy_.ops->GetData, proxy_,
                                                       request, nullptr, response, arena.Get());
        if (code < 0) {
            return code;
        }
        try {
            list.Append(response.params, arena.Get());
        } catch (...) {
            common::CaughtFailure(common::Here(kSourceFile, "GetDataFromChannel"), kDataPrefix);
            return qel::kInvalidArgument;
        }
        if (response.sessionStatus == kSessionLast) {
            return qel::kNoError;
        }
    }
}

int ZamDataProviderProxy::CloseChannel(long channel) {
    ChannelCloseScope scope;
    return scope.Close([&] {
        qx_zam_connector_ZamDataProvider_CloseChannel_req request{};
        request.channel = channel;
        qx_zam_connector_ZamDataProvider_CloseChannel_rsp response{};
        return IpcTransferCallAndErrorHandle("CloseChannel", proxy_.ops->CloseChannel, proxy_,
                                             request, nullptr, response, nullptr);
    });
}

int ZamDataProviderProxy::GetSubscriptions(
    std::pair<unsigned long, ZamSubscriptions>& subscriptions) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "GetSubscriptions");
    try {
        qx_zam_connector_ZamDataProvider_GetSubscriptions_req request{};
        qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp response{};
        common::HeapArena arena(qx_zam_connector_ZamDataProvider_GetSubscriptions_response_arena);
        const int status =
            proxy_.ops->GetSubscriptions(&proxy_, &request, nullptr, &response, arena.Get());
        if (status != 0) {
            return common::Failure(
                site, "Zam_data_pvr proxy: ipc call GetSubscriptions terminated with a error {}",
                status);
        }
        auto converted = common::CastFromVd(response.subscriptions, arena.Get());
        subscriptions.second.events.clear();
        subscriptions = std::move(converted);
        return response.resultCode;
    } catch (...) {
        return common::CaughtFailure(site, kDataPrefix);
    }
}

int ZamDataProviderProxy::GetZamServerData(ZamServerData& serverData) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "GetZamServerData");
    qx_zam_connector_ZamDataProvider_GetZamServerData_req request{};
    qx_zam_connector_ZamDataProvider_GetZamServerData_rsp response{};
    try {
        const int status =
            proxy_.ops->GetZamServerData(&proxy_, &request, nullptr, &response, nullptr);
        if (status != 0) {
            return common::Failure(
                site, "ZamDataProviderProxy: ipc call GetZamServerData terminated with a error {}",
                status);
        }
    } catch (...) {
        return common::CaughtFailure(site, kServerPrefix);
    }
    try {
        serverData = common::CastFromVd(response.serverData);
    } catch (...) {
        return common::CaughtCodeFailure(
            site, "ZamDataProviderProxy: cast ZamServerData threw exception [{}, {}]");
    }
    return response.resultCode;
}

int ZamDataProviderProxy::GetZamReserveCert(std::string& cert) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "GetZamReserveCert");
    qx_zam_connector_ZamDataProvider_GetZamReserveCert_req request{};
    qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp response{};
    common::StackArena<qx_zam_connector_ZamDataProvider_GetZamReserveCert_response_arena> arena;
    try {
        const int status =
            proxy_.ops->GetZamReserveCert(&proxy_, &request, nullptr, &response, arena.Get());
        if (status != 0) {
            return common::Failure(
                site,
                "ZamDataProviderProxy: ipc call GetZamReserveCert terminated with an error {}",
                status);
        }
        if (response.resultCode >= 0) {
            cert.assign(BytesInUse(*arena.Get(), response.certificate));
        }
        return response.resultCode;
    } catch (...) {
        return common::CaughtFailure(site, kServerPrefix);
    }
}

int ZamDataProviderProxy::GetPolicyHash(unsigned long& hash) noexcept {
    return GetHash(proxy_, proxy_.ops->GetPolicyHash, common::Here(kSourceFile, "GetPolicyHash"),
                   "Zam_data_pvr proxy: ipc call GetPolicyHash terminated with a error {}", hash);
}

int ZamDataProviderProxy::GetSettingsHash(unsigned long& hash) noexcept {
    return GetHash(proxy_, proxy_.ops->GetSettingsHash,
                   common::Here(kSourceFile, "GetSettingsHash"),
                   "Zam_data_pvr proxy: ipc call GetSettingsHash terminated with a error {}", hash);
}

int ZamDataProviderProxy::GetSubscriptionHash(unsigned long& hash) noexcept {
    return GetHash(
        proxy_, proxy_.ops->GetSubscriptionHash, common::Here(kSourceFile, "GetSubscriptionHash"),
        "Zam_data_pvr proxy: ipc call GetSubscriptionsHash terminated with a error {}", hash);
}

int ZamDataProviderProxy::GetSyncedSettingsHash(unsigned long& hash) noexcept {
    return GetHash(proxy_, proxy_.ops->GetSyncedSettingsHash,
                   common::Here(kSourceFile, "GetSyncedSettingsHash"),
                   "Zam_data_pvr proxy: ipc call GetSyncedSettingsHash terminated with a error {}",
                   hash);
}

int ZamDataProviderProxy::GetZamUpdatesStatusHash(unsigned long& hash) noexcept {
    try {
        qx_zam_connector_ZamDataProvider_GetZamUpdatesStatusHash_req request{};
        qx_zam_connector_ZamDataProvider_GetZamUpdatesStatusHash_rsp response{};
        return IpcTransferCall("GetZamUpdatesStatusHash", proxy_.ops->GetZamUpdatesStatusHash,
                               proxy_, request, nullptr, response, nullptr,
                               [&hash](const auto& answer) { hash = answer.hash; });
    } catch (...) {
        return common::CaughtFailure(common::Here(kSourceFile, "GetZamUpdatesStatusHash"),
                                     kDataPrefix);
    }
}

int ZamDataProviderProxy::GetZamUpdatesStatus(
    std::pair<unsigned long, ZamUpdatesStatus>& status) noexcept {
    long channel = 0;
    unsigned long hash = 0;
    const int opened = OpenZamUpdatesStatusChannel(channel, hash);
    if (opened < 0) {
        return opened;
    }
    const common::LogSite site = common::Here(kSourceFile, "GetZamUpdatesStatus");
    try {
        ZamUpdatesStatus lists;
        GetZamUpdatesStatus(channel, kApprovedKind, lists.approved);
        GetZamUpdatesStatus(channel, kDeclinedKind, lists.declined);
        GetZamUpdatesStatus(channel, kRevokedKind, lists.revoked);
        const int closed = CloseZamUpdatesStatusChannel(channel);
        if (closed < 0) {
            return closed;
        }
        status.first = hash;
        status.second = std::move(lists);
        return qel::kNoError;
    } catch (...) {
        // What is thrown may be a call that failed on its way.
        const common::detail::TransportStatusKeeper keeper;
        common::CaughtCodeFailure(
            site, "GetZamUpdatesStatus: Can't get zam update status code {} description {}");
    }
    CloseZamUpdatesStatusChannel(channel);
    return qel::kUnspecifiedError;
}

int ZamDataProviderProxy::OpenZamUpdatesStatusChannel(long& channel, unsigned long& hash) noexcept {
    try {
        qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_req request{};
        qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp response{};
        const int code = IpcTransferCallAndErrorHandle("OpenZamUpdatesStatusChannel",
                                                       proxy_.ops->OpenZamUpdatesStatusChannel,
                                                       proxy_, request, nullptr, response, nullptr);
        if (code < 0) {
            return code;
        }
        channel = response.channel;
        hash = response.hash;
        return qel::kNoError;
    } catch (...) {
        return common::CaughtFailure(
            common::Here(kSourceFile, "OpenZamUpdatesStatusChannel"),
            "GetZamUpdatesStatus: Can't open zam update status channel {}");
    }
}

int ZamDataProviderProxy::CloseZamUpdatesStatusChannel(long channel) noexcept {
    ChannelCloseScope scope;
    try {
        const int code = scope.Close([&] {
            qx_zam_connector_ZamDataProvider_CloseZamUpdatesStatusChannel_req request{};
            request.channel = channel;
            qx_zam_connector_ZamDataProvider_CloseZamUpdatesStatusChannel_rsp response{};
            return IpcTransferCallAndErrorHandle("CloseZamUpdatesStatusChannel",
                                                 proxy_.ops->CloseZamUpdatesStatusChannel, proxy_,
                                                 request, nullptr, response, nullptr);
        });
        return code < 0 ? code : qel::kNoError;
    } catch (...) {
        return common::CaughtFailure(
            common::Here(kSourceFile, "CloseZamUpdatesStatusChannel"),
            "GetZamUpdatesStatus: Can't close zam update status channel{}");
    }
}

void ZamDataProviderProxy::GetZamUpdatesStatus(long channel, unsigned int kind,
                                               std::vector<ZamId>& list) {
    qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req request{};
    request.channel = channel;
    request.kind = kind;
    common::HeapArena arena(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_response_arena);
    using Response = qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp;
    IpcTransferCall(
        "GetUpdatesStatus", proxy_.ops->GetUpdatesStatus, proxy_, request, arena.Get(),
        [](const Response& response, const vd_arena& answer) {
            return common::CastFromVd(response.updates, &answer);
        },
        list);
}

}  // namespace zam_connector::proxy
