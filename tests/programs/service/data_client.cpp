#include "data_client.h"

#include <gtest/gtest.h>

#include <ostream>

#include "common/arena.h"
#include "common/product_data_casts.h"
#include "common/raw_zam_param_casts.h"
#include "common/server_data_casts.h"
#include "qx/endpoint_names.h"
#include "vd/call_bounds.h"
#include "vd/service_locator.h"

namespace zam_service::testing {

using zam_connector::common::CastFromVd;
using zam_connector::common::CastToVd;
using zam_connector::common::HeapArena;
using zam_connector::common::StackArena;

namespace {

/// What the contract gives to a piece.
constexpr std::uint32_t kPieceArenaBytes = 676000;

template <typename Response, typename Proxy, typename Operation, typename Request>
Response Call(const Proxy& proxy, Operation operation, Request request,
              vd_arena* requestArena = nullptr, vd_arena* responseArena = nullptr) {
    Response response{};
    EXPECT_EQ(operation(&proxy, &request, requestArena, &response, responseArena), 0);
    return response;
}

qx::ChannelRequest Of(std::int64_t channel) {
    qx::ChannelRequest request{};
    request.channel = channel;
    return request;
}

template <typename Proxy, typename Operation>
std::int64_t Opened(const Proxy& proxy, Operation operation) {
    const auto response = Call<qx::OpenChannelResponse>(proxy, operation, qx::EmptyRequest{});
    EXPECT_EQ(response.sessionStatus, 0);
    EXPECT_GT(response.channel, 0);
    return response.channel;
}

template <typename Proxy, typename Operation>
std::uint64_t Hash(const Proxy& proxy, Operation operation) {
    const auto response = Call<qx::HashResponse>(proxy, operation, qx::EmptyRequest{});
    EXPECT_EQ(response.resultCode, 0);
    return response.hash;
}

qx_zam_connector_ProductDataHolder_SendData_req PieceOf(std::int64_t channel,
                                                        const RawList& records, vd_arena* arena) {
    qx_zam_connector_ProductDataHolder_SendData_req request{};
    request.channel = channel;
    request.params = CastToVd(records, arena);
    return request;
}

}  // namespace

bool operator==(const Closed& left, const Closed& right) {
    return left.status == right.status && left.code == right.code && left.hash == right.hash;
}

std::ostream& operator<<(std::ostream& out, const Closed& closed) {
    return out << "status " << closed.status << ", code " << closed.code << ", hash "
               << closed.hash;
}

DataClient::DataClient() {
    const std::uint32_t handle = ServiceLocatorConnect(qx::kConnectorService);
    VdZorTransport_Init(&transport_, handle, 0, 0);
    qx_zam_connector_ZamDataProvider_proxy_init(
        &provider_, &transport_, ServiceLocatorGetRiid(handle, qx::kZamDataProviderEndpoint));
    qx_zam_connector_ProductDataHolder_proxy_init(
        &holder_, &transport_, ServiceLocatorGetRiid(handle, qx::kProductDataHolderEndpoint));
}

std::int64_t DataClient::OpenPolicy() {
    return Opened(provider_, provider_.ops->OpenPolicyChannel);
}

std::int64_t DataClient::OpenSettings() {
    return Opened(provider_, provider_.ops->OpenSettingsChannel);
}

std::int64_t DataClient::OpenSetSettings() {
    return Opened(holder_, holder_.ops->OpenSetSettingsChannel);
}

std::int64_t DataClient::OpenEulas() {
    return Opened(holder_, holder_.ops->OpenAppEulasChannel);
}

std::int64_t DataClient::OpenUpdates() {
    return Opened(holder_, holder_.ops->OpenAppUpdatesChannel);
}

int DataClient::OpenStatus() {
    return Call<qx::OpenChannelResponse>(holder_, holder_.ops->OpenAppUpdatesChannel,
                                         qx::EmptyRequest{})
        .sessionStatus;
}

std::pair<std::int64_t, std::uint64_t> DataClient::OpenUpdatesStatus() {
    const auto response = Call<qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp>(
        provider_, provider_.ops->OpenZamUpdatesStatusChannel, qx::EmptyRequest{});
    EXPECT_EQ(response.sessionStatus, 0);
    return {response.channel, response.hash};
}

Piece DataClient::GetData(std::int64_t channel) {
    HeapArena arena(kPieceArenaBytes);
    const auto response = Call<qx_zam_connector_ZamDataProvider_GetData_rsp>(
        provider_, provider_.ops->GetData, Of(channel), nullptr, arena.Get());
    return {response.sessionStatus, CastFromVd(response.params, arena.Get())};
}

std::pair<int, std::uint64_t> DataClient::GetHash(std::int64_t channel) {
    const auto response = Call<qx_zam_connector_ZamDataProvider_GetZamHash_rsp>(
        provider_, provider_.ops->GetZamHash, Of(channel));
    return {response.sessionStatus, response.hash};
}

std::pair<int, int> DataClient::GetResult(std::int64_t channel) {
    const auto response = Call<qx_zam_connector_ZamDataProvider_GetZamResult_rsp>(
        provider_, provider_.ops->GetZamResult, Of(channel));
    return {response.sessionStatus, response.result};
}

int DataClient::Close(std::int64_t channel) {
    return Call<qx::SessionResponse>(provider_, provider_.ops->CloseChannel, Of(channel))
        .sessionStatus;
}

Ids DataClient::GetUpdatesStatus(std::int64_t channel, std::uint32_t kind) {
    StackArena<160> arena;
    qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req request{};
    request.channel = channel;
    request.kind = kind;
    const auto response = Call<qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp>(
        provider_, provider_.ops->GetUpdatesStatus, request, nullptr, arena.Get());
    return {response.sessionStatus, CastFromVd(response.updates, arena.Get())};
}

int DataClient::CloseUpdatesStatus(std::int64_t channel) {
    return Call<qx::SessionResponse>(provider_, provider_.ops->CloseZamUpdatesStatusChannel,
                                     Of(channel))
        .sessionStatus;
}

std::uint64_t DataClient::PolicyHash() {
    return Hash(provider_, provider_.ops->GetPolicyHash);
}

std::uint64_t DataClient::SettingsHash() {
    return Hash(provider_, provider_.ops->GetSettingsHash);
}

std::uint64_t DataClient::SubscriptionHash() {
    return Hash(provider_, provider_.ops->GetSubscriptionHash);
}

std::uint64_t DataClient::UpdatesHash() {
    return Hash(provider_, provider_.ops->GetZamUpdatesStatusHash);
}

std::uint64_t DataClient::SyncedSettingsHash() {
    return Hash(provider_, provider_.ops->GetSyncedSettingsHash);
}

int DataClient::Send(std::int64_t channel, const RawList& records) {
    HeapArena arena(kPieceArenaBytes);
    return Send(PieceOf(channel, records, arena.Get()), arena.Get());
}

int DataClient::Send(const qx_zam_connector_ProductDataHolder_SendData_req& request,
                     vd_arena* arena) {
    return Call<qx::SessionResponse>(holder_, holder_.ops->SendData, request, arena).sessionStatus;
}

int DataClient::SendInVain(std::int64_t channel, const RawList& records) {
    HeapArena arena(kPieceArenaBytes);
    auto request = PieceOf(channel, records, arena.Get());
    qx::SessionResponse response{};
    return holder_.ops->SendData(&holder_, &request, arena.Get(), &response, nullptr);
}

Closed DataClient::CloseUpload(std::int64_t channel) {
    const auto response = Call<qx_zam_connector_ProductDataHolder_CloseChannel_rsp>(
        holder_, holder_.ops->CloseChannel, Of(channel));
    return {response.sessionStatus, response.resultCode, response.hash};
}

Closed DataClient::AbandonUpload(std::int64_t channel) {
    using Operation = qx_zam_connector_ProductDataHolder_operation;
    const VdFailedTransfer failed{.riid = holder_.riid,
                                  .operation = static_cast<std::uint16_t>(Operation::CloseChannel),
                                  .channel = channel};
    VdCallBounds bounds{};
    bounds.failedTransfer = &failed;
    VdZorTransport_SetCallBounds(&bounds);
    const Closed closed = CloseUpload(channel);
    VdZorTransport_SetCallBounds(nullptr);
    return closed;
}

int DataClient::SetAppInfo(const qx_zam_connector_ProductDataHolder_SetAppInfo_req& request,
                           vd_arena* arena) {
    return Call<qx::ResultResponse>(holder_, holder_.ops->SetAppInfo, request, arena).resultCode;
}

int DataClient::SetAppInfo(const zam_connector::AppInfo& info) {
    HeapArena arena(21216);
    qx_zam_connector_ProductDataHolder_SetAppInfo_req request{};
    request.info = CastToVd(info, arena.Get());
    return SetAppInfo(request, arena.Get());
}

int DataClient::SetAppInfoDynamic(
    const qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req& request) {
    return Call<qx::ResultResponse>(holder_, holder_.ops->SetAppInfoDynamic, request).resultCode;
}

}  // namespace zam_service::testing
