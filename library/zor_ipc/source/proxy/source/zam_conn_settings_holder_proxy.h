#pragma once

#include "qx/conn_settings_holder.h"
#include "zam_connector/i_zam_conn_settings_holder.h"

namespace zam_connector::proxy {

/// `IZamConnSettingsHolder` over one endpoint of the connector service. Without state of its own;
/// thread-safe. Its conversions are not guarded: one that throws ends the process.
class ZamConnSettingsHolderProxy final : public IZamConnSettingsHolder {
public:
    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ZamConnSettingsHolderProxy(const qx_zam_connector_ConnSettingsHolder_proxy& proxy);

    int Set(ZamConnectorSettings settings) noexcept override;
    int Get(ZamConnectorSettings& settings) const noexcept override;

private:
    qx_zam_connector_ConnSettingsHolder_proxy proxy_;
};

}  // namespace zam_connector::proxy
