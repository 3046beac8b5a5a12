#pragma once

#include <memory>
#include <string>

#include "qel/export.h"
#include "zam_connector/i_zam_connector.h"
#include "zam_connector/i_zam_file_downloader.h"

namespace zam_connector {

/// What a connector is made with. Nothing of it is read today; applications fill it so that a
/// service can tell them apart one day.
struct ZamConnCreateParameters {
    std::string applicationName;  ///< for people, UTF-8
};

/// Connects to the connector service and the file-downloader service and makes a connector, which
/// is assigned on success only. Starts no thread. Blocks until the services are there to be asked
/// or are known not to be.
///
/// Returns 0 on success; 0x8000004B, logged, when a service or one of its endpoints is not there.
/// Callers must look at `connector` as well as at the code: when the platform hands out a transport
/// that is no good, the failure is logged, and the code is 0 with nothing assigned.
///
/// Thread-safe; every call makes a connector of its own.
ZAM_API int CreateZamConnector(std::shared_ptr<IZamConnector>& connector,
                               const ZamConnCreateParameters& params) noexcept;

/// Makes a file downloader alone, over the service of that name; the empty name stands for the
/// file-downloader service. As `CreateZamConnector` otherwise, but the downloader owns what it
/// talks through, and over a transport that is no good it is made all the same: its calls fail
/// then.
ZAM_API int CreateZamFileDownloader(const std::string& serviceName,
                                    std::shared_ptr<IZamFileDownloader>& downloader) noexcept;

}  // namespace zam_connector
