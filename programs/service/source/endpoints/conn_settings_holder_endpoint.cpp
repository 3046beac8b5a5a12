#include "endpoints/conn_settings_holder_endpoint.h"

#include <utility>

#include "common/connection_casts.h"
#include "data/settings_json.h"
#include "endpoints/answer.h"
#include "qx/conn_settings_holder.h"
#include "result_codes.h"

namespace zam_service {
namespace {

using Operation = qx_zam_connector_ConnSettingsHolder_operation;

}  // namespace

void ConnSettingsHolderEndpoint::OnCall(const zam_platform::Request& request,
                                        zam_platform::Responder responder) {
    switch (static_cast<Operation>(request.operation)) {
        case Operation::Set: {
            const auto& message = request.As<qx_zam_connector_ConnSettingsHolder_Set_req>();
            const auto settings = zam_connector::common::CastFromVd(message.settings);
            if (AreConsistent(settings)) {
                settings_.Set(request.client.user, settings, ResultAnswer(std::move(responder)));
            } else {
                AnswerResult(std::move(responder), kInvalidArgument);
            }
            break;
        }
        case Operation::Get: {
            qx_zam_connector_ConnSettingsHolder_Get_rsp response{};
            response.settings = zam_connector::common::CastToVd(settings_.Current());
            responder.Answer(response);
            break;
        }
        default:
            break;  // the server lets through no other
    }
}

}  // namespace zam_service
