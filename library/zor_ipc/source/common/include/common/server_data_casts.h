#pragma once

#include <utility>
#include <vector>

#include "qel/export.h"
#include "qx/zam_types.h"
#include "zam_connector/zam_id.h"
#include "zam_connector/zam_server_data.h"
#include "zam_connector/zam_subscriptions.h"

/// Conversions of what the management server delivers to and from its IDL forms. Thread-safe as
/// long as nobody else uses the arena.

namespace zam_connector::common {

/// Puts the subscriptions into `arena`. Throws `std::length_error` when they do not fit.
ZAM_API qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash
CastToVd(const std::pair<unsigned long, ZamSubscriptions>& subscriptions, vd_arena* arena);

/// Throws `std::out_of_range` for a stretch outside the arena's bytes in use, and
/// `std::invalid_argument` for sequences of different lengths and for an event type that comes
/// twice.
ZAM_API std::pair<unsigned long, ZamSubscriptions> CastFromVd(
    const qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash& subscriptions, const vd_arena* arena);

/// Throws `std::out_of_range` for a device status that is no enumerator.
ZAM_API qx_zam_connector_ZamTypes_ZamServerData CastToVd(const ZamServerData& serverData);

/// Throws `std::out_of_range` for an unknown device status.
ZAM_API ZamServerData CastFromVd(const qx_zam_connector_ZamTypes_ZamServerData& serverData);

/// Puts the identifiers into `arena`. Throws `std::length_error` when they do not fit.
ZAM_API qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer
CastToVd(const std::vector<ZamId>& identifiers, vd_arena* arena);

/// Throws `std::out_of_range` for a stretch outside the arena's bytes in use, and
/// `std::invalid_argument` for one that is no whole number of identifiers.
ZAM_API std::vector<ZamId> CastFromVd(
    const qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer& identifiers,
    const vd_arena* arena);

}  // namespace zam_connector::common
