#pragma once

#include "qx/conn_controller.h"
#include "zam_connector/i_zam_conn_controller.h"

namespace zam_connector::proxy {

/// `IZamConnController` over one endpoint of the connector service. Without state of its own;
/// thread-safe.
class ZamConnControllerProxy final : public IZamConnController {
public:
    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ZamConnControllerProxy(const qx_zam_connector_ConnController_proxy& proxy);

    int Start(const ZamConnectionParameters& parameters) noexcept override;
    int Stop() noexcept override;
    int GetState(ZamConnectorState& state) const noexcept override;

private:
    qx_zam_connector_ConnController_proxy proxy_;
};

}  // namespace zam_connector::proxy
