#include "common/download_casts.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/arena.h"

namespace zam_connector::common {
namespace {

using IdlCertificate = qx_zam_connector_ZamTypes_ClientCertInfo;

/// A text that every certificate has, and its place in the IDL form.
struct CertificateText {
    const char* name;
    std::string ClientCertInfo::*text;
    vd_bytes IdlCertificate::*stretch;
};

constexpr std::array kCertificateTexts = std::to_array<CertificateText>({
    {"name", &ClientCertInfo::name, &IdlCertificate::name},
    {"subject", &ClientCertInfo::subject, &IdlCertificate::subject},
    {"issuer", &ClientCertInfo::issuer, &IdlCertificate::issuer},
    {"serialNumber", &ClientCertInfo::serialNumber, &IdlCertificate::serialNumber},
    {"certificate", &ClientCertInfo::certificate, &IdlCertificate::certificate},
});

constexpr char kPrivateKey[] = "privateKey";

IdlCertificate PutCertificate(const ClientCertInfo& certificate, ArenaWriter& writer) {
    IdlCertificate result{};
    for (const CertificateText& field : kCertificateTexts) {
        result.*field.stretch = writer.PutText(certificate.*field.text, field.name);
    }
    if (certificate.privateKey) {
        result.privateKey = writer.PutText(*certificate.privateKey, kPrivateKey);
        result.flags = kQxClientCertHasPrivateKey;
    }
    return result;
}

/// Reads certificates one after the other. No two texts of a sound answer share a byte, so all of
/// them together fit the bytes in use; without this bound an answer of 338280 bytes could describe
/// gigabytes of certificates.
class CertificateReader {
public:
    CertificateReader(const ArenaReader& reader, std::size_t bytesInUse)
        : reader_(reader), bytesLeft_(bytesInUse) {}

    ClientCertInfo Read(const IdlCertificate& certificate) {
        ClientCertInfo result;
        for (const CertificateText& field : kCertificateTexts) {
            result.*field.text = Text(certificate.*field.stretch, field.name);
        }
        if ((certificate.flags & kQxClientCertHasPrivateKey) != 0) {
            result.privateKey = Text(certificate.privateKey, kPrivateKey);
        }
        return result;
    }

private:
    std::string_view Text(vd_bytes stretch, const char* field) {
        const std::string_view text = reader_.Text(stretch, field);
        if (text.size() > bytesLeft_) {
            throw std::invalid_argument(fmt::format("{}: {} bytes, only {} of the arena's are left",
                                                    field, text.size(), bytesLeft_));
        }
        bytesLeft_ -= text.size();
        return text;
    }

