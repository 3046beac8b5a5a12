// Fetches a file of the server, piece by piece:
//
//     download_file NAME FILE
//
// Its last line is the file's SHA-256 as the service tells it, as `sha256sum --check` takes it.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "zam_connector/zam_connector.h"

namespace {

using zam_connector::FileChunk;
using zam_connector::FileChunkParams;
using zam_connector::FileInfo;

/// As in zlib, whose function is the quicker one.
std::uint32_t Crc32(const std::vector<std::byte>& bytes) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const std::byte byte : bytes) {
        crc ^= std::to_integer<std::uint32_t>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~crc;
}

void Require(bool isSo, const std::string& otherwise) {
    if (!isSo) {
        throw std::runtime_error(otherwise);
    }
}

void Check(const std::string& action, int code) {
    Require(!zam_connector::IsFailure(code),
            action + ": " + zam_connector::ResultCodeMessage(code));
}

/// A chunk as the service has it: one that was damaged on the way is fetched again.
FileChunk Fetch(zam_connector::IZamFileDownloader& downloader, const FileChunkParams& params) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        FileChunk chunk;
        Check("cannot fetch", downloader.GetFileChunk(params, chunk));
        if (chunk.offset == params.offset && chunk.crc32 == Crc32(chunk.data)) {
            return chunk;
        }
        std::cout << "damaged at " << params.offset << ", once more\n";
    }
    throw std::runtime_error("what comes is damaged every time");
}

void Download(zam_connector::IZamFileDownloader& downloader, const std::string& name,
              const FileInfo& info, std::ostream& out) {
    FileChunkParams params;
    params.path = name;
    params.maxSizeBytes = zam_connector::kMaxFileChunkBytes;
    std::string version;
    while (params.offset < info.sizeBytes) {
        const FileChunk chunk = Fetch(downloader, params);
        // Pieces of two contents make no file.
        Require(chunk.totalSizeBytes == info.sizeBytes && !chunk.data.empty() &&
                    (params.offset == 0 || chunk.version == version),
                "the file has changed meanwhile");
        version = chunk.version;
        out.write(reinterpret_cast<const char*>(chunk.data.data()),
                  static_cast<std::streamsize>(chunk.data.size()));
        Require(out.good(), "cannot write the file");
        params.offset += chunk.data.size();
        std::cout << params.offset << " of " << info.sizeBytes << " bytes\n";
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::cerr << "usage: download_file NAME FILE\n";
        return 1;
    }
    const std::string name = argv[1];
    const std::string target = argv[2];
    const std::string part = target + ".part";  // no half file ever has the final name
    try {
        // Who wants nothing but files needs no connector.
        std::shared_ptr<zam_connector::IZamFileDownloader> downloader;
        Check("cannot reach the service", zam_connector::CreateZamFileDownloader("", downloader));
        Require(downloader != nullptr, "there is no file downloader");
        FileInfo info;
        Check("cannot describe the file", downloader->GetFileInfo({name}, info));

        std::ofstream out(part, std::ios::binary | std::ios::trunc);
        Download(*downloader, name, info, out);
        out.close();
        Require(out.good(), "cannot write the file");
        std::filesystem::rename(part, target);
        std::cout << info.sha256 << "  " << target << '\n';
        return 0;
    } catch (const std::exception& error) {
        std::error_code ignored;  // there may be nothing to remove
        std::filesystem::remove(part, ignored);
        std::cerr << "download_file: " << name << ": " << error.what() << '\n';
        return 1;
    }
}
