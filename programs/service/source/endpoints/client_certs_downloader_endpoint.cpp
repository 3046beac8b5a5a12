#include "endpoints/client_certs_downloader_endpoint.h"

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "certs/wipe.h"
#include "common/arena.h"
#include "common/download_casts.h"
#include "common/log.h"
#include "qx/zam_client_certs_downloader.h"
#include "result_codes.h"

namespace zam_service {
namespace {

using zam_connector::ClientCertInfo;
using zam_connector::ClientCertParams;

constexpr char kSourceFile[] = "client_certs_downloader_endpoint";

constexpr std::size_t kAnswerBytes =
    qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_response_arena;

/// Elements are aligned behind the texts.
constexpr std::size_t kAlignmentBytes = alignof(qx_zam_connector_ZamTypes_ClientCertInfo) - 1;

std::size_t BytesOf(const ClientCertInfo& cert) {
    return cert.name.size() + cert.subject.size() + cert.issuer.size() + cert.serialNumber.size() +
           cert.certificate.size() + (cert.privateKey ? cert.privateKey->size() : 0) +
           sizeof(qx_zam_connector_ZamTypes_ClientCertInfo);
}

struct Selection {
    ~Selection() {
        for (ClientCertInfo& cert : certs) {
            Wipe(cert.privateKey);
        }
    }

    std::vector<ClientCertInfo> certs;
    int code = kNoError;
};

Selection Select(const CertFolder& folder, const ClientCertParams& params) {
    Selection selection;
    std::size_t bytes = kAlignmentBytes;
    for (const auto& [file, cert] : folder.Certs()) {
        if (!Meets(cert, params)) {
            continue;
        }
        bytes += BytesOf(cert.info);
        if (bytes > kAnswerBytes) {
            zam_connector::common::Log(
                zor::logger::kLevelError, zam_connector::common::Here(kSourceFile, "Select"),
                "{} and what follows do not fit into the {} bytes of an answer", file,
                kAnswerBytes);
            selection.code = kBufferTooSmall;
            break;
        }
        selection.certs.push_back(cert.info);
    }
    return selection;
}

}  // namespace

void ClientCertsDownloaderEndpoint::OnCall(const zam_platform::Request& request,
                                           zam_platform::Responder responder) {
    const auto& message =
        request.As<qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_req>();
    qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp response{};
    zam_connector::common::HeapArena arena(kAnswerBytes);
    try {
        const Selection selection =
            Select(folder_, zam_connector::common::CastFromVd(message.params, &request.arena));
        response.certificates = zam_connector::common::CastToVd(selection.certs, arena.Get());
        response.resultCode = selection.code;
    } catch (const std::out_of_range& error) {
        zam_connector::common::Log(zor::logger::kLevelError,
                                   zam_connector::common::Here(kSourceFile, "OnCall"), "{}",
                                   error.what());
        response.resultCode = kInvalidArgument;
    }
    responder.Answer(response, arena.Get()->base, arena.Get()->used);
    Wipe(arena.Get()->base, arena.Get()->used);
}

}  // namespace zam_service
