#include "zam_client_certs_downloader_proxy.h"

#include "common/arena.h"
#include "common/check_vd_proxy.h"
#include "common/download_casts.h"
#include "common/log.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_client_certs_downloader_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};

/// Bytes of the answer's buffer; its last 8 lie behind the arena and stay zero.
constexpr std::uint32_t kResponseBufferBytes = 338'288;
static_assert(kResponseBufferBytes ==
              qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_response_arena + 8);

}  // namespace

ZamClientCertsDownloaderProxy::ZamClientCertsDownloaderProxy(
    const qx_zam_connector_ZamClientCertsDownloader_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ZamClientCertsDownloaderProxy::GetClientCertificates(
    const ClientCertParams& params, std::vector<ClientCertInfo>& certs) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "GetClientCertificates");
    try {
        common::StackArena<
            qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_request_arena>
            requestArena;
        qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_req request{};
        request.params = common::CastToVd(params, requestArena.Get());
        common::HeapArena buffer(kResponseBufferBytes);
        vd_arena* const responseArena = buffer.Get();
        responseArena->capacity =
            qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_response_arena;
        qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp response{};
        const int status = proxy_.ops->GetClientCertificates(&proxy_, &request, requestArena.Get(),
                                                             &response, responseArena);
        if (status != 0) {
            return common::Failure(site,
                                   "ZamClientCertsDownloader: ipc call GetClientCertificates "
                                   "terminated with a error {}",
                                   status);
        }
        certs = common::CastFromVd(response.certificates, responseArena);
        return response.resultCode;
    } catch (...) {
        return common::CaughtCodeFailure(site,
                                         "ZamClientCertsDownloader::GetClientCertificates: {}:{}");
    }
}

}  // namespace zam_connector::proxy
