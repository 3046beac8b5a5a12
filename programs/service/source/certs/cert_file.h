#pragma once

#include <functional>
#include <string>

#include "certs/client_cert.h"

namespace zam_service {

/// Gives the text of a file beside the description, which is named without any folder. `isKey`
/// tells that it holds a private key.
using ReadBeside = std::function<std::string(const std::string& name, bool isKey)>;

/// A certificate, and whether its description holds the private key itself.
struct CertFile {
    ClientCert cert;
    bool holdsKey = false;
};

/// Reads a description of a client certificate, the JSON file `name`. Throws `std::runtime_error`
/// and `std::invalid_argument` with what is wrong and where; nothing of a private key stands in it.
CertFile ReadCertFile(const std::string& name, std::string text, const ReadBeside& readBeside);

}  // namespace zam_service
