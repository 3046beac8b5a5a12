#include "data/sample_data.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "data/file_io.h"
#include "data/provider_data.h"
#include "data/sample_download_texts.h"
#include "data/sample_provider_texts.h"
#include "zam_platform/posix_error.h"

namespace zam_service {

using zam_platform::PlatformError;
using zam_platform::PosixError;
using zam_platform::UniqueFd;

namespace {

constexpr mode_t kFolderMode = 0755;

constexpr std::string_view kConnection =
    R"(// How the simulated link to the management server behaves. Delays are milliseconds, from 0 to
// 86400000 (a day). A change counts from the next start or stop; of start_result and sync_ms it
// counts at once.
{
    // The states that a start goes through; after_ms counts from the step before. States are
    // stopped, connecting, connected, waiting_for_reconnect, stopping, refused. At most 64 steps.
    "start": [
        {"state": "connecting", "after_ms": 0},
        {"state": "connected", "after_ms": 300}
    ],

    // The same for a stop.
    "stop": [
        {"state": "stopping", "after_ms": 0},
        {"state": "stopped", "after_ms": 100}
    ],

    // {"after_ms": 500}: connecting, and after that time refused, until the next start.
    "refuse": null,

    // {"up_ms": 5000, "down_ms": 1000}: connected for so long, then waiting for reconnect for so
    // long, then the start steps again, and so on until the stop. Both at least 1.
    "flap": null,

    // "0x80000045": Start answers this result code and does nothing.
    "start_result": null,

    // How long a synchronisation takes.
    "sync_ms": 200
}
)";

constexpr std::string_view kSettings =
    R"(// Settings of the connector. Clients write this file too, without these comments.
{
    "sync_period_s": 900,                 // between two synchronisations; 0: only on demand
    "heartbeat_period_s": 60,             // between two heartbeats on the link; 0: none
    "reconnect_delay_min_s": 5,           // before the first attempt to reconnect
    "reconnect_delay_max_s": 300,         // bound of the growing delay between attempts
    "upload_limit_bytes_per_second": 0,   // 0: unlimited
    "download_limit_bytes_per_second": 0, // 0: unlimited
    "max_file_size_bytes": 0,             // largest file that is downloaded; 0: unlimited
    "event_queue_limit": 1000,            // events kept while the link is down; 0: none
    "compress_traffic": true,
    "allow_metered_network": false,
    "send_diagnostics": false
}
)";

constexpr std::string_view kFaults =
    R"(// Faults that calls meet with. The first rule that applies to a call wins.
{
    // "seed": 42,   makes what "probability" decides the same every time

    "rules": [
        // Every third to fifth GetState fails with "Not ready", without the work being done:
        // {"endpoint": "connController", "operation": "GetState", "calls": [3, 5],
        //  "result_code": "0x80000063"},

        // One event in ten is kept, but the connection breaks before the answer:
        // {"endpoint": "connCommandSender", "operation": "PostZamEvent", "probability": 0.1,
        //  "when": "after", "drop": true},

        // All answers about settings take a second:
        // {"endpoint": "connSettingsHolder", "operation": "*", "delay_ms": 1000},

        // The first piece of a tree has a record that is cut off:
        // {"endpoint": "zamDataProvider", "operation": "GetData", "calls": 1,
        //  "damage": "record_value"},

        // Every chunk of a file has a wrong byte, and the CRC that the right ones have:
        // {"endpoint": "fileDownloader", "operation": "GetFileChunk", "damage": "chunk_data"}
    ]
}
)";

constexpr auto kSample = std::to_array<SampleFile>({
    {"connection.json", kConnection},
    {"connector_settings.json", kSettings},
    {"faults.json", kFaults},
    {kPolicyFile, sample::kPolicy},
    {kProductSettingsFile, sample::kProductSettings},
    {kSubscriptionsFile, sample::kSubscriptions},
    {kServerDataFile, sample::kServerData},
    {kUpdatesStatusFile, sample::kUpdatesStatus},
    {kReserveCertFile, sample::kReserveCert},
    {"files/readme.txt", sample::kReadme},
    {"client_certs/sample.json", sample::kClientCert},
    {"client_certs/sample.pem", sample::kClientCertPem},
});

/// Makes the folder that a file of the sample is in.
void MakeFolderOf(int folder, const std::string& path, std::string_view name) {
    const std::size_t end = name.find('/');
    if (end == std::string_view::npos) {
        return;
    }
    const std::string made(name.substr(0, end));
    if (::mkdirat(folder, made.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        throw PosixError(fmt::format("'{}/{}'", path, made), errno);
    }
}

std::string Shown(const std::string& path, std::string_view name) {
    return fmt::format("'{}/{}'", path, name);
}

}  // namespace

std::span<const SampleFile> SampleFiles() noexcept {
    return kSample;
}

void WriteSample(const std::string& path) {
    if (::mkdir(path.c_str(), kFolderMode) != 0 && errno != EEXIST) {
        throw PosixError(fmt::format("folder '{}'", path), errno);
    }
    const UniqueFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        throw PosixError(fmt::format("folder '{}'", path), errno);
    }
    for (const SampleFile& file : kSample) {
        struct stat status {};
        const std::string name(file.name);
        if (::fstatat(folder.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
            throw PlatformError(zam_platform::kStatusUntrusted,
                                fmt::format("{} is there already and is not overwritten; nothing "
                                            "was written",
                                            Shown(path, name)));
        }
    }
    for (const SampleFile& file : kSample) {
        const std::string name(file.name);
        MakeFolderOf(folder.Get(), path, file.name);
        const UniqueFd made =
            OpenBeneath(folder.Get(), name, O_WRONLY | O_CREAT | O_EXCL, Shown(path, name));
        if (!made) {
            throw PosixError(Shown(path, name), ENOENT);
        }
        WriteWhole(made.Get(), file.text, Shown(path, name));
        Sync(made.Get(), Shown(path, name));
    }
    Sync(folder.Get(), Shown(path, "."));
}

TemporarySample::TemporarySample() {
    const char* const parent = ::secure_getenv("TMPDIR");
    path_ = fmt::format("{}/zam_connectord.XXXXXX",
                        parent == nullptr || *parent == '\0' ? "/tmp" : parent);
    if (::mkdtemp(path_.data()) == nullptr) {
        throw PosixError(fmt::format("temporary folder '{}'", path_), errno);
    }
    try {
        WriteSample(path_);
    } catch (const PlatformError&) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        throw;
    }
}

TemporarySample::~TemporarySample() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace zam_service
