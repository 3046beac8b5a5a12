#include "zam_conn_settings_holder_proxy.h"

#include "common/check_vd_proxy.h"
#include "common/connection_casts.h"
#include "common/log.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_conn_settings_holder_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};

}  // namespace

ZamConnSettingsHolderProxy::ZamConnSettingsHolderProxy(
    const qx_zam_connector_ConnSettingsHolder_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ZamConnSettingsHolderProxy::Set(ZamConnectorSettings settings) noexcept {
    qx_zam_connector_ConnSettingsHolder_Set_req request{};
    qx_zam_connector_ConnSettingsHolder_Set_rsp response{};
    request.settings = common::CastToVd(settings);
    const int status = proxy_.ops->Set(&proxy_, &request, nullptr, &response, nullptr);
    if (status != 0) {
        return common::Failure(
            common::Here(kSourceFile, "Set"),
            "Zam_conn_settings_holder proxy: ipc call Set terminated with a error {}", status);
    }
    return response.resultCode;
}

int ZamConnSettingsHolderProxy::Get(ZamConnectorSettings& settings) const noexcept {
    qx_zam_connector_ConnSettingsHolder_Get_req request{};
    qx_zam_connector_ConnSettingsHolder_Get_rsp response{};
    const int status = proxy_.ops->Get(&proxy_, &request, nullptr, &response, nullptr);
    if (status != 0) {
        return common::Failure(
            common::Here(kSourceFile, "Get"),
            "Zam_conn_settings_holder proxy: ipc call Get terminated with a error {}", status);
    }
    settings = common::CastFromVd(response.settings);
    return response.resultCode;
}

}  // namespace zam_connector::proxy
