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
#include "subject.h"
#include "suites.h"
#include "way.h"
#include "zam_connector/zam_connector.h"
#include "zam_platform/frame.h"

namespace zam_bench {
namespace {

constexpr int kGetRounds = 3;
constexpr Size kOneStream{"1g", 1, 1};
constexpr double kNsPerSecond = 1e9;
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

Work StreamWork() {
    std::shared_ptr<zam_connector::IZamFileDownloader> downloader;
    if (zam_connector::CreateZamFileDownloader("", downloader) != 0 || downloader == nullptr) {
        throw std::runtime_error("CreateZamFileDownloader failed");
    }
    zam_connector::FileInfo info;
    if (downloader->GetFileInfo({kName}, info) != 0 || info.sizeBytes != kFileBytes) {
        throw std::runtime_error("GetFileInfo failed");
    }
    return {[downloader] { Stream(*downloader); }, [] {}};
}

/// The same bytes over a bare socket.
class BareFile {
public:
    BareFile() { sockets_.server.Reset(); }

    pid_t Pid() const noexcept { return server_.Pid(); }

    Work Client() const {
        const auto bytes =
            std::make_shared<std::vector<unsigned char>>(kChunkExchange.responseBytes);
        return {[this, bytes] {
                    for (std::uint64_t chunk = 0; chunk < kChunks; ++chunk) {
                        if (!SendAll(sockets_.client.Get(), bytes->data(),
                                     kChunkExchange.requestBytes) ||
                            !ReceiveAll(sockets_.client.Get(), bytes->data(),
                                        kChunkExchange.responseBytes)) {
                            throw std::runtime_error("the bare server is gone");
                        }
                    }
                },
                [] {}};
    }

private:
    static void Serve(int socket) {
        std::vector<unsigned char> bytes(kChunkExchange.responseBytes);
        while (ReceiveAll(socket, bytes.data(), kChunkExchange.requestBytes) &&
               SendAll(socket, bytes.data(), kChunkExchange.responseBytes)) {
        }
    }

    SocketPair sockets_ = MakeSocketPair();
    Child server_{[this] {
        sockets_.client.Reset();
        Serve(sockets_.server.Get());
    }};
};

/// A file of 1 GiB in the folders of two services whose calls go either way.
class Files {
public:
    Files() {
        std::filesystem::create_directories(socket_->DataPath("files"));
        std::filesystem::create_directories(free_->DataPath("files"));
        WriteFile(Path());
        std::filesystem::create_hard_link(Path(), socket_->DataPath("files/") + kName);
    }

    std::string Path() const { return free_->DataPath("files/") + kName; }
    std::string TargetPath() const { return free_->DataPath("got.bin"); }

    /// MiB/s round by round: of the bare socket, of the socket way, and of the other.
    std::vector<std::vector<double>> Speeds(const Placement& placement) {
        const auto start = [&placement](const std::function<Work()>& prepare) {
            return std::make_unique<Subject>("file.stream", kOneStream, [&placement, &prepare] {
                Pin(0, placement.client);
                return prepare();
            });
        };
        Pin(bare_.Pid(), placement.server);
        Pin(socket_->Pid(), placement.server);
        Pin(free_->Pid(), placement.server);
        const auto bare = start([this] { return bare_.Client(); });
        const auto socket = [&] {
            const auto environment = Take(Way::Socket);
            socket_->PointClients();
            return start(&StreamWork);
        }();
        free_->PointClients();
        const auto free = start(&StreamWork);
        auto rounds = RoundsInTurns({bare.get(), socket.get(), free.get()});
        for (std::vector<double>& times : rounds) {
            for (double& time : times) {
                time = static_cast<double>(kFileBytes) / kMebi / (time / kNsPerSecond);
            }
        }
        return rounds;
    }

private:
    static std::unique_ptr<Service> Start(Way way) {
        const auto environment = Take(way);
        return std::make_unique<Service>();
    }

    const std::unique_ptr<Service> socket_ = Start(Way::Socket);
    const std::unique_ptr<Service> free_ = Start(Way::Free);
    const BareFile bare_;
};

void MeasureStreams(Report& report, Files& files, const Placement& placement,
                    const std::string& metric) {
    const auto speeds = files.Speeds(placement);
    report.Add(Compared("file.stream", metric, "MiB/s", speeds[2], speeds[0]));
    report.Add(Compared("file.stream", metric + ".socket", "MiB/s", speeds[2], speeds[1]));
}

/// A verified download beside the time that streaming and summing the file take one after the
/// other.
void MeasureGets(Report& report, Files& files, const Placement& unpinned) {
    std::vector<double> sums;
    std::vector<double> gets;
    for (int round = 0; round < kGetRounds; ++round) {
        sums.push_back(SecondsOf([&] { Run({"sha256sum", files.Path()}); }));
        gets.push_back(SecondsOf([&] {
            Run({ZAMCTL, "--quiet", "file", "get", kName, "--output", files.TargetPath()});
        }));
        std::filesystem::remove(files.TargetPath());
    }
    const double mebi = static_cast<double>(kFileBytes) / kMebi;
    const double stream = mebi / Median(files.Speeds(unpinned)[2]);
    report.Add(
        {"file.get", "per_second", "MiB/s", mebi / Median(gets), mebi / (Median(sums) + stream)});
}

}  // namespace

void MeasureFiles(Report& report) {
    Files files;
    const auto [oneCore, twoCores, unpinned] = kPlacements;
    if (report.Wants("file.stream.per_second")) {
        MeasureStreams(report, files, unpinned, "per_second");
    }
    if (report.Wants("file.get")) {
        MeasureGets(report, files, unpinned);
    }
    if (report.Wants("file.stream.two_cores")) {
        MeasureStreams(report, files, twoCores, "two_cores.per_second");  // leaves all pinned
    }
}

}  // namespace zam_bench
