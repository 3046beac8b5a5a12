#include "live_fakes.h"

#include <zlib.h>

#include <algorithm>

#include "checksums/sha256.h"

namespace zamctl::test {

int FakeFileDownloader::GetFileInfo(zam_connector::FileInfoParams params,
                                    zam_connector::FileInfo& info) noexcept {
    described.push_back(params.path);
    if (infoCode < 0) {
        return infoCode;
    }
    info = {.sha256 = sha256.value_or(Sha256Of(content)),
            .sizeBytes = content.size(),
            .modificationTime = qor::types::Timestamp(modificationTime),
            .chunkSizeBytes = chunkSizeBytes};
    return infoCode;
}

int FakeFileDownloader::GetFileChunk(zam_connector::FileChunkParams params,
                                     zam_connector::FileChunk& chunk) noexcept {
    asked.push_back(params);
    const int code = onChunk ? onChunk(asked.size()) : 0;
    if (code < 0) {
        return code;
    }
    const std::string part =
        content.substr(std::min<std::size_t>(params.offset, content.size()), params.maxSizeBytes);
    const auto* const bytes = reinterpret_cast<const std::byte*>(part.data());
    chunk.data.assign(bytes, bytes + part.size());
    chunk.crc32 = static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(part.data()), part.size()));
    chunk.version = version;
    chunk.offset = params.offset;
    chunk.totalSizeBytes = content.size();
    if (damage) {
        damage(asked.size(), chunk);
    }
    return code;
}

void FakeFileDownloader::Replace(std::string newContent) {
    content = std::move(newContent);
    version += "+";
}

std::string Sha256Of(const std::string& text) {
    zam_checksums::Sha256 hash;
    hash.Add(std::as_bytes(std::span(text)));
    return hash.Digest();
}

}  // namespace zamctl::test
