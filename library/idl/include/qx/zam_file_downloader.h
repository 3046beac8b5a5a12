#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

struct qx_zam_connector_ZamFileDownloader_GetFileInfo_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_FileInfoParams params;
};
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileInfo_req, params, 24);
struct qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_FileInfo info;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp, info, 24);
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp, resultCode, 56);
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp, reserved, 60);

struct qx_zam_connector_ZamFileDownloader_GetFileChunk_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_FileChunkParams params;
};
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileChunk_req, params, 24);
// 64 bytes without a reserved field: 24 of header, 36 of chunk, 4 of code.
struct qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_FileChunk chunk;
    std::int32_t resultCode;
};
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp, chunk, 24);
QX_FIELD(qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp, resultCode, 60);

QX_DECLARE_INTERFACE(ZamFileDownloader, QX_ZAM_FILE_DOWNLOADER_OPERATIONS)
