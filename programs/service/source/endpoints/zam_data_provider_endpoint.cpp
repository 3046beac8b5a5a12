#include "endpoints/zam_data_provider_endpoint.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "common/arena.h"
#include "common/log.h"
#include "common/server_data_casts.h"
#include "endpoints/answer.h"
#include "endpoints/session_statuses.h"
#include "qx/zam_data_provider.h"
#include "zam_connector/zam_id.h"

namespace zam_service {

using zam_platform::Request;
using zam_platform::Responder;

namespace {

using Operation = qx_zam_connector_ZamDataProvider_operation;

constexpr char kSourceFile[] = "zam_data_provider_endpoint";

constexpr std::size_t kIdsPerPiece =
    qx_zam_connector_ZamDataProvider_GetUpdatesStatus_response_arena / sizeof(zam_connector::ZamId);

std::int64_t ChannelOf(const Request& request) {
    return request.As<qx::ChannelRequest>().channel;
}

void AnswerHash(Responder responder, std::uint64_t hash) {
    qx::HashResponse response{};
    response.hash = hash;
    responder.Answer(response);
}

}  // namespace

ZamDataProviderEndpoint::ZamDataProviderEndpoint(asio::io_context& loop, ChannelIds& ids,
                                                 ChannelQuota& quota, const ProviderData& data,
                                                 const UploadStore& uploads, ChannelLimits limits)
    : data_(data),
      uploads_(uploads),
      trees_(loop, ids, quota, "data", limits),
      updates_(loop, ids, quota, "updates status", limits) {}

void ZamDataProviderEndpoint::EndSession(const zam_platform::SessionToken& client) {
    trees_.EndSession(client);
    updates_.EndSession(client);
}

void ZamDataProviderEndpoint::OnCall(const Request& request, Responder responder) {
    switch (static_cast<Operation>(request.operation)) {
        case Operation::OpenPolicyChannel:
            OpenTree(request, std::move(responder), data_.policy, data_.server.policyResult);
            break;
        case Operation::OpenSettingsChannel:
            OpenTree(request, std::move(responder), data_.settings, data_.server.settingsResult);
            break;
        case Operation::GetData:
            GetData(request, std::move(responder));
            break;
        case Operation::GetZamHash:
            GetZamHash(request, std::move(responder));
            break;
        case Operation::GetZamResult:
            GetZamResult(request, std::move(responder));
            break;
        case Operation::CloseChannel:
            Close(trees_, request, std::move(responder));
            break;
        case Operation::GetSubscriptions:
            GetSubscriptions(std::move(responder));
            break;
        case Operation::GetZamServerData:
            GetZamServerData(std::move(responder));
            break;
        case Operation::GetZamReserveCert:
            GetZamReserveCert(std::move(responder));
            break;
        case Operation::GetPolicyHash:
            AnswerHash(std::move(responder), data_.policy->hash);
            break;
        case Operation::GetSettingsHash:
            AnswerHash(std::move(responder), data_.settings->hash);
            break;
        case Operation::GetSubscriptionHash:
            AnswerHash(std::move(responder), data_.subscriptions.message.hash);
            break;
        case Operation::GetZamUpdatesStatusHash:
            AnswerHash(std::move(responder), data_.updates->hash);
            break;
        case Operation::GetSyncedSettingsHash:
            AnswerHash(std::move(responder), uploads_.SettingsHash());
            break;
        case Operation::OpenZamUpdatesStatusChannel:
            OpenUpdates(request, std::move(responder));
            break;
        case Operation::GetUpdatesStatus:
            GetUpdatesStatus(request, std::move(responder));
            break;
        case Operation::CloseZamUpdatesStatusChannel:
            Close(updates_, request, std::move(responder));
            break;
        default:
            break;  // the server lets through no other
    }
}

void ZamDataProviderEndpoint::OpenTree(const Request& request, Responder responder,
                                       const TreeSnapshotPtr& tree, int result) {
    qx::OpenChannelResponse response{};
    const auto channel = trees_.Open(request.client, {.tree = tree, .result = result});
    response.channel = channel.value_or(0);
    response.sessionStatus = channel ? kSessionMore : kSessionFull;
    responder.Answer(response);
}

void ZamDataProviderEndpoint::GetData(const Request& request, Responder responder) {
    qx_zam_connector_ZamDataProvider_GetData_rsp response{};
    TreeChannel* const channel = trees_.Find(request.client.token, ChannelOf(request));
    if (channel == nullptr) {
        response.sessionStatus = kSessionInvalid;
        responder.Answer(response);
        return;
    }
    const auto& pieces = channel->tree->pieces;
    if (channel->nextPiece == pieces.size()) {
        // Asked once more behind the last piece: there is nothing, and nothing follows.
        response.sessionStatus = kSessionLast;
        responder.Answer(response);
        return;
    }
    const std::vector<unsigned char>& piece = pieces[channel->nextPiece++];
    const auto size = static_cast<std::uint32_t>(piece.size());
    response.params.records = {0, size};
    response.sessionStatus = channel->nextPiece == pieces.size() ? kSessionLast : kSessionMore;
    responder.Answer(response, piece.data(), size);
}

void ZamDataProviderEndpoint::GetZamHash(const Request& request, Responder responder) {
    qx_zam_connector_ZamDataProvider_GetZamHash_rsp response{};
    const TreeChannel* const channel = trees_.Find(request.client.token, ChannelOf(request));
    response.hash = channel != nullptr ? channel->tree->hash : kAbsentHash;
    response.sessionStatus = channel != nullptr ? kSessionMore : kSessionInvalid;
    responder.Answer(response);
}

void ZamDataProviderEndpoint::GetZamResult(const Request& request, Responder responder) {
    qx_zam_connector_ZamDataProvider_GetZamResult_rsp response{};
    const TreeChannel* const channel = trees_.Find(request.client.token, ChannelOf(request));
    response.result = channel != nullptr ? channel->result : 0;
    response.sessionStatus = channel != nullptr ? kSessionMore : kSessionInvalid;
    responder.Answer(response);
}

void ZamDataProviderEndpoint::GetSubscriptions(Responder responder) const {
    qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp response{};
    response.subscriptions = data_.subscriptions.message;
    const auto& arena = data_.subscriptions.arena;
    responder.Answer(response, arena.data(), static_cast<std::uint32_t>(arena.size()));
}

void ZamDataProviderEndpoint::GetZamServerData(Responder responder) const {
    qx_zam_connector_ZamDataProvider_GetZamServerData_rsp response{};
    response.serverData = zam_connector::common::CastToVd(data_.server.data);
    responder.Answer(response);
}

void ZamDataProviderEndpoint::GetZamReserveCert(Responder responder) const {
    qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp response{};
    const auto size = static_cast<std::uint32_t>(data_.reserveCert.size());
    response.certificate = {0, size};
    responder.Answer(response, data_.reserveCert.data(), size);
}

void ZamDataProviderEndpoint::OpenUpdates(const Request& request, Responder responder) {
    qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp response{};
    response.hash = data_.updates->hash;
    const auto channel = updates_.Open(request.client, {.updates = data_.updates});
    response.channel = channel.value_or(0);
    response.sessionStatus = channel ? kSessionMore : kSessionFull;
    responder.Answer(response);
}

void ZamDataProviderEndpoint::GetUpdatesStatus(const Request& request, Responder responder) {
    const auto& message = request.As<qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req>();
    qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp response{};
    UpdatesChannel* const channel = updates_.Find(request.client.token, message.channel);
    if (channel == nullptr || message.kind >= kUpdateKinds) {
        if (channel != nullptr) {
            zam_connector::common::Log(zor::logger::kLevelError,
                                       zam_connector::common::Here(kSourceFile, "GetUpdatesStatus"),
                                       "there is no list of the kind {}, only 0 to {}",
                                       message.kind, kUpdateKinds - 1);
        }
        response.sessionStatus = kSessionInvalid;
        responder.Answer(response);
        return;
    }
    const auto& ids = channel->updates->lists.at(message.kind);
    std::size_t& next = channel->nextId.at(message.kind);
    const std::size_t count = std::min(kIdsPerPiece, ids.size() - next);
    if (count == 0) {
        // What carries this status is not read: it must come behind the last identifier.
        response.sessionStatus = kSessionLast;
        responder.Answer(response);
        return;
    }
    const auto size = static_cast<std::uint32_t>(count * sizeof(zam_connector::ZamId));
    const auto* const first = ids.data() + next;
    next += count;
    response.updates.identifiers = {0, size};
    responder.Answer(response, first, size);
}

template <typename Content>
void ZamDataProviderEndpoint::Close(ChannelTable<Content>& channels, const Request& request,
                                    Responder responder) {
    qx::SessionResponse response{};
    response.sessionStatus =
        channels.Take(request.client.token, ChannelOf(request)) ? kSessionMore : kSessionInvalid;
    responder.Answer(response);
}

}  // namespace zam_service
