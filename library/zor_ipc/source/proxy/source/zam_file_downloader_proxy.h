#pragma once

#include <memory>
#include <string>

#include "qx/zam_file_downloader.h"
#include "zam_connector/i_zam_file_downloader.h"

namespace zam_connector::proxy {

/// `IZamFileDownloader` over one endpoint of the file-downloader service. Thread-safe.
class ZamFileDownloaderProxy final : public IZamFileDownloader {
public:
    /// Looks the endpoint up at the service behind `handle`, which may block, and keeps the
    /// transport. Throws `qel::InvalidArgumentException` when the transport is null, before it asks
    /// the service locator, and `qel::CheckFailedException` when the service has no such endpoint;
    /// the transport is then destroyed.
    ZamFileDownloaderProxy(std::unique_ptr<VdZorTransport> transport, unsigned int handle,
                           const std::string& endpointName);

    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ZamFileDownloaderProxy(const qx_zam_connector_ZamFileDownloader_proxy& proxy);

    int GetFileInfo(FileInfoParams params, FileInfo& info) noexcept override;
    int GetFileChunk(FileChunkParams params, FileChunk& chunk) noexcept override;

private:
    qx_zam_connector_ZamFileDownloader_proxy proxy_{};
    /// What `proxy_` refers to; null when the transport is somebody else's.
    std::unique_ptr<VdZorTransport> transport_;
};

}  // namespace zam_connector::proxy
