#pragma once

#include <vector>

#include "qel/export.h"
#include "qx/zam_types.h"
#include "zam_connector/client_cert_info.h"
#include "zam_connector/file_chunk.h"
#include "zam_connector/file_info.h"

/// Conversions of what is downloaded, files and client certificates, to and from its IDL forms.
/// Thread-safe as long as nobody else uses the arena.
///
/// Those to the IDL form put texts and bytes into `arena`, and throw `std::length_error` when they
/// do not fit. Those from it throw `std::out_of_range` for a stretch outside the arena's bytes in
/// use.

namespace zam_connector::common {

ZAM_API qx_zam_connector_ZamTypes_FileInfoParams CastToVd(const FileInfoParams& params,
                                                          vd_arena* arena);
ZAM_API FileInfoParams CastFromVd(const qx_zam_connector_ZamTypes_FileInfoParams& params,
                                  const vd_arena* arena);

ZAM_API qx_zam_connector_ZamTypes_FileInfo CastToVd(const FileInfo& info, vd_arena* arena);
ZAM_API FileInfo CastFromVd(const qx_zam_connector_ZamTypes_FileInfo& info, const vd_arena* arena);

ZAM_API qx_zam_connector_ZamTypes_FileChunkParams CastToVd(const FileChunkParams& params,
                                                           vd_arena* arena);
ZAM_API FileChunkParams CastFromVd(const qx_zam_connector_ZamTypes_FileChunkParams& params,
                                   const vd_arena* arena);

ZAM_API qx_zam_connector_ZamTypes_FileChunk CastToVd(const FileChunk& chunk, vd_arena* arena);
ZAM_API FileChunk CastFromVd(const qx_zam_connector_ZamTypes_FileChunk& chunk,
                             const vd_arena* arena);

ZAM_API qx_zam_connector_ZamTypes_ClientCertParams CastToVd(const ClientCertParams& params,
                                                            vd_arena* arena);
ZAM_API ClientCertParams CastFromVd(const qx_zam_connector_ZamTypes_ClientCertParams& params,
                                    const vd_arena* arena);

ZAM_API qx_zam_connector_ZamTypes_ClientCertsInfo
CastToVd(const std::vector<ClientCertInfo>& certificates, vd_arena* arena);

/// Throws `std::invalid_argument` too: for a sequence that is no whole number of certificates, and
/// for texts that overlap so that together they exceed the arena's bytes in use.
ZAM_API std::vector<ClientCertInfo> CastFromVd(
    const qx_zam_connector_ZamTypes_ClientCertsInfo& certificates, const vd_arena* arena);

}  // namespace zam_connector::common
