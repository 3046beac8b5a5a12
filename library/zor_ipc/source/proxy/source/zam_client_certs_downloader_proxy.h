#pragma once

#include <vector>

#include "qx/zam_client_certs_downloader.h"
#include "zam_connector/i_zam_client_certs_downloader.h"

namespace zam_connector::proxy {

/// `IZamClientCertsDownloader` over one endpoint of the connector service. Thread-safe.
class ZamClientCertsDownloaderProxy final : public IZamClientCertsDownloader {
public:
    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ZamClientCertsDownloaderProxy(
        const qx_zam_connector_ZamClientCertsDownloader_proxy& proxy);

    int GetClientCertificates(const ClientCertParams& params,
                              std::vector<ClientCertInfo>& certs) noexcept override;

private:
    qx_zam_connector_ZamClientCertsDownloader_proxy proxy_;
};

}  // namespace zam_connector::proxy
