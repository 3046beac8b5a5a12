#pragma once

#include "data_handler/notifier_provider.h"
#include "qx/conn_state_notifier.h"
#include "zor/logger.h"

namespace zam_connector::proxy {

struct ConnStateNotifier {
    using Proxy = qx_zam_connector_ConnStateNotifier_proxy;
    using Value = int;
    using RegisterRequest = qx_zam_connector_ConnStateNotifier_Register_req;
    using RegisterResponse = qx_zam_connector_ConnStateNotifier_Register_rsp;
    using WaitRequest = qx_zam_connector_ConnStateNotifier_GetState_req;
    using WaitResponse = qx_zam_connector_ConnStateNotifier_GetState_rsp;
    using UnregisterRequest = qx_zam_connector_ConnStateNotifier_Unregister_req;
    using UnregisterResponse = qx_zam_connector_ConnStateNotifier_Unregister_rsp;

    static constexpr auto kWait = &qx_zam_connector_ConnStateNotifier_ops::GetState;
    static constexpr char kSourceFile[] = "zam_conn_state_provider";
    static constexpr char kRegisterTransport[] =
        "ZamConnStateProvider: ipc call Register terminated with a error {}";
    static constexpr char kRegisterRefused[] =
        "ZamConnStateProvider: ipc call Register terminated with a notification error {}";
    static constexpr int kWaitTransportLevel = zor::logger::kLevelError;
    static constexpr char kWaitTransport[] =
        "ZamConnStateProvider: ipc call GetState terminated with a error {}";
    static constexpr char kWaitRefused[] =
        "ZamConnStateProvider: ipc call GetState terminated with a callback error {}";
    static constexpr char kUnregisterTransport[] =
        "ZamConnStateProvider: ipc call Unregister terminated with a error {}";
};

/// Gives the states of the connection as the service numbers them.
using ZamConnStateProvider = NotifierProvider<ConnStateNotifier>;

}  // namespace zam_connector::proxy
