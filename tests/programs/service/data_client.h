#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/arena.h"
#include "common/product_data_casts.h"
#include "common/raw_zam_param_casts.h"
#include "common/server_data_casts.h"
#include "data/content_hash.h"
#include "qx/endpoint_names.h"
#include "qx/product_data_holder.h"
#include "qx/zam_data_provider.h"
#include "result_codes.h"
#include "support/flattened.h"
#include "vd/service_locator.h"

namespace zam_service::testing {

using zam_test::Flattened;

using RawList = std::vector<zam_connector::common::RawZamParam>;

/// An answer to a call that did come; the test fails when it did not.
struct Piece {
    int status = -1;  ///< session status
    RawList records;
};

struct Ids {
    int status = -1;
    std::vector<zam_connector::ZamId> ids;
};

struct Closed {
    int status = -1;
    int code = -1;
    std::uint64_t hash = 0;
};

inline bool operator==(const Closed& left, const Closed& right) {
    return left.status == right.status && left.code == right.code && left.hash == right.hash;
}

inline std::ostream& operator<<(std::ostream& out, const Closed& closed) {
    return out << "status " << closed.status << ", code " << closed.code << ", hash "
               << closed.hash;
}

/// What the close of an upload that was refused answers.
inline constexpr Closed kRefused{0, kInvalidArgument, kAbsentHash};

/// A client of the two endpoints for data, operation by operation: what no proxy does, it can.
class DataClient {
public:
    DataClient() {
        const std::uint32_t handle = ServiceLocatorConnect(qx::kConnectorService);
        VdZorTransport_Init(&transport_, handle, 0, 0);
        qx_zam_connector_ZamDataProvider_proxy_init(
            &provider_, &transport_, ServiceLocatorGetRiid(handle, qx::kZamDataProviderEndpoint));
        qx_zam_connector_ProductDataHolder_proxy_init(
            &holder_, &transport_, ServiceLocatorGetRiid(handle, qx::kProductDataHolderEndpoint));
    }

    std::int64_t OpenPolicy() { return Opened(provider_, provider_.ops->OpenPolicyChannel); }
    std::int64_t OpenSettings() { return Opened(provider_, provider_.ops->OpenSettingsChannel); }
    std::int64_t OpenSetSettings() { return Opened(holder_, holder_.ops->OpenSetSettingsChannel); }
    std::int64_t OpenEulas() { return Opened(holder_, holder_.ops->OpenAppEulasChannel); }
    std::int64_t OpenUpdates() { return Opened(holder_, holder_.ops->OpenAppUpdatesChannel); }

    std::pair<std::int64_t, std::uint64_t> OpenUpdatesStatus() {
        const auto response =
            Call<qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp>(
                provider_, provider_.ops->OpenZamUpdatesStatusChannel, qx::EmptyRequest{});
        EXPECT_EQ(response.sessionStatus, 0);
        return {response.channel, response.hash};
    }

    Piece GetData(std::int64_t channel) {
        zam_connector::common::HeapArena arena(676000);
        const auto response = Call<qx_zam_connector_ZamDataProvider_GetData_rsp>(
            provider_, provider_.ops->GetData, Of(channel), nullptr, arena.Get());
        return {response.sessionStatus,
                zam_connector::common::CastFromVd(response.params, arena.Get())};
    }

    /// Session status, and hash.
    std::pair<int, std::uint64_t> GetHash(std::int64_t channel) {
        const auto response = Call<qx_zam_connector_ZamDataProvider_GetZamHash_rsp>(
            provider_, provider_.ops->GetZamHash, Of(channel));
        return {response.sessionStatus, response.hash};
    }

    /// Session status, and result.
    std::pair<int, int> GetResult(std::int64_t channel) {
        const auto response = Call<qx_zam_connector_ZamDataProvider_GetZamResult_rsp>(
            provider_, provider_.ops->GetZamResult, Of(channel));
        return {response.sessionStatus, response.result};
    }

    int Close(std::int64_t channel) {
        return Call<qx::SessionResponse>(provider_, provider_.ops->CloseChannel, Of(channel))
            .sessionStatus;
    }

    Ids GetUpdatesStatus(std::int64_t channel, std::uint32_t kind) {
        zam_connector::common::StackArena<160> arena;
        qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req request{};
        request.channel = channel;
        request.kind = kind;
        const auto response = Call<qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp>(
            provider_, provider_.ops->GetUpdatesStatus, request, nullptr, arena.Get());
        return {response.sessionStatus,
                zam_connector::common::CastFromVd(response.updates, arena.Get())};
    }

