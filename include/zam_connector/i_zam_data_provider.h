#pragma once

#include <string>
#include <utility>

#include "zam_connector/zam_policy.h"
#include "zam_connector/zam_product_settings.h"
#include "zam_connector/zam_server_data.h"
#include "zam_connector/zam_subscriptions.h"
#include "zam_connector/zam_updates_status.h"

namespace zam_connector {

/// Reads what the connector service holds from the management server, and the hash of each piece
/// of it: a 64-bit version stamp, equal as long as the data is equal, by which a caller tells
/// cheaply whether its copy is stale. 0 means that the service holds no such data.
///
/// Every operation blocks until the service has answered or cannot be reached, returns a result
/// code (`zam_connector/result_code.h`) and never throws. Thread-safe: any number of threads may
/// call at once. Policy, product settings and updates status take several round trips; a service
/// that never marks the last piece holds the call for ever.
///
/// 0x8000004B stands for a service that could not be reached and for an answer that could not be
/// read; 0x80000046 and 0x80000071 also for a transfer that the service broke off, but for the
/// lists of the updates status, where that is 0x8000004B.
class IZamDataProvider {
public:
    virtual ~IZamDataProvider() = default;

    /// The policy and its hash. Both are written once the whole of it has come and been rebuilt
    /// (0x80000046 when it cannot be), and stay written when what the service says at the end is a
    /// failure; otherwise they are unchanged. Returns the service's result for the data.
    virtual int GetPolicy(std::pair<unsigned long, ZamPolicy>& policy) noexcept = 0;

    /// The settings that the server set for the product; as `GetPolicy`.
    virtual int GetProductSettings(
        std::pair<unsigned long, ZamProductSettings>& settings) noexcept = 0;

    /// The event subscriptions and their hash, written whatever code the service answers with.
    virtual int GetSubscriptions(
        std::pair<unsigned long, ZamSubscriptions>& subscriptions) noexcept = 0;

    /// Written whatever code the service answers with.
    virtual int GetZamServerData(ZamServerData& serverData) noexcept = 0;

    /// The reserve certificate as PEM text, at most 16384 bytes. Unchanged when the service's code
    /// is a failure; empty when what it answered cannot be read.
    virtual int GetZamReserveCert(std::string& cert) noexcept = 0;

    /// The three lists of updates and their hash, written all or not at all.
    virtual int GetZamUpdatesStatus(
        std::pair<unsigned long, ZamUpdatesStatus>& status) noexcept = 0;

    /// The hash of the updates status; unchanged when the code is a failure. Returns 0 on success.
    virtual int GetZamUpdatesStatusHash(unsigned long& hash) noexcept = 0;

    /// The four hashes below are written whatever code the service answers with.
    virtual int GetPolicyHash(unsigned long& hash) noexcept = 0;
    virtual int GetSettingsHash(unsigned long& hash) noexcept = 0;
    virtual int GetSubscriptionHash(unsigned long& hash) noexcept = 0;
    /// Of the settings that the server has from the product.
    virtual int GetSyncedSettingsHash(unsigned long& hash) noexcept = 0;
};

}  // namespace zam_connector
