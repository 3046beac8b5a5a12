#pragma once

#include <vector>

#include "zam_connector/client_cert_info.h"

namespace zam_connector {

/// Fetches client certificates that the management server has for this device.
///
/// Thread-safe: any number of threads may call at once.
class IZamClientCertsDownloader {
public:
    virtual ~IZamClientCertsDownloader() = default;

    /// Replaces the content of `certs` by the certificates that meet `params`, in the service's
    /// order. Blocks until the service has answered or cannot be reached, and never throws.
    ///
    /// 0x8000004B, with `certs` unchanged, stands for parameters that do not fit the message, a
    /// service that could not be reached, an answer that could not be read, and want of memory.
    /// Otherwise `certs` is written and what the service answers is returned, also when that is a
    /// failure.
    virtual int GetClientCertificates(const ClientCertParams& params,
                                      std::vector<ClientCertInfo>& certs) noexcept = 0;
};

}  // namespace zam_connector
