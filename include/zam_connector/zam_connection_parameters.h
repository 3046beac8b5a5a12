#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zam_connector {

/// How to reach the management server. A value type: copies are independent, and a constant one
/// may be read from several threads.
///
/// The four texts together take at most 1360 bytes; more makes `IZamConnController::Start` fail.
/// Durations are carried as whole milliseconds from 0 to 4294967295; 0 leaves the choice to the
/// service.
struct ZamConnectionParameters {
    std::string serverAddress;     ///< host name or address of the management server; UTF-8
    std::uint16_t serverPort = 0;  ///< TCP port, 1 to 65535; 0 is refused by the service
    std::string productName;       ///< what the device is registered as; UTF-8
    std::string deviceName;        ///< name that the server shows for this device; UTF-8
    /// Proxy on the way to the server, `http://[user:password@]host:port`; empty for none. The
    /// service keeps credentials out of everything it writes.
    std::string proxyUrl;
    std::chrono::milliseconds connectTimeout{0};   ///< for one attempt to connect
    std::chrono::milliseconds requestTimeout{0};   ///< for one request to the server
    std::chrono::milliseconds keepAlivePeriod{0};  ///< between two signs of life on an idle link
};

}  // namespace zam_connector
