#include "endpoints/conn_controller_endpoint.h"

#include <stdexcept>
#include <utility>

#include "common/connection_casts.h"
#include "common/log.h"
#include "endpoints/answer.h"
#include "qx/conn_controller.h"
#include "result_codes.h"

namespace zam_service {
namespace {

using Operation = qx_zam_connector_ConnController_operation;

constexpr char kSourceFile[] = "conn_controller_endpoint";

}  // namespace

void ConnControllerEndpoint::OnCall(const zam_platform::Request& request,
                                    zam_platform::Responder responder) {
    switch (static_cast<Operation>(request.operation)) {
        case Operation::Start:
            AnswerResult(std::move(responder), Start(request));
            break;
        case Operation::Stop:
            AnswerResult(std::move(responder), link_.Stop(request.client.user));
            break;
        case Operation::GetState: {
            qx_zam_connector_ConnController_GetState_rsp response{};
            response.state = zam_connector::common::CastToVd(link_.State());
            responder.Answer(response);
            break;
        }
        default:
            break;  // the server lets through no other
    }
}

int ConnControllerEndpoint::Start(const zam_platform::Request& request) {
    const auto& message = request.As<qx_zam_connector_ConnController_Start_req>();
    try {
        return link_.Start(request.client.user,
                           zam_connector::common::CastFromVd(message.parameters, &request.arena));
    } catch (const std::out_of_range& error) {
        // The text names the field and its bounds, never its content.
        zam_connector::common::Log(zor::logger::kLevelError,
                                   zam_connector::common::Here(kSourceFile, "Start"), "{}",
                                   error.what());
        return kInvalidArgument;
    }
}

}  // namespace zam_service
