#pragma once

#include <string>
#include <vector>

#include "download_rig.h"

/// The three calls that download something: what each is called and asked, its answer, and what
/// stood before in the place of the result.
namespace zam_connector::test {

struct FileInfoCall {
    using Rig = FileRig;
    using Proxy = proxy::ZamFileDownloaderProxy;
    using Result = FileInfo;

    static constexpr char kClass[] = "ZamFileDownloader";
    static constexpr char kName[] = "GetFileInfo";

    static Result Old() {
        FileInfo info;
        info.sha256 = "old";
        info.sizeBytes = 1;
        return info;
    }
    static Result Some() { return SomeInfo(); }
    static testing::ScriptedAnswer Answer(int code = 0, int status = 0) {
        return InfoAnswer(SomeInfo(), code, status);
    }
    static int Make(Proxy& proxy, Result& result) { return proxy.GetFileInfo({"a"}, result); }
    static std::string Line(const std::string& text) { return FileLine(kName, text); }

    static auto ThrowingOperations() {
        auto ops = qx_zam_connector_ZamFileDownloader_operations;
        ops.GetFileInfo = &ThrowText;
        return ops;
    }
    static auto Record(VdZorTransport* transport) { return FileRecord(transport); }
};

struct FileChunkCall {
    using Rig = FileRig;
    using Proxy = proxy::ZamFileDownloaderProxy;
    using Result = FileChunk;

    static constexpr char kClass[] = "ZamFileDownloader";
    static constexpr char kName[] = "GetFileChunk";

    static FileChunkParams Parameters() { return {"a/b", 0x0102'0304'0506'0708, 0xF1F2'F3F4}; }
    static Result Old() {
        FileChunk chunk;
        chunk.version = "old";
        chunk.data = DataOf("old data");
        return chunk;
    }
    static Result Some() { return SomeChunk(); }
    static testing::ScriptedAnswer Answer(int code = 0, int status = 0) {
        return ChunkAnswer(SomeChunk(), code, status);
    }
    static int Make(Proxy& proxy, Result& result) {
        return proxy.GetFileChunk(Parameters(), result);
    }
    static std::string Line(const std::string& text) { return FileLine(kName, text); }

    static auto ThrowingOperations() {
        auto ops = qx_zam_connector_ZamFileDownloader_operations;
        ops.GetFileChunk = &ThrowText;
        return ops;
    }
    static auto Record(VdZorTransport* transport) { return FileRecord(transport); }
};

struct ClientCertificatesCall {
    using Rig = CertsRig;
    using Proxy = proxy::ZamClientCertsDownloaderProxy;
    using Result = std::vector<ClientCertInfo>;

    static constexpr char kClass[] = "ZamClientCertsDownloader";
    static constexpr char kName[] = "GetClientCertificates";

    static ClientCertParams Parameters() {
        return {"CN=s", "CN=i", qor::types::Timestamp(0x0102'0304'0506'0708)};
    }
    static Result Old() {
        Result certificates(3);
        certificates[0].name = "old";
        return certificates;
    }
    static Result Some() { return SomeCertificates(); }
    static testing::ScriptedAnswer Answer(int code = 0, int status = 0) {
        return CertsAnswer(SomeCertificates(), code, status);
    }
    static int Make(Proxy& proxy, Result& result) {
        return proxy.GetClientCertificates(Parameters(), result);
    }
    static std::string Line(const std::string& text) { return CertsLine(text); }

    static auto ThrowingOperations() {
        auto ops = qx_zam_connector_ZamClientCertsDownloader_operations;
        ops.GetClientCertificates = &ThrowText;
        return ops;
    }
    static auto Record(VdZorTransport* transport) { return CertsRecord(transport); }
};

}  // namespace zam_connector::test
