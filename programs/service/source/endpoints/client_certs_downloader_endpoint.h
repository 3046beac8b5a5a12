#pragma once

#include "certs/cert_folder.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Serves ZamClientCertsDownloader: the client certificates that meet what a client asks for, as
/// many of them as one answer has room for.
class ClientCertsDownloaderEndpoint final : public zam_platform::EndpointHandler {
public:
    /// `folder` is not owned and must outlive this object.
    explicit ClientCertsDownloaderEndpoint(const CertFolder& folder) : folder_(folder) {}

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

private:
    const CertFolder& folder_;
};

}  // namespace zam_service
