#pragma once

#include <string_view>

/// The files of the sample that clients download.

namespace zam_service::sample {

inline constexpr std::string_view kReadme =
    R"(Everything in this folder can be downloaded, by the path that it has here: "readme.txt".
Sub-folders are fine, symbolic links are not followed. A change shows in every chunk.
)";

inline constexpr std::string_view kClientCert =
    R"(// A client certificate. Every file *.json in this folder describes one.
{
    "name": "sample",                    // what clients see; otherwise the file's name

    // PEM, with those of the issuers behind it; or "certificate": the PEM itself, with \n.
    "certificate_file": "sample.pem"

    // The private key, PEM without a pass phrase; or "private_key". Nobody else should be able to
    // read it (chmod 600). The key of the sample is not there.
    // , "private_key_file": "sample.key"
}
)";

/// Self-signed, and nobody has its key.
inline constexpr std::string_view kClientCertPem =
    R"(-----BEGIN CERTIFICATE-----
MIIBPTCB5AIBAjAKBggqhkjOPQQDAjAqMQ8wDQYDVQQKDAZTYW1wbGUxFzAVBgNV
BAMMDmRldmljZS5leGFtcGxlMCAXDTIwMDEwMTAwMDAwMFoYDzIxMjAwMTAxMDAw
MDAwWjAqMQ8wDQYDVQQKDAZTYW1wbGUxFzAVBgNVBAMMDmRldmljZS5leGFtcGxl
MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEb6GliQGbuej7oE2A7KBD0hvV/egB
6pQtzsqT099iVMTiPf1RkGK7plR7DaC11v8R+TMXoBElk9eGu7FcrHUZCzAKBggq
hkjOPQQDAgNIADBFAiEAyi6XeXHczk5CnEEshZFC3P8+CezBZwE3AU5hnw8xUfsC
IEuikadnJO6qMWFJnOxm8PJ0WfUYs3w6JnGoCJNV4Rrz
-----END CERTIFICATE-----
)";

}  // namespace zam_service::sample
