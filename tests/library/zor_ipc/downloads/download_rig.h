#pragma once

#include <string>
#include <utility>
#include <vector>

#include "common/arena.h"
#include "common/download_casts.h"
#include "library/zor_ipc/data_proxies/data_rig.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_file_downloader_proxy.h"

/// The two downloaders, each with a service that answers what the test enqueues.
namespace zam_connector::test {

inline constexpr std::uint16_t kFileRiid = 0x0F06;
inline constexpr std::uint16_t kCertsRiid = 0x1007;

inline qx_zam_connector_ZamFileDownloader_proxy FileRecord(VdZorTransport* transport) {
    qx_zam_connector_ZamFileDownloader_proxy record{};
    qx_zam_connector_ZamFileDownloader_proxy_init(&record, transport, kFileRiid);
    return record;
}

inline qx_zam_connector_ZamClientCertsDownloader_proxy CertsRecord(VdZorTransport* transport) {
    qx_zam_connector_ZamClientCertsDownloader_proxy record{};
    qx_zam_connector_ZamClientCertsDownloader_proxy_init(&record, transport, kCertsRiid);
    return record;
}

class FileRig : public Rig {
public:
    proxy::ZamFileDownloaderProxy proxy{FileRecord(transport.Get())};
};

class CertsRig : public Rig {
public:
    proxy::ZamClientCertsDownloaderProxy proxy{CertsRecord(transport.Get())};
};

inline std::string FileLine(const std::string& function, const std::string& text) {
    return "4 zam_file_downloader_proxy " + function + ": " + text;
}

inline std::string CertsLine(const std::string& text) {
    return "4 zam_client_certs_downloader_proxy GetClientCertificates: " + text;
}

inline std::vector<std::byte> DataOf(std::string_view text) {
    const auto* const bytes = reinterpret_cast<const std::byte*>(text.data());
    return {bytes, bytes + text.size()};
}

inline FileInfo SomeInfo() {
    FileInfo info;
    info.sha256 = std::string(64, 'a');
    info.sizeBytes = 0x8182'8384'8586'8788;
    info.modificationTime = qor::types::Timestamp(-2);
    info.chunkSizeBytes = 65536;
    return info;
}

inline FileChunk SomeChunk() {
    FileChunk chunk;
    chunk.crc32 = 0xCBF4'3926;
    chunk.version = "v1";
    chunk.offset = 0x0102'0304'0506'0708;
    chunk.totalSizeBytes = 0xF1F2'F3F4'F5F6'F7F8;
    chunk.data = DataOf("123456789");
    return chunk;
}

inline std::vector<ClientCertInfo> SomeCertificates() {
    ClientCertInfo withKey;
    withKey.name = "n";
    withKey.subject = "CN=s";
    withKey.issuer = "CN=i";
    withKey.serialNumber = "0F";
    withKey.certificate = "PEM";
    withKey.privateKey = "KEY";
    ClientCertInfo withoutKey = withKey;
    withoutKey.name = "other";
    withoutKey.privateKey.reset();
    return {withKey, withoutKey};
}

/// The answer that carries a record, which `place(response, idlRecord)` puts into its place.
template <typename Response, typename Record, typename Place>
testing::ScriptedAnswer AnswerOf(const Record& record, int code, int status, Place&& place) {
    common::HeapArena arena(338'280);
    Response response{};
    place(response, common::CastToVd(record, arena.Get()));
    response.resultCode = code;
    return testing::AnswerWith(
        response, {reinterpret_cast<const char*>(arena.Get()->base), arena.Get()->used}, status);
}

inline testing::ScriptedAnswer InfoAnswer(const FileInfo& info, int code = 0, int status = 0) {
    using Response = qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp;
    return AnswerOf<Response>(
        info, code, status, [](Response& response, const auto& record) { response.info = record; });
}

inline testing::ScriptedAnswer ChunkAnswer(const FileChunk& chunk, int code = 0, int status = 0) {
    using Response = qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp;
    return AnswerOf<Response>(chunk, code, status, [](Response& response, const auto& record) {
        response.chunk = record;
    });
}

inline testing::ScriptedAnswer CertsAnswer(const std::vector<ClientCertInfo>& certificates,
                                           int code = 0, int status = 0) {
    using Response = qx_zam_connector_ZamClientCertsDownloader_GetClientCertificates_rsp;
    return AnswerOf<Response>(
        certificates, code, status,
        [](Response& response, const auto& record) { response.certificates = record; });
}

}  // namespace zam_connector::test
