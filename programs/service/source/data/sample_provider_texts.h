#pragma once

#include <string_view>

/// The files of the sample that stand for what a management server has delivered.

namespace zam_service::sample {

inline constexpr std::string_view kPolicy =
    R"(// The policy, as typed JSON: a whole number is the 64-bit kind, {"$int32": 5} and the like stand
// for the others. A key is not empty, does not begin with a digit and holds none of / \ " ' ` %
{
    "update": {
        "allowed": true,
        "window": {"from_hour": {"$uint8": 2}, "to_hour": {"$uint8": 5}},
        "channels": ["stable", "security"]
    },
    "diagnostics": {"level": {"$int32": 1}, "sample_rate": 0.25},
    "valid_until": {"$time": 1893456000},
    "signature": {"$blob": "AAECAwQFBgc="},
    "comment": null
}
)";

inline constexpr std::string_view kProductSettings =
    R"(// The settings that the server set for the product, as typed JSON.
{
    "network": {"port": {"$uint16": 8443}, "host": "gate.example"},
    "log_level": {"$int32": 2},
    "retry_delays_s": [1, 5, 30]
}
)";

inline constexpr std::string_view kSubscriptions =
    R"(// The events that the server wants to hear of, by their types.
{
    "events": {
        // At least warnings, at once.
        "door": {"min_severity": 2, "max_delay_s": 0},
        // Everything, up to an hour late.
        "usage": {"min_severity": 0, "max_delay_s": 3600}
    }
}
)";

inline constexpr std::string_view kServerData =
    R"(// What the management server tells about itself.
{
    "version_major": 14,
    "version_minor": 2,
    "clock_offset_s": 0,            // what to add to the device's clock to get the server's
    "device_status": "managed",     // unmanaged, managed, quarantined
    "offers_files": true,
    "wants_diagnostics": false,
    "requires_client_cert": false,

    // Result codes that come with the policy and with the product settings. With a failure, as in
    // "0x80000045", the client gets the data all the same.
    "policy_result": 0,
    "settings_result": 0
}
)";

inline constexpr std::string_view kUpdatesStatus =
    R"(// What the server decided about updates: lists of identifiers of 32 hexadecimal digits.
{
    "approved": ["00112233445566778899aabbccddeeff"],   // may be installed
    "declined": ["0123456789abcdef0123456789abcdef"],   // must not be installed
    "revoked": []                                       // must be taken off where installed
}
)";

/// Self-signed, and nobody has its key.
inline constexpr std::string_view kReserveCert =
    R"(-----BEGIN CERTIFICATE-----
MIIBhzCCAS2gAwIBAgIBATAKBggqhkjOPQQDAjAyMQ8wDQYDVQQKDAZTYW1wbGUx
HzAdBgNVBAMMFnJlc2VydmUuc2VydmVyLmV4YW1wbGUwIBcNMjAwMTAxMDAwMDAw
WhgPMjEyMDAxMDEwMDAwMDBaMDIxDzANBgNVBAoMBlNhbXBsZTEfMB0GA1UEAwwW
cmVzZXJ2ZS5zZXJ2ZXIuZXhhbXBsZTBZMBMGByqGSM49AgEGCCqGSM49AwEHA0IA
BP6tFeP8wuux8YwaWJnEfDUHpCTVXyvGT38gGleTSzaqMgnn73WUdXOtKPfYC4qI
ISJLicksUgk3XtNyDZFSbgCjMjAwMA8GA1UdEwEB/wQFMAMBAf8wHQYDVR0OBBYE
FD8t++yXLaO14hokAsgiMH8HETAWMAoGCCqGSM49BAMCA0gAMEUCIG0jyf++IO1n
Kv5uoFE3hLwQSv3hbLkDjpeu7DqNTyI2AiEAuXHi6N1BmeUAOUwE4Fi2pUmnzoD/
QqdICCU0hv5nmRw=
-----END CERTIFICATE-----
)";

}  // namespace zam_service::sample
