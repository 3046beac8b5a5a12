#include "zam_conn_command_sender_proxy.h"

#include "common/arena.h"
#include "common/check_vd_proxy.h"
#include "common/connection_casts.h"
#include "common/log.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_conn_command_sender_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};

}  // namespace

ZamConnCommandSenderProxy::ZamConnCommandSenderProxy(
    const qx_zam_connector_ConnCommandSender_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ZamConnCommandSenderProxy::PostZamEvent(std::string event) noexcept {
    qx_zam_connector_ConnCommandSender_PostZamEvent_req request{};
    qx_zam_connector_ConnCommandSender_PostZamEvent_rsp response{};
    common::StackArena<qx_zam_connector_ConnCommandSender_PostZamEvent_request_arena> arena;
    try {
        request.event = common::CastToVd(event, arena.Get());
    } catch (...) {
        return common::CaughtFailure(common::Here(kSourceFile, "PostZamEvent"),
                                     "ZamConnCommandSenderProxy: {}");
    }
    const int status = proxy_.ops->PostZamEvent(&proxy_, &request, arena.Get(), &response, nullptr);
    if (status != 0) {
        return common::Failure(
            common::Here(kSourceFile, "PostZamEvent"),
            "ZamConnCommandSenderProxy: ipc call PostZamEvent terminated with a error {}", status);
    }
    return response.resultCode;
}

int ZamConnCommandSenderProxy::ScheduleSync() noexcept {
    qx_zam_connector_ConnCommandSender_ScheduleSync_req request{};
    qx_zam_connector_ConnCommandSender_ScheduleSync_rsp response{};
    const int status = proxy_.ops->ScheduleSync(&proxy_, &request, nullptr, &response, nullptr);
    if (status != 0) {
        return common::Failure(
            common::Here(kSourceFile, "ScheduleSync"),
            "ZamConnCommandSenderProxy: ipc call ScheduleSync terminated with a error {}", status);
    }
    return response.resultCode;
}

}  // namespace zam_connector::proxy
