#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "qel/export.h"
#include "qx/zam_types.h"
#include "zam_connector/zam_connection_parameters.h"
#include "zam_connector/zam_connector_settings.h"
#include "zam_connector/zam_connector_state.h"

/// Conversions of the connection records to and from their IDL forms. Thread-safe as long as
/// nobody else uses the arena.

namespace zam_connector::common {

/// Puts the texts into `arena`. Throws `std::length_error` when they do not fit, and
/// `std::out_of_range` for a duration outside 0 to 4294967295 ms.
ZAM_API qx_zam_connector_ZamTypes_ZamConnectionParameters
CastToVd(const ZamConnectionParameters& parameters, vd_arena* arena);

/// Throws `std::out_of_range` for a text outside the arena's bytes in use and for a port above
/// 65535.
ZAM_API ZamConnectionParameters CastFromVd(
    const qx_zam_connector_ZamTypes_ZamConnectionParameters& parameters, const vd_arena* arena);

ZAM_API qx_zam_connector_ZamTypes_ZamConnectorSettings
CastToVd(const ZamConnectorSettings& settings);

ZAM_API ZamConnectorSettings
CastFromVd(const qx_zam_connector_ZamTypes_ZamConnectorSettings& settings);

ZAM_API std::int32_t CastToVd(ZamConnectorState state);

/// Empty when the number is no known state.
ZAM_API std::optional<ZamConnectorState> CastFromVd(int state);

/// Puts a text into `arena`. Throws `std::length_error` when it does not fit.
ZAM_API vd_bytes CastToVd(const std::string& text, vd_arena* arena);

/// Throws `std::out_of_range` when the text lies outside the arena's bytes in use.
ZAM_API std::string CastFromVd(const vd_bytes& text, const vd_arena* arena);

}  // namespace zam_connector::common
