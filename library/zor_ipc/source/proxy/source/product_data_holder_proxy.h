#pragma once

#include <vector>

#include "common/raw_zam_param.h"
#include "qx/product_data_holder.h"
#include "zam_connector/i_product_data_holder.h"

namespace zam_connector::proxy {

/// `IProductDataHolder` over one endpoint of the connector service. Without state of its own:
/// every channel lives within one call. Thread-safe.
class ProductDataHolderProxy final : public IProductDataHolder {
public:
    using RawIterator = std::vector<common::RawZamParam>::iterator;

    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ProductDataHolderProxy(const qx_zam_connector_ProductDataHolder_proxy& proxy);

    int SetAppInfo(const AppInfo& info) noexcept override;
    int SetAppInfoDynamic(const DynamicAppInfo& info) noexcept override;
    int SetAppEulas(const std::vector<AppEula>& eulas, unsigned long& hash) noexcept override;
    int SetAppUpdates(const AppUpdates& updates, unsigned long& hash) noexcept override;
    int SetSettings(const ZamProductSettings& settings, unsigned long& hash) noexcept override;

    /// `channel` is written on success (0) only.
    int OpenAppEulasChannel(long& channel);
    int OpenAppUpdatesChannel(long& channel);

    /// Returns the service's result for what was sent; `hash` is written when the call itself
    /// succeeded, whatever that result is.
    int CloseChannel(long channel, unsigned long& hash);

    /// Flattens a tree and sends it over an open channel, in pieces of at most 10 records and
    /// 675999 bytes of values and paths. A none tree sends nothing. A single record above that size
    /// is sent as empty pieces for as long as the service takes them. Throws for want of memory.
    int SendZamParams(long channel, const zuv::TValue& tree);

    /// Sends one piece; the records are left moved-from. The arena must be empty. Throws
    /// `qel::CheckFailedException` when `arena` is null.
    int SendRawZamParams(long channel, vd_arena* arena, RawIterator first, RawIterator last);

private:
    int OpenSetSettingsChannel(long& channel);
    int AbandonChannel(long channel, unsigned long& hash);
    int CallCloseChannel(long channel, unsigned long& hash);
    template <typename MakeTree>
    int Transfer(const char* function, int (ProductDataHolderProxy::*open)(long&),
                 const MakeTree& makeTree, unsigned long& hash) noexcept;

    qx_zam_connector_ProductDataHolder_proxy proxy_;
};

}  // namespace zam_connector::proxy
