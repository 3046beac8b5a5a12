#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "certs/wipe.h"
#include "zam_connector/client_cert_info.h"

namespace zam_service {

/// A client certificate as it is served, and from when to when it is valid, in seconds since 1970.
/// Its private key is wiped with it.
struct ClientCert {
    ~ClientCert() { Wipe(info.privateKey); }

    zam_connector::ClientCertInfo info;
    std::int64_t notBefore = 0;
    std::int64_t notAfter = 0;
};

/// Reads a certificate, with those of its issuers behind it, and its private key, both PEM. What
/// stands between the PEM blocks is left out. Throws `std::invalid_argument` for what is neither,
/// for a key that needs a pass phrase, and for a key that is not the certificate's; its text holds
/// nothing of either.
ClientCert ReadClientCert(std::string name, std::string_view certificatePem,
                          const std::optional<std::string>& keyPem);

/// Whether a certificate is among those that a client asks for. Names are compared byte by byte.
bool Meets(const ClientCert& cert, const zam_connector::ClientCertParams& params) noexcept;

}  // namespace zam_service
