#pragma once

#include <string>

#include "qx/conn_command_sender.h"
#include "zam_connector/i_zam_conn_command_sender.h"

namespace zam_connector::proxy {

/// `IZamConnCommandSender` over one endpoint of the connector service. Without state of its own;
/// thread-safe.
class ZamConnCommandSenderProxy final : public IZamConnCommandSender {
public:
    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record has no transport, no interface id or no
    /// operation table.
    explicit ZamConnCommandSenderProxy(const qx_zam_connector_ConnCommandSender_proxy& proxy);

    int PostZamEvent(std::string event) noexcept override;
    int ScheduleSync() noexcept override;

private:
    qx_zam_connector_ConnCommandSender_proxy proxy_;
};

}  // namespace zam_connector::proxy
