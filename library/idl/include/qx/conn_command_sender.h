#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

struct qx_zam_connector_ConnCommandSender_PostZamEvent_req {
    vd_message_header header;
    vd_bytes event;
};
QX_FIELD(qx_zam_connector_ConnCommandSender_PostZamEvent_req, event, 24);
using qx_zam_connector_ConnCommandSender_PostZamEvent_rsp = qx::ResultResponse;

using qx_zam_connector_ConnCommandSender_ScheduleSync_req = qx::EmptyRequest;
using qx_zam_connector_ConnCommandSender_ScheduleSync_rsp = qx::ResultResponse;

QX_DECLARE_INTERFACE(ConnCommandSender, QX_CONN_COMMAND_SENDER_OPERATIONS)
