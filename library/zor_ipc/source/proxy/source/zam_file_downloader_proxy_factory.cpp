#include "zam_file_downloader_proxy_factory.h"

#include <cstdint>

#include "call_scope.h"
#include "connect_transport.h"
#include "entry_failure.h"
#include "proxy_init.h"
#include "qx/endpoint_names.h"
#include "zam_connector/create_zam_connector.h"

namespace zam_connector::proxy {

std::unique_ptr<ZamFileDownloaderProxy> ZamFileDownloaderProxyFactory::CreateZamFileDownloaderProxy(
    const std::string& serviceName) {
    const std::uint32_t handle = init::ConnectIpcService(serviceName);
    return std::make_unique<ZamFileDownloaderProxy>(ConnectTransport(handle), handle,
                                                    qx::kFileDownloaderEndpoint);
}

}  // namespace zam_connector::proxy

namespace zam_connector {

int CreateZamFileDownloader(const std::string& serviceName,
                            std::shared_ptr<IZamFileDownloader>& downloader) noexcept {
    *VdZorTransport_LastStatus() = 0;
    proxy::ReadDefaultTimeout();
    const proxy::SetUpScope scope;
    try {
        proxy::ZamFileDownloaderProxyFactory factory;
        downloader = factory.CreateZamFileDownloaderProxy(
            serviceName.empty() ? qx::kFileDownloaderService : serviceName);
        return qel::kNoError;
    } catch (...) {
        return proxy::EntryFailure(
            {"zam_file_downloader_proxy_factory", 43, "CreateZamFileDownloader"});
    }
}

}  // namespace zam_connector
