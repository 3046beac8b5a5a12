#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

struct qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_req {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ClientCertParams params;
};
QX_FIELD(qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_req, params, 24);
struct qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ClientCertsInfo certificates;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp, certificates, 24);
QX_FIELD(qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp, resultCode, 32);
QX_FIELD(qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp, reserved, 36);

QX_DECLARE_INTERFACE(ZamClientCertsDownloader, QX_ZAM_CLIENT_CERTS_DOWNLOADER_OPERATIONS)
