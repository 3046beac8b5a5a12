#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

struct qx_zam_connector_ConnSettingsHolder_Set_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamConnectorSettings settings;
};
QX_FIELD(qx_zam_connector_ConnSettingsHolder_Set_req, settings, 24);
using qx_zam_connector_ConnSettingsHolder_Set_rsp = qx::ResultResponse;

using qx_zam_connector_ConnSettingsHolder_Get_req = qx::EmptyRequest;
// The record in front of the code: it needs 8-byte alignment, and the header ends on it.
struct qx_zam_connector_ConnSettingsHolder_Get_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamConnectorSettings settings;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(qx_zam_connector_ConnSettingsHolder_Get_rsp, settings, 24);
QX_FIELD(qx_zam_connector_ConnSettingsHolder_Get_rsp, resultCode, 72);
QX_FIELD(qx_zam_connector_ConnSettingsHolder_Get_rsp, reserved, 76);

QX_DECLARE_INTERFACE(ConnSettingsHolder, QX_CONN_SETTINGS_HOLDER_OPERATIONS)
