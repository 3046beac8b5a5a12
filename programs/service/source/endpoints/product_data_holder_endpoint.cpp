#include "endpoints/product_data_holder_endpoint.h"

#include <fmt/format.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "common/log.h"
#include "common/product_data_casts.h"
#include "common/raw_zam_param_casts.h"
#include "data/tree_snapshot.h"
#include "endpoints/answer.h"
#include "endpoints/endpoint_catalog.h"
#include "endpoints/session_statuses.h"
#include "qx/product_data_holder.h"
#include "record_json/app_info_json.h"
#include "result_codes.h"

namespace zam_service {

using zam_connector::common::RawZamParam;
using zam_platform::Request;
using zam_platform::Responder;

namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

using Operation = qx_zam_connector_ProductDataHolder_operation;

constexpr char kSourceFile[] = "product_data_holder_endpoint";

/// What the records behind the first `before` add to an upload, in bytes of memory.
std::size_t Measure(RebuildMeter& meter, const std::vector<RawZamParam>& records,
                    std::size_t before) {
    std::size_t bytes = 0;
    for (std::size_t index = before; index < records.size(); ++index) {
        bytes = SaturatedSum(bytes, meter.Add(records[index]));
    }
    return bytes;
}

void AnswerClose(Responder responder, int code, std::uint64_t hash, std::int8_t status) {
    qx_zam_connector_ProductDataHolder_CloseChannel_rsp response{};
    response.hash = hash;
    response.resultCode = code;
    response.sessionStatus = status;
    responder.Answer(response);
}

/// An upload's end as the answer to the close of its channel.
UploadStore::Done CloseAnswer(Responder responder) {
    return
        [kept = std::make_shared<Responder>(std::move(responder))](int code, std::uint64_t hash) {
            AnswerClose(std::move(*kept), code, hash, kSessionMore);
        };
}

/// What `read` makes of a request; empty, with a log record, when nothing can be made of it.
template <typename Read>
auto ReadOrLog(const char* function, Read read) -> std::optional<decltype(read())> {
    try {
        return read();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        Log(zor::logger::kLevelError, Here(kSourceFile, function), "{}", error.what());
        return std::nullopt;
    }
}

/// An upload's end as the answer to a call with a result code.
UploadStore::Done ResultOf(Responder responder) {
    return [answer = ResultAnswer(std::move(responder))](int code, std::uint64_t /*hash*/) {
        answer(code);
    };
}

}  // namespace

ProductDataHolderEndpoint::ProductDataHolderEndpoint(zam_platform::Server& server, ChannelIds& ids,
                                                     ChannelQuota& channelQuota,
                                                     UploadStore& uploads, ChannelLimits limits,
                                                     UploadQuota quota)
    : server_(server),
      uploads_(uploads),
      quota_(std::move(quota)),
      channels_(server.Context(), ids, channelQuota, "upload", limits) {}

void ProductDataHolderEndpoint::OnCall(const Request& request, Responder responder) {
    switch (static_cast<Operation>(request.operation)) {
        case Operation::SetAppInfo:
            SetAppInfo(request, std::move(responder));
            break;
        case Operation::SetAppInfoDynamic:
            SetAppInfoDynamic(request, std::move(responder));
            break;
        case Operation::OpenSetSettingsChannel:
            Open(request, std::move(responder), UploadKind::Settings);
            break;
        case Operation::OpenAppEulasChannel:
            Open(request, std::move(responder), UploadKind::Eulas);
            break;
        case Operation::OpenAppUpdatesChannel:
            Open(request, std::move(responder), UploadKind::Updates);
            break;
        case Operation::SendData: {
            qx::SessionResponse response{};
            response.sessionStatus = SendData(request);
            responder.Answer(response);
            break;
        }
        case Operation::CloseChannel:
            CloseChannel(request, std::move(responder));
            break;
        default:
            break;  // the server lets through no other
    }
}

void ProductDataHolderEndpoint::OnFault(const Request& request) {
    if (static_cast<Operation>(request.operation) != Operation::SendData) {
        return;
    }
    const auto& message = request.As<qx_zam_connector_ProductDataHolder_SendData_req>();
    if (Channel* const channel = channels_.Find(request.client.token, message.channel)) {
        Fail(*channel, kSessionInvalid, "a piece met with a fault");
    }
}

void ProductDataHolderEndpoint::OnConnectionBroken(const zam_platform::SessionToken& client,
                                                   const zam_platform::LostCall& lost) {
    constexpr std::string_view kWhy = "a connection of its client broke";
    static_assert(offsetof(qx_zam_connector_ProductDataHolder_SendData_req, channel) ==
                  sizeof(vd_message_header));
    using Kind = zam_platform::LostCall::Kind;
    if (lost.kind == Kind::None ||
        (lost.kind == Kind::Call &&
         (lost.endpoint->riid != EndpointOf("ProductDataHolder").riid ||
          static_cast<Operation>(lost.operation) != Operation::SendData))) {
        return;
    }
    if (const auto id = lost.FirstField<std::int64_t>()) {
        if (Channel* const channel = channels_.Peek(client, *id)) {
            Fail(*channel, kSessionInvalid, kWhy);
        }
        return;
    }
    channels_.ForEach(client,
                      [this, kWhy](Channel& channel) { Fail(channel, kSessionInvalid, kWhy); });
}

