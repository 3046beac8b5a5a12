#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

struct qx_zam_connector_ProductDataHolder_SetAppInfo_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_AppInfo info;
};
QX_FIELD(qx_zam_connector_ProductDataHolder_SetAppInfo_req, info, 24);
using qx_zam_connector_ProductDataHolder_SetAppInfo_rsp = qx::ResultResponse;

struct qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_DynamicAppInfo info;
};
QX_FIELD(qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req, info, 24);
using qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_rsp = qx::ResultResponse;

using qx_zam_connector_ProductDataHolder_OpenSetSettingsChannel_req = qx::EmptyRequest;
using qx_zam_connector_ProductDataHolder_OpenSetSettingsChannel_rsp = qx::OpenChannelResponse;

using qx_zam_connector_ProductDataHolder_OpenAppEulasChannel_req = qx::EmptyRequest;
using qx_zam_connector_ProductDataHolder_OpenAppEulasChannel_rsp = qx::OpenChannelResponse;

using qx_zam_connector_ProductDataHolder_OpenAppUpdatesChannel_req = qx::EmptyRequest;
using qx_zam_connector_ProductDataHolder_OpenAppUpdatesChannel_rsp = qx::OpenChannelResponse;

// The channel is named in each piece: one client may have several transfers under way, and all of
// its connections are alike to the service.
struct qx_zam_connector_ProductDataHolder_SendData_req {
    vd_message_header header;
    std::int64_t channel;
    qx_zam_connector_ZamTypes_ZamParams params;
};
QX_FIELD(qx_zam_connector_ProductDataHolder_SendData_req, channel, 24);
QX_FIELD(qx_zam_connector_ProductDataHolder_SendData_req, params, 32);
using qx_zam_connector_ProductDataHolder_SendData_rsp = qx::SessionResponse;

using qx_zam_connector_ProductDataHolder_CloseChannel_req = qx::ChannelRequest;
// The only answer with a result code and a session status: the code is the service's word on the
// data, which it has whole only now, and the status tells whether the channel could be closed. The
// hash is that of what was stored, so it comes here and not from a call of its own.
struct qx_zam_connector_ProductDataHolder_CloseChannel_rsp {
    vd_message_header header;
    std::uint64_t hash;
    std::int32_t resultCode;
    std::int8_t sessionStatus;
    std::uint8_t reserved[3];
};
QX_FIELD(qx_zam_connector_ProductDataHolder_CloseChannel_rsp, hash, 24);
QX_FIELD(qx_zam_connector_ProductDataHolder_CloseChannel_rsp, resultCode, 32);
QX_FIELD(qx_zam_connector_ProductDataHolder_CloseChannel_rsp, sessionStatus, 36);
QX_FIELD(qx_zam_connector_ProductDataHolder_CloseChannel_rsp, reserved, 37);

QX_DECLARE_INTERFACE(ProductDataHolder, QX_PRODUCT_DATA_HOLDER_OPERATIONS)
