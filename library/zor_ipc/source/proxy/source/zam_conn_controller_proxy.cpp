#include "zam_conn_controller_proxy.h"

#include <optional>

#include "common/arena.h"
#include "common/check_vd_proxy.h"
#include "common/connection_casts.h"
#include "common/log.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_conn_controller_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};

}  // namespace

ZamConnControllerProxy::ZamConnControllerProxy(const qx_zam_connector_ConnController_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ZamConnControllerProxy::Start(const ZamConnectionParameters& parameters) noexcept {
    qx_zam_connector_ConnController_Start_req request{};
    qx_zam_connector_ConnController_Start_rsp response{};
    common::StackArena<qx_zam_connector_ConnController_Start_request_arena> arena;
    try {
        request.parameters = common::CastToVd(parameters, arena.Get());
    } catch (...) {
        return common::CaughtFailure(common::Here(kSourceFile, "Start"),
                                     "ZamConnControllerProxy: {}");
    }
    const int status = proxy_.ops->Start(&proxy_, &request, arena.Get(), &response, nullptr);
    if (status != 0) {
        return common::Failure(common::Here(kSourceFile, "Start"),
                               "ZamConnControllerProxy: ipc call Start terminated with a error {}",
                               status);
    }
    return response.resultCode;
}

int ZamConnControllerProxy::Stop() noexcept {
    qx_zam_connector_ConnController_Stop_req request{};
    qx_zam_connector_ConnController_Stop_rsp response{};
    const int status = proxy_.ops->Stop(&proxy_, &request, nullptr, &response, nullptr);
    if (status != 0) {
        return common::Failure(common::Here(kSourceFile, "Stop"),
                               "ZamConnControllerProxy: ipc call Stop terminated with a error {}",
                               status);
    }
    return response.resultCode;
}

int ZamConnControllerProxy::GetState(ZamConnectorState& state) const noexcept {
    qx_zam_connector_ConnController_GetState_req request{};
    qx_zam_connector_ConnController_GetState_rsp response{};
    const int status = proxy_.ops->GetState(&proxy_, &request, nullptr, &response, nullptr);
    if (status != 0) {
        return common::Failure(
            common::Here(kSourceFile, "GetState"),
            "ZamConnControllerProxy: ipc call GetState terminated with a error {}", status);
    }
    const std::optional<ZamConnectorState> known = common::CastFromVd(response.state);
    if (!known) {
        return common::Failure(common::Here(kSourceFile, "GetState"),
                               "ZamConnControllerProxy: undefined zam connector state!");
    }
    state = *known;
    return response.resultCode;
}

}  // namespace zam_connector::proxy
