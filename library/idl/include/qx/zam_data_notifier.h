#pragma once

#include "qx/messages.h"

using qx_zam_connector_ZamDataNotifier_Register_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataNotifier_Register_rsp = qx::RegisterResponse;

using qx_zam_connector_ZamDataNotifier_GetChangedDataType_req = qx::RegistrationRequest;
using qx_zam_connector_ZamDataNotifier_GetChangedDataType_rsp = qx::NoticeResponse;

using qx_zam_connector_ZamDataNotifier_Unregister_req = qx::RegistrationRequest;
using qx_zam_connector_ZamDataNotifier_Unregister_rsp = qx::EmptyResponse;

QX_DECLARE_INTERFACE(ZamDataNotifier, QX_ZAM_DATA_NOTIFIER_OPERATIONS)
