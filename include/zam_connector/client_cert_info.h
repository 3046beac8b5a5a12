#pragma once

#include <optional>
#include <string>

#include "qor/types/timestamp.h"

namespace zam_connector {

/// Which client certificates to fetch: those that meet all of these. A value type. The texts
/// together take at most 2048 bytes.
struct ClientCertParams {
    std::string subject;  ///< distinguished name as RFC 4514 writes it; UTF-8; empty: any
    std::string issuer;   ///< as `subject`
    /// A time at which the certificate is valid; count 0: any.
    qor::types::Timestamp validAt;
};

inline bool operator==(const ClientCertParams& left, const ClientCertParams& right) {
    return left.subject == right.subject && left.issuer == right.issuer &&
           left.validAt == right.validAt;
}
inline bool operator!=(const ClientCertParams& left, const ClientCertParams& right) {
    return !(left == right);
}

/// A client certificate. A value type.
struct ClientCertInfo {
    std::string name;          ///< what the server knows the certificate by; UTF-8
    std::string subject;       ///< distinguished name as RFC 4514 writes it; UTF-8
    std::string issuer;        ///< as `subject`
    std::string serialNumber;  ///< hexadecimal digits, without prefix
    std::string certificate;   ///< PEM, followed by those of the issuers that the server has
    /// PEM. Absent when the server does not have the key, as when the device made it. A secret:
    /// the library does not log it.
    std::optional<std::string> privateKey;
};

inline bool operator==(const ClientCertInfo& left, const ClientCertInfo& right) {
    return left.name == right.name && left.subject == right.subject &&
           left.issuer == right.issuer && left.serialNumber == right.serialNumber &&
           left.certificate == right.certificate && left.privateKey == right.privateKey;
}
inline bool operator!=(const ClientCertInfo& left, const ClientCertInfo& right) {
    return !(left == right);
}

}  // namespace zam_connector
