#pragma once

#include "qx/messages.h"

using qx_zam_connector_ZamDataNotifier_Register_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataNotifier_Register_rsp = qx::RegisterResponse;

// The answer names a kind and brings no data: the client fetches what it wants of it.
using qx_zam_connector_ZamDataNotifier_GetChangedDataType_req = qx::RegistrationRequest;
using qx_zam_connector_ZamDataNotifier_GetChangedDataType_rsp = qx::NoticeResponse;

using qx_zam_connector_ZamDataNotifier_Unregister_req = qx::RegistrationRequest;
using qx_zam_connector_ZamDataNotifier_Unregister_rsp = qx::EmptyResponse;

QX_DECLARE_INTERFACE(ZamDataNotifier, QX_ZAM_DATA_NOTIFIER_OPERATIONS)