    const ArenaReader& reader_;
    std::size_t bytesLeft_;  // of those in use, not yet taken by a text
};

}  // namespace

qx_zam_connector_ZamTypes_FileInfoParams CastToVd(const FileInfoParams& params, vd_arena* arena) {
    return {ArenaWriter(arena).PutText(params.path, "path")};
}

FileInfoParams CastFromVd(const qx_zam_connector_ZamTypes_FileInfoParams& params,
                          const vd_arena* arena) {
    return {std::string(ArenaReader(arena).Text(params.path, "path"))};
}

qx_zam_connector_ZamTypes_FileInfo CastToVd(const FileInfo& info, vd_arena* arena) {
    return {
        .sha256 = ArenaWriter(arena).PutText(info.sha256, "sha256"),
        .sizeBytes = info.sizeBytes,
        .modificationTime = info.modificationTime.Count(),
        .chunkSizeBytes = info.chunkSizeBytes,
    };
}

FileInfo CastFromVd(const qx_zam_connector_ZamTypes_FileInfo& info, const vd_arena* arena) {
    return {
        .sha256 = std::string(ArenaReader(arena).Text(info.sha256, "sha256")),
        .sizeBytes = info.sizeBytes,
        .modificationTime = qor::types::Timestamp(info.modificationTime),
        .chunkSizeBytes = info.chunkSizeBytes,
    };
}

qx_zam_connector_ZamTypes_FileChunkParams CastToVd(const FileChunkParams& params, vd_arena* arena) {
    return {
        .path = ArenaWriter(arena).PutText(params.path, "path"),
        .offset = params.offset,
        .maxSizeBytes = params.maxSizeBytes,
        .reserved = 0,
    };
}

FileChunkParams CastFromVd(const qx_zam_connector_ZamTypes_FileChunkParams& params,
                           const vd_arena* arena) {
    return {
        .path = std::string(ArenaReader(arena).Text(params.path, "path")),
        .offset = params.offset,
        .maxSizeBytes = params.maxSizeBytes,
    };
}

qx_zam_connector_ZamTypes_FileChunk CastToVd(const FileChunk& chunk, vd_arena* arena) {
    ArenaWriter writer(arena);
    qx_zam_connector_ZamTypes_FileChunk result{};
    result.crc32 = chunk.crc32;
    result.version = writer.PutText(chunk.version, "version");
    result.offset.Set(chunk.offset);
    result.totalSizeBytes.Set(chunk.totalSizeBytes);
    result.data = writer.PutSequence(chunk.data, "data");
    return result;
}

FileChunk CastFromVd(const qx_zam_connector_ZamTypes_FileChunk& chunk, const vd_arena* arena) {
    const ArenaReader reader(arena);
    std::string version(reader.Text(chunk.version, "version"));
    // A text's bytes, since a sequence would be filled with zeros first.
    const std::string_view data = reader.Text(chunk.data, "data");
    const auto* const bytes = reinterpret_cast<const std::byte*>(data.data());
    return {
        .crc32 = chunk.crc32,
        .version = std::move(version),
        .offset = chunk.offset.Get(),
        .totalSizeBytes = chunk.totalSizeBytes.Get(),
        .data = {bytes, bytes + data.size()},
    };
}

qx_zam_connector_ZamTypes_ClientCertParams CastToVd(const ClientCertParams& params,
                                                    vd_arena* arena) {
    ArenaWriter writer(arena);
    qx_zam_connector_ZamTypes_ClientCertParams result{};
    result.subject = writer.PutText(params.subject, "subject");
    result.issuer = writer.PutText(params.issuer, "issuer");
    result.validAt = params.validAt.Count();
    return result;
}

ClientCertParams CastFromVd(const qx_zam_connector_ZamTypes_ClientCertParams& params,
                            const vd_arena* arena) {
    const ArenaReader reader(arena);
    return {
        .subject = std::string(reader.Text(params.subject, "subject")),
        .issuer = std::string(reader.Text(params.issuer, "issuer")),
        .validAt = qor::types::Timestamp(params.validAt),
    };
}

qx_zam_connector_ZamTypes_ClientCertsInfo CastToVd(const std::vector<ClientCertInfo>& certificates,
                                                   vd_arena* arena) {
    ArenaWriter writer(arena);
    std::vector<IdlCertificate> elements;
    elements.reserve(certificates.size());
    for (const ClientCertInfo& certificate : certificates) {
        elements.push_back(PutCertificate(certificate, writer));
    }
    return {writer.PutSequence(elements, "certificates")};
}

std::vector<ClientCertInfo> CastFromVd(
    const qx_zam_connector_ZamTypes_ClientCertsInfo& certificates, const vd_arena* arena) {
    const ArenaReader reader(arena);
    const auto elements =
        reader.Sequence<IdlCertificate>(certificates.certificates, "certificates");
    const std::size_t bytesInUse = arena != nullptr ? arena->used : 0;
    CertificateReader certificateReader(reader, bytesInUse);
    std::vector<ClientCertInfo> result;
    result.reserve(elements.size());
    for (const IdlCertificate& element : elements) {
        result.push_back(certificateReader.Read(element));
    }
    return result;
}

}  // namespace zam_connector::common
