#pragma once

#include "qx/messages.h"

using qx_zam_connector_ConnStateNotifier_Register_req = qx::EmptyRequest;
using qx_zam_connector_ConnStateNotifier_Register_rsp = qx::RegisterResponse;

using qx_zam_connector_ConnStateNotifier_GetState_req = qx::RegistrationRequest;
using qx_zam_connector_ConnStateNotifier_GetState_rsp = qx::NoticeResponse;

using qx_zam_connector_ConnStateNotifier_Unregister_req = qx::RegistrationRequest;
using qx_zam_connector_ConnStateNotifier_Unregister_rsp = qx::EmptyResponse;

QX_DECLARE_INTERFACE(ConnStateNotifier, QX_CONN_STATE_NOTIFIER_OPERATIONS)
