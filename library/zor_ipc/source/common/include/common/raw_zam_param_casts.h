#pragma once

#include <span>
#include <vector>

#include "common/raw_zam_param.h"
#include "qel/export.h"
#include "qx/zam_types.h"

/// Conversions of raw parameter lists to and from a message: a compact stream of bytes in the
/// arena (docs/wire.md). Every list crosses unchanged, value blocks that decode to nothing
/// included. Thread-safe as long as nobody else uses the arena.

namespace zam_connector::common {

/// Puts the records into `arena`. Throws `std::length_error`, with the arena unchanged, when they
/// do not fit, and `std::invalid_argument` when `arena` is null.
///
/// A record that `Serialize` made takes at most one byte less than its value and path together;
/// one with a damaged value block can take up to 7 bytes more.
ZAM_API qx_zam_connector_ZamTypes_ZamParams CastToVd(std::span<const RawZamParam> records,
                                                     vd_arena* arena);

/// Appends the records of a message to `out`. Throws `std::out_of_range` for a stretch outside the
/// arena's bytes in use and `std::invalid_argument` for bytes that `CastToVd` does not write; `out`
/// is as before then.
ZAM_API void AppendFromVd(const qx_zam_connector_ZamTypes_ZamParams& piece, const vd_arena* arena,
                          std::vector<RawZamParam>& out);

/// The records of a message; throws as `AppendFromVd`.
ZAM_API std::vector<RawZamParam> CastFromVd(const qx_zam_connector_ZamTypes_ZamParams& piece,
                                            const vd_arena* arena);

}  // namespace zam_connector::common
