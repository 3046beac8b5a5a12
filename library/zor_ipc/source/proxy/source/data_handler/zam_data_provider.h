#pragma once

#include "data_handler/notifier_provider.h"
#include "qx/zam_data_notifier.h"
#include "zor/logger.h"

namespace zam_connector::proxy {

struct ZamDataNotifier {
    using Proxy = qx_zam_connector_ZamDataNotifier_proxy;
    using Value = unsigned int;
    using RegisterRequest = qx_zam_connector_ZamDataNotifier_Register_req;
    using RegisterResponse = qx_zam_connector_ZamDataNotifier_Register_rsp;
    using WaitRequest = qx_zam_connector_ZamDataNotifier_GetChangedDataType_req;
    using WaitResponse = qx_zam_connector_ZamDataNotifier_GetChangedDataType_rsp;
    using UnregisterRequest = qx_zam_connector_ZamDataNotifier_Unregister_req;
    using UnregisterResponse = qx_zam_connector_ZamDataNotifier_Unregister_rsp;

    static constexpr auto kWait = &qx_zam_connector_ZamDataNotifier_ops::GetChangedDataType;
    static constexpr char kSourceFile[] = "zam_data_provider";
    static constexpr char kRegisterTransport[] =
        "ZamDataProvider: ipc call Register terminated with a error {}";
    static constexpr char kRegisterRefused[] =
        "ZamDataProvider: ipc call Register terminated with a notification error {}";
    /// One level below every other failure: the caller retries.
    static constexpr int kWaitTransportLevel = zor::logger::kLevelWarning;
    static constexpr char kWaitTransport[] =
        "ZamDataProvider: ipc call GetChangedDataType terminated with a error {}";
    static constexpr char kWaitRefused[] =
        "ZamDataProvider: ipc call GetChangedDataType terminated with a notification error {}";
    static constexpr char kUnregisterTransport[] =
        "ZamDataProvider: ipc call Unregister terminated with a error {}";
};

/// Gives the kinds of changed data.
using ZamDataProvider = NotifierProvider<ZamDataNotifier>;

}  // namespace zam_connector::proxy