    int CloseUpdatesStatus(std::int64_t channel) {
        return Call<qx::SessionResponse>(provider_, provider_.ops->CloseZamUpdatesStatusChannel,
                                         Of(channel))
            .sessionStatus;
    }

    std::uint64_t PolicyHash() { return Hash(provider_.ops->GetPolicyHash); }
    std::uint64_t SettingsHash() { return Hash(provider_.ops->GetSettingsHash); }
    std::uint64_t SubscriptionHash() { return Hash(provider_.ops->GetSubscriptionHash); }
    std::uint64_t UpdatesHash() { return Hash(provider_.ops->GetZamUpdatesStatusHash); }
    std::uint64_t SyncedSettingsHash() { return Hash(provider_.ops->GetSyncedSettingsHash); }

    int Send(std::int64_t channel, const RawList& records) {
        zam_connector::common::HeapArena arena(676000);
        qx_zam_connector_ProductDataHolder_SendData_req request{};
        request.channel = channel;
        request.params = zam_connector::common::CastToVd(records, arena.Get());
        return Send(request, arena.Get());
    }

    int Send(const qx_zam_connector_ProductDataHolder_SendData_req& request, vd_arena* arena) {
        return Call<qx::SessionResponse>(holder_, holder_.ops->SendData, request, arena)
            .sessionStatus;
    }

    /// Sends a piece of which no answer comes; the transport status.
    int SendInVain(std::int64_t channel, const RawList& records) {
        zam_connector::common::HeapArena arena(676000);
        qx_zam_connector_ProductDataHolder_SendData_req request{};
        request.channel = channel;
        request.params = zam_connector::common::CastToVd(records, arena.Get());
        qx::SessionResponse response{};
        return holder_.ops->SendData(&holder_, &request, arena.Get(), &response, nullptr);
    }

    Closed CloseUpload(std::int64_t channel) {
        const auto response = Call<qx_zam_connector_ProductDataHolder_CloseChannel_rsp>(
            holder_, holder_.ops->CloseChannel, Of(channel));
        return {response.sessionStatus, response.resultCode, response.hash};
    }

    int SetAppInfo(const qx_zam_connector_ProductDataHolder_SetAppInfo_req& request,
                   vd_arena* arena) {
        return Call<qx::ResultResponse>(holder_, holder_.ops->SetAppInfo, request, arena)
            .resultCode;
    }

    int SetAppInfo(const zam_connector::AppInfo& info) {
        zam_connector::common::HeapArena arena(21216);
        qx_zam_connector_ProductDataHolder_SetAppInfo_req request{};
        request.info = zam_connector::common::CastToVd(info, arena.Get());
        return SetAppInfo(request, arena.Get());
    }

    int SetAppInfoDynamic(const qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req& request) {
        return Call<qx::ResultResponse>(holder_, holder_.ops->SetAppInfoDynamic, request)
            .resultCode;
    }

private:
    static qx::ChannelRequest Of(std::int64_t channel) {
        qx::ChannelRequest request{};
        request.channel = channel;
        return request;
    }

    template <typename Response, typename Proxy, typename Operation, typename Request>
    static Response Call(const Proxy& proxy, Operation operation, Request request,
                         vd_arena* requestArena = nullptr, vd_arena* responseArena = nullptr) {
        Response response{};
        EXPECT_EQ(operation(&proxy, &request, requestArena, &response, responseArena), 0);
        return response;
    }

    template <typename Proxy, typename Operation>
    static std::int64_t Opened(const Proxy& proxy, Operation operation) {
        const auto response = Call<qx::OpenChannelResponse>(proxy, operation, qx::EmptyRequest{});
        EXPECT_EQ(response.sessionStatus, 0);
        EXPECT_GT(response.channel, 0);
        return response.channel;
    }

    template <typename Operation>
    std::uint64_t Hash(Operation operation) {
        const auto response = Call<qx::HashResponse>(provider_, operation, qx::EmptyRequest{});
        EXPECT_EQ(response.resultCode, 0);
        return response.hash;
    }

    VdZorTransport transport_{};
    qx_zam_connector_ZamDataProvider_proxy provider_{};
    qx_zam_connector_ProductDataHolder_proxy holder_{};
};

}  // namespace zam_service::testing
