#pragma once

#include "zam_connector/zam_connector_settings.h"

namespace zam_connector {

/// Writes and reads the connector's settings.
///
/// Every operation blocks until the service has answered or cannot be reached, returns a result
/// code (`zam_connector/result_code.h`) and never throws. Thread-safe: any number of threads may
/// call at once.
class IZamConnSettingsHolder {
public:
    virtual ~IZamConnSettingsHolder() = default;

    /// Replaces all settings. 0x8000004B when the service could not be reached; otherwise what the
    /// service answers.
    virtual int Set(ZamConnectorSettings settings) noexcept = 0;

    /// Stores the settings in `settings`. 0x8000004B, with `settings` unchanged, when the service
    /// could not be reached; otherwise `settings` is written whole and what the service answers is
    /// returned, also when that is a failure.
    virtual int Get(ZamConnectorSettings& settings) const noexcept = 0;
};

}  // namespace zam_connector
