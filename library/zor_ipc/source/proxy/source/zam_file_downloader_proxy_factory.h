#pragma once

#include <memory>
#include <string>

#include "zam_file_downloader_proxy.h"

namespace zam_connector::proxy {

/// Makes file downloaders that own their transport. Without state; thread-safe.
class ZamFileDownloaderProxyFactory {
public:
    /// Throws `qel::CheckFailedException` when the service or its endpoint is not there.
    std::unique_ptr<ZamFileDownloaderProxy> CreateZamFileDownloaderProxy(
        const std::string& serviceName);
};

}  // namespace zam_connector::proxy