void ProductDataHolderEndpoint::SetAppInfo(const Request& request, Responder responder) {
    const auto& message = request.As<qx_zam_connector_ProductDataHolder_SetAppInfo_req>();
    const auto info = ReadOrLog("SetAppInfo", [&] {
        return zam_connector::common::CastFromVd(message.info, &request.arena);
    });
    if (!info) {
        AnswerResult(std::move(responder), kInvalidArgument);
        return;
    }
    uploads_.Store(UploadKind::AppInfo, request.client.user, zam_json::WriteAppInfo(*info),
                   ResultOf(std::move(responder)));
}

void ProductDataHolderEndpoint::SetAppInfoDynamic(const Request& request, Responder responder) {
    const auto& message = request.As<qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req>();
    const auto info = ReadOrLog("SetAppInfoDynamic",
                                [&] { return zam_connector::common::CastFromVd(message.info); });
    if (!info) {
        AnswerResult(std::move(responder), kInvalidArgument);
        return;
    }
    uploads_.Store(UploadKind::AppInfoDynamic, request.client.user,
                   zam_json::WriteDynamicAppInfo(*info), ResultOf(std::move(responder)));
}

void ProductDataHolderEndpoint::Open(const Request& request, Responder responder, UploadKind kind) {
    Channel channel(uploads_);
    channel.upload.kind = kind;
    channel.upload.user = request.client.user;
    channel.upload.share = quota_.Begin(request.client.user);
    qx::OpenChannelResponse response{};
    const auto opened = channels_.Open(request.client, std::move(channel));
    response.channel = opened.value_or(0);
    response.sessionStatus = opened ? kSessionMore : kSessionFull;
    responder.Answer(response);
}

std::int8_t ProductDataHolderEndpoint::SendData(const Request& request) {
    const auto& message = request.As<qx_zam_connector_ProductDataHolder_SendData_req>();
    Channel* const channel = channels_.Find(request.client.token, message.channel);
    if (channel == nullptr || channel->hasFailed) {
        return kSessionInvalid;
    }
    std::vector<RawZamParam>& records = channel->upload.records;
    const std::size_t before = records.size();
    try {
        zam_connector::common::AppendFromVd(message.params, &request.arena, records);
        const std::size_t bytes = Measure(channel->meter, records, before);
        if (!channel->upload.share.Grow(bytes)) {
            return Fail(*channel, kSessionFull, channel->upload.share.Excess(bytes));
        }
    } catch (const std::bad_alloc&) {
        return Fail(*channel, kSessionFull, "out of memory");
    } catch (const std::exception& error) {
        return Fail(*channel, kSessionInvalid, error.what());
    }
    if (records.size() == before) {
        return Fail(*channel, kSessionInvalid, "an empty piece");
    }
    return kSessionMore;
}

void ProductDataHolderEndpoint::CloseChannel(const Request& request, Responder responder) {
    // What tells that a piece was lost may still wait in the loop, behind this call.
    server_.NoticeBroken(request.client.token);
    std::optional<Channel> channel =
        channels_.Take(request.client.token, request.As<qx::ChannelRequest>().channel);
    if (!channel) {
        AnswerClose(std::move(responder), kNoError, kAbsentHash, kSessionInvalid);
        return;
    }
    const bool hasFailedThere = (request.flags & zam_platform::kFlagFailedTransfer) != 0;
    if (!channel->hasFailed && !hasFailedThere) {
        channel->failure = channel->meter.Missing();
        channel->hasFailed = !channel->failure.empty();
    }
    if (channel->hasFailed) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "CloseChannel"),
            "{} upload refused: {}; the one before stays", NameOf(channel->upload.kind),
            channel->failure);
    }
    if (!channel->hasFailed && !hasFailedThere) {
        uploads_.Store(std::move(channel->upload), CloseAnswer(std::move(responder)));
        return;
    }
    const UploadKind kind = channel->upload.kind;
    uploads_.Discard(std::move(channel->upload));
    if (!hasFailedThere) {
        AnswerClose(std::move(responder), kInvalidArgument, kAbsentHash, kSessionMore);
        return;
    }
    Log(zor::logger::kLevelWarning, Here(kSourceFile, "CloseChannel"),
        "{} upload given up by its client; the one before stays", NameOf(kind));
    // Its client tells the caller what the transfer failed of, not what comes of the close.
    uploads_.Keep(kind, request.client.user, CloseAnswer(std::move(responder)));
}

/// The first failure is what the transfer fails of; its records are of no more use.
std::int8_t ProductDataHolderEndpoint::Fail(Channel& channel, std::int8_t status,
                                            std::string_view why) {
    if (!std::exchange(channel.hasFailed, true)) {
        try {
            channel.failure = why;
        } catch (const std::bad_alloc&) {
            // What counts is that it failed.
        }
        Log(zor::logger::kLevelError, Here(kSourceFile, "Fail"), "{} upload: {}",
            NameOf(channel.upload.kind), why);
    }
    uploads_.Discard(std::move(channel.upload));
    return status;
}

}  // namespace zam_service
