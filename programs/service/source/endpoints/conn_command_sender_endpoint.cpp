#include "endpoints/conn_command_sender_endpoint.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/connection_casts.h"
#include "common/log.h"
#include "data/history_line.h"
#include "endpoints/answer.h"
#include "qx/conn_command_sender.h"
#include "result_codes.h"

namespace zam_service {
namespace {

using Operation = qx_zam_connector_ConnCommandSender_operation;

constexpr char kSourceFile[] = "conn_command_sender_endpoint";

/// The event's text; empty when it is empty or cannot be read.
std::string EventText(const zam_platform::Request& request) {
    const auto& message = request.As<qx_zam_connector_ConnCommandSender_PostZamEvent_req>();
    try {
        return zam_connector::common::CastFromVd(message.event, &request.arena);
    } catch (const std::out_of_range& error) {
        zam_connector::common::Log(zor::logger::kLevelError,
                                   zam_connector::common::Here(kSourceFile, "PostZamEvent"), "{}",
                                   error.what());
        return {};
    }
}

}  // namespace

void ConnCommandSenderEndpoint::OnCall(const zam_platform::Request& request,
                                       zam_platform::Responder responder) {
    switch (static_cast<Operation>(request.operation)) {
        case Operation::PostZamEvent:
            PostZamEvent(request, std::move(responder));
            break;
        case Operation::ScheduleSync:
            link_.ScheduleSync(request.client.user, ResultAnswer(std::move(responder)));
            break;
        default:
            break;  // the server lets through no other
    }
}

void ConnCommandSenderEndpoint::PostZamEvent(const zam_platform::Request& request,
                                             zam_platform::Responder responder) {
    const std::string text = EventText(request);
    if (text.empty()) {
        AnswerResult(std::move(responder), kInvalidArgument);
        return;
    }
    HistoryLine line("event", std::chrono::system_clock::now());
    history_.Append(line.Add("text", text).Text(), ResultAnswer(std::move(responder)),
                    request.client.user);
}

}  // namespace zam_service
