#pragma once

#include "data/settings_store.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Serves ConnSettingsHolder: writes and reads the connector's settings.
class ConnSettingsHolderEndpoint final : public zam_platform::EndpointHandler {
public:
    /// `settings` is not owned and must outlive this object.
    explicit ConnSettingsHolderEndpoint(SettingsStore& settings) : settings_(settings) {}

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

private:
    SettingsStore& settings_;
};

}  // namespace zam_service
