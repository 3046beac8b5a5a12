#pragma once

#include <cstdint>
#include <string>

namespace zam_service::testing {

/// A self-signed certificate that nobody has seen before, and its key.
struct MadeCert {
    std::string certificate;  ///< PEM
    std::string key;          ///< the same
    std::string lockedKey;    ///< the key under a pass phrase
};

/// `notBefore` and `notAfter` are seconds since 1970.
MadeCert MakeCert(const std::string& commonName, std::int64_t serial = 1,
                  std::int64_t notBefore = 1000, std::int64_t notAfter = 2000);

}  // namespace zam_service::testing
