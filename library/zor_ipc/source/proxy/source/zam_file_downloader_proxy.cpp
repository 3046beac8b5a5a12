#include "zam_file_downloader_proxy.h"

#include <utility>

#include "common/arena.h"
#include "common/check_vd_proxy.h"
#include "common/download_casts.h"
#include "common/log.h"
#include "proxy_init.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_file_downloader_proxy";
constexpr common::ProxyCheckLines kCheckLines{.transport = 20, .riid = 21, .operations = 22};
constexpr int kOwnedTransportLine = 26;

}  // namespace

ZamFileDownloaderProxy::ZamFileDownloaderProxy(std::unique_ptr<VdZorTransport> transport,
                                               unsigned int handle, const std::string& endpointName)
    : transport_(std::move(transport)) {
    if (transport_ == nullptr) {
        throw qel::InvalidArgumentException().At(kSourceFile, kOwnedTransportLine);
    }
    qx_zam_connector_ZamFileDownloader_proxy_init(&proxy_, transport_.get(),
                                                  init::GetEndpointRiid(handle, endpointName));
}

ZamFileDownloaderProxy::ZamFileDownloaderProxy(
    const qx_zam_connector_ZamFileDownloader_proxy& proxy)
    : proxy_(proxy) {
    common::CheckProxyRecord(proxy_, kSourceFile, kCheckLines);
}

int ZamFileDownloaderProxy::GetFileInfo(FileInfoParams params, FileInfo& info) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "GetFileInfo");
    try {
        common::StackArena<qx_zam_connector_ZamFileDownloader_GetFileInfo_request_arena>
            requestArena;
        qx_zam_connector_ZamFileDownloader_GetFileInfo_req request{};
        request.params = common::CastToVd(params, requestArena.Get());
        common::StackArena<qx_zam_connector_ZamFileDownloader_GetFileInfo_response_arena>
            responseArena;
        qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp response{};
        const int status = proxy_.ops->GetFileInfo(&proxy_, &request, requestArena.Get(), &response,
                                                   responseArena.Get());
        if (status != 0) {
            return common::Failure(
                site, "ZamFileDownloader: ipc call GetFileInfo terminated with a error {}", status);
        }
        info = common::CastFromVd(response.info, responseArena.Get());
        return response.resultCode;
    } catch (...) {
        return common::CaughtCodeFailure(site, "ZamFileDownloader::GetFileInfo: {}:{}");
    }
}

int ZamFileDownloaderProxy::GetFileChunk(FileChunkParams params, FileChunk& chunk) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "GetFileChunk");
    try {
        common::StackArena<qx_zam_connector_ZamFileDownloader_GetFileChunk_request_arena>
            requestArena;
        qx_zam_connector_ZamFileDownloader_GetFileChunk_req request{};
        request.params = common::CastToVd(params, requestArena.Get());
        common::StackArena<qx_zam_connector_ZamFileDownloader_GetFileChunk_response_arena>
            responseArena;
        qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp response{};
        const int status = proxy_.ops->GetFileChunk(&proxy_, &request, requestArena.Get(),
                                                    &response, responseArena.Get());
        if (status != 0) {
            return common::Failure(
                site, "ZamFileDownloader: ipc call GetFileChunk terminated with a error {}",
                status);
        }
        chunk = common::CastFromVd(response.chunk, responseArena.Get());
        return response.resultCode;
    } catch (...) {
        return common::CaughtCodeFailure(site, "ZamFileDownloader::GetFileChunk: {}:{}");
    }
}

}  // namespace zam_connector::proxy
