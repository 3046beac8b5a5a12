#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

struct qx_zam_connector_ConnController_Start_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamConnectionParameters parameters;
};
QX_FIELD(qx_zam_connector_ConnController_Start_req, parameters, 24);
using qx_zam_connector_ConnController_Start_rsp = qx::ResultResponse;

using qx_zam_connector_ConnController_Stop_req = qx::EmptyRequest;
using qx_zam_connector_ConnController_Stop_rsp = qx::ResultResponse;

using qx_zam_connector_ConnController_GetState_req = qx::EmptyRequest;
// A number and no enumeration: a client must be able to look at a state that it does not know.
struct qx_zam_connector_ConnController_GetState_rsp {
    vd_message_header header;
    std::int32_t state;
    std::int32_t resultCode;
};
QX_FIELD(qx_zam_connector_ConnController_GetState_rsp, state, 24);
QX_FIELD(qx_zam_connector_ConnController_GetState_rsp, resultCode, 28);

QX_DECLARE_INTERFACE(ConnController, QX_CONN_CONTROLLER_OPERATIONS)
