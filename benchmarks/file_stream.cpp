#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "ping_pong.h"
#include "process.h"
#include "qx/zam_file_downloader.h"
#include "service.h"
#include "suites.h"
#include "zam_connector/zam_connector.h"
#include "zam_platform/frame.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 3;
constexpr std::uint64_t kFileBytes = std::uint64_t{1} << 30;
constexpr std::uint32_t kChunkBytes = 65536;
constexpr std::uint64_t kChunks = kFileBytes / kChunkBytes;
constexpr double kMebi = 1024.0 * 1024.0;
constexpr char kName[] = "image.bin";

/// Bytes of one `GetFileChunk` on the wire: the request's arena holds the path, the response's the
/// version and the data.
constexpr Exchange kChunkExchange{
    zam_platform::kPreludeBytes + sizeof(qx_zam_connector_ZamFileDownloader_GetFileChunk_req) + 16,
    zam_platform::kPreludeBytes + sizeof(qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp) + 16 +
        kChunkBytes};

void WriteFile(const std::string& path) {
    std::ofstream file(path, std::ios::binary);
    std::mt19937_64 random(1);
    std::vector<std::uint64_t> block(std::size_t{1} << 17);
    for (std::uint64_t written = 0; written < kFileBytes;
         written += block.size() * sizeof(block[0])) {
        for (std::uint64_t& word : block) {
            word = random();
        }
        file.write(reinterpret_cast<const char*>(block.data()),
                   static_cast<std::streamsize>(block.size() * sizeof(block[0])));
    }
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

double SecondsOf(const std::function<void()>& act) {
    const double before = NowMicroseconds();
    act();
    return (NowMicroseconds() - before) / 1e6;
}

void Stream(zam_connector::IZamFileDownloader& downloader) {
    zam_connector::FileChunkParams params;
    params.path = kName;
    params.maxSizeBytes = kChunkBytes;
    zam_connector::FileChunk chunk;
    while (params.offset < kFileBytes) {
        if (downloader.GetFileChunk(params, chunk) != 0 || chunk.data.empty()) {
            throw std::runtime_error("GetFileChunk failed");
        }
        params.offset += chunk.data.size();
    }
}

/// A file of 1 GiB in a service's folder, and the same bytes over a bare socket.
class Files {
public:
    Files() {
        std::filesystem::create_directories(service_.DataPath("files"));
        WriteFile(Path());
        if (zam_connector::CreateZamFileDownloader("", downloader_) != 0 ||
            downloader_ == nullptr) {
            throw std::runtime_error("CreateZamFileDownloader failed");
        }
        sockets_.server.Reset();
        zam_connector::FileInfo info;
        if (downloader_->GetFileInfo({kName}, info) != 0 || info.sizeBytes != kFileBytes) {
            throw std::runtime_error("GetFileInfo failed");
        }
    }

    std::string Path() const { return service_.DataPath("files/") + kName; }
    const Service& Server() const { return service_; }

    double StreamSeconds() const {
        return SecondsOf([this] { Stream(*downloader_); });
    }

    double BareSeconds() {
        return SecondsOf([this] {
            for (std::uint64_t chunk = 0; chunk < kChunks; ++chunk) {
                if (!SendAll(sockets_.client.Get(), bytes_.data(), kChunkExchange.requestBytes) ||
                    !ReceiveAll(sockets_.client.Get(), bytes_.data(),
                                kChunkExchange.responseBytes)) {
                    throw std::runtime_error("the bare server is gone");
                }
            }
        });
    }

private:
    static void Serve(int socket) {
        std::vector<unsigned char> bytes(kChunkExchange.responseBytes);
        while (ReceiveAll(socket, bytes.data(), kChunkExchange.requestBytes) &&
               SendAll(socket, bytes.data(), kChunkExchange.responseBytes)) {
        }
    }

    Service service_;
    SocketPair sockets_ = MakeSocketPair();
    Child bareServer_{[this] {
        sockets_.client.Reset();
        Serve(sockets_.server.Get());
    }};
    std::vector<unsigned char> bytes_ = std::vector<unsigned char>(kChunkExchange.responseBytes);
    std::shared_ptr<zam_connector::IZamFileDownloader> downloader_;
};

}  // namespace

void MeasureFiles(Report& report) {
    Files files;
    const std::string target = files.Server().DataPath("got.bin");
    std::vector<double> bare;
    std::vector<double> stream;
    std::vector<double> sums;
    std::vector<double> gets;
    for (int round = 0; round < kRounds; ++round) {
        bare.push_back(files.BareSeconds());
        stream.push_back(files.StreamSeconds());
        if (report.Wants("file.get")) {
            sums.push_back(SecondsOf([&] { Run({"sha256sum", files.Path()}); }));
            gets.push_back(SecondsOf([&] {
                Run({ZAMCTL, "--quiet", "file", "get", kName, "--output", target});
            }));
            std::filesystem::remove(target);
        }
    }
    const auto perSecond = [](double seconds) {
        return static_cast<double>(kFileBytes) / kMebi / seconds;
    };
    report.Add(
        {"file.stream", "per_second", "MiB/s", perSecond(Median(stream)), perSecond(Median(bare))});
    if (!gets.empty()) {
        report.Add({"file.get", "per_second", "MiB/s", perSecond(Median(gets)),
                    perSecond(Median(sums) + Median(stream))});
    }
}

}  // namespace zam_bench
