#pragma once

#include "qel/exception.h"
#include "vd/service_locator.h"

namespace zam_connector::common {

/// Lines that a failed check of an IDL proxy record is recorded with.
struct ProxyCheckLines {
    int transport;   ///< the transport is null
    int riid;        ///< the interface id is 0xFFFF
    int operations;  ///< the operation table is null
};

/// Checks an IDL proxy record before a class keeps it; the first failing check, in the order
/// transport, interface id, operation table, throws `qel::InvalidArgumentException` with code 0,
/// the given file and the check's line.
template <typename IdlProxy>
void CheckProxyRecord(const IdlProxy& proxy, const char* file, const ProxyCheckLines& lines) {
    if (proxy.transport == nullptr) {
        throw qel::InvalidArgumentException().At(file, lines.transport);
    }
    if (proxy.riid == VD_UNKNOWN_RIID) {
        throw qel::InvalidArgumentException().At(file, lines.riid);
    }
    if (proxy.ops == nullptr) {
        throw qel::InvalidArgumentException().At(file, lines.operations);
    }
}

/// `CheckProxyRecord` with the place of this check itself; used by the notifier providers. The
/// request proxies record their own places.
template <typename IdlProxy>
void CheckVdProxy(const IdlProxy& proxy) {
    constexpr ProxyCheckLines kLines{.transport = 15, .riid = 16, .operations = 17};
    CheckProxyRecord(proxy, "check_vd_proxy", kLines);
}

}  // namespace zam_connector::common
