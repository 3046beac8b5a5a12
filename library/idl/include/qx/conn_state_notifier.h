#pragma once

#include "qx/messages.h"

using qx_zam_connector_ConnStateNotifier_Register_req = qx::EmptyRequest;
using qx_zam_connector_ConnStateNotifier_Register_rsp = qx::RegisterResponse;

// The answer takes as long as there is nothing to tell: a service cannot call its clients, so they
// wait in a call.
using qx_zam_connector_ConnStateNotifier_GetState_req = qx::RegistrationRequest;
using qx_zam_connector_ConnStateNotifier_GetState_rsp = qx::NoticeResponse;

using qx_zam_connector_ConnStateNotifier_Unregister_req = qx::RegistrationRequest;
using qx_zam_connector_ConnStateNotifier_Unregister_rsp = qx::EmptyResponse;

QX_DECLARE_INTERFACE(ConnStateNotifier, QX_CONN_STATE_NOTIFIER_OPERATIONS)
