#pragma once

#include <vector>

#include "common/raw_zam_pieces.h"
#include "ipc_transfer_call.h"
#include "qx/zam_data_provider.h"
#include "zam_connector/i_zam_data_provider.h"
#include "zam_connector/zam_id.h"

namespace zam_connector::proxy {

/// `IZamDataProvider` over one endpoint of the connector service. Without state of its own: every
/// channel lives within one call. Thread-safe.
class ZamDataProviderProxy final : public IZamDataProvider {
public:
    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ZamDataProviderProxy(const qx_zam_connector_ZamDataProvider_proxy& proxy);

    int GetPolicy(std::pair<unsigned long, ZamPolicy>& policy) noexcept override;
    int GetProductSettings(
        std::pair<unsigned long, ZamProductSettings>& settings) noexcept override;
    int GetSubscriptions(
        std::pair<unsigned long, ZamSubscriptions>& subscriptions) noexcept override;
    int GetZamServerData(ZamServerData& serverData) noexcept override;
    int GetZamReserveCert(std::string& cert) noexcept override;
    int GetZamUpdatesStatus(std::pair<unsigned long, ZamUpdatesStatus>& status) noexcept override;
    int GetZamUpdatesStatusHash(unsigned long& hash) noexcept override;
    int GetPolicyHash(unsigned long& hash) noexcept override;
    int GetSettingsHash(unsigned long& hash) noexcept override;
    int GetSubscriptionHash(unsigned long& hash) noexcept override;
    int GetSyncedSettingsHash(unsigned long& hash) noexcept override;

    /// Pulls the raw parameters of an open channel, which stays open, until the service marks the
    /// last piece, asks for hash and result, and rebuilds the tree. All three are written on
    /// success (0) only. Throws for want of memory.
    int GetDataFromChannel(long channel, zuv::TValue& tree, unsigned long& hash, int& result);

    /// Both are written on success (0) only.
    int OpenZamUpdatesStatusChannel(long& channel, unsigned long& hash) noexcept;
    int CloseZamUpdatesStatusChannel(long channel) noexcept;

    /// Pulls one list of identifiers. Throws `qel::ResultCodeException` with the code when the
    /// transfer fails, and what the conversion throws; `list` is then unchanged.
    void GetZamUpdatesStatus(long channel, unsigned int kind, std::vector<ZamId>& list);

private:
    using OpenOperation = IdlOperation<qx_zam_connector_ZamDataProvider_proxy, qx::EmptyRequest,
                                       qx::OpenChannelResponse>;

    int PullTree(const char* function, const char* openName, OpenOperation open, zuv::TValue& tree,
                 unsigned long& hash) noexcept;
    int GetDataPieces(long channel, common::RawZamPieces& list);
    int CloseChannel(long channel);

    qx_zam_connector_ZamDataProvider_proxy proxy_;
};

}  // namespace zam_connector::proxy
