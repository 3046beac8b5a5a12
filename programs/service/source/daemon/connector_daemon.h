#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "certs/cert_folder.h"
#include "channels/channel_ids.h"
#include "channels/channel_quota.h"
#include "data/data_folder.h"
#include "data/folder_files.h"
#include "data/history.h"
#include "data/provider_data.h"
#include "data/settings_store.h"
#include "data/upload_store.h"
#include "endpoints/file_downloader_endpoint.h"
#include "endpoints/notifier_endpoint.h"
#include "faults/fault_injector.h"
#include "faults/fault_rules.h"
#include "faults/fault_witness.h"
#include "link/connector_link.h"
#include "notices/notices.h"
#include "zam_platform/server/handler_room.h"
#include "zam_platform/server/listening_socket.h"
#include "zam_platform/server/server.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// Where a daemon has its data and its socket, and whom it serves.
struct DaemonConfig {
    std::string dataFolder;
    std::string runtimeDirectory;  ///< made when missing, its last component only
    std::optional<gid_t> group;    ///< whose members are served besides the own user and root

    /// Longest look for a client's next call in shared memory; none: as the process's setting says.
    std::optional<std::chrono::microseconds> spin = {};
};

/// The connector service and the file-downloader service: one thread runs them, a few workers help
/// it with the disk.
class ConnectorDaemon {
public:
    /// Takes the runtime directory, reads the data folder, listens: from here on clients can
    /// connect, and are answered once `Run` is called. Blocks. Throws
    /// `zam_platform::PlatformError`.
    explicit ConnectorDaemon(const DaemonConfig& config);
    ConnectorDaemon(const ConnectorDaemon&) = delete;
    ConnectorDaemon& operator=(const ConnectorDaemon&) = delete;

    /// Removes the sockets. `Run` must have returned.
    ~ConnectorDaemon();

    /// Serves until `Stop`. Before it returns, what clients were promised is on the disk. Once.
    void Run();

    /// Ends `Run`, also one that has not begun yet. From any thread.
    void Stop();

    /// For what belongs on the loop thread, signals among them.
    asio::io_context& Context() noexcept { return server_.Context(); }

    /// What clients are told by the service itself. On the loop thread only.
    Notices& ClientNotices() noexcept { return notices_; }

    /// Absolute path of the data folder, and path of the connector service's socket.
    const std::string& DataFolderPath() const noexcept { return files_.Path(); }
    std::string SocketPath() const;

private:
    /// An endpoint's handler, and the faults in front of it.
    struct Served {
        std::unique_ptr<zam_platform::EndpointHandler> handler;
        std::unique_ptr<FaultInjector> faults;
    };

    void Serve(std::string_view interface, std::unique_ptr<zam_platform::EndpointHandler> handler,
               FaultWitness* witness = nullptr);
    void ServeData();
    void ServeNotices(std::string_view interface, NoticeBoard& board);
    void ServeDownloads();
    void Listen(const DaemonConfig& config);
    void ServeFiles();
    void Finish();

    // In the order in which they depend on each other; destroyed the other way round.
    zam_platform::RuntimeDirectory runtime_;
    zam_platform::DirectoryLock lock_;
    FolderFiles files_;
    zam_platform::HandlerRoom stopRoom_;
    zam_platform::Server server_;
    zam_platform::WorkerPool workers_;
    History history_;
    SettingsStore settings_;
    UploadStore uploads_;
    ProviderData provider_;
    ChannelIds channelIds_;
    ChannelQuota channelQuota_;
    ConnectorLink link_;
    Notices notices_;
    FaultRules faults_;
    std::vector<Served> served_;
    std::vector<NotifierEndpoint*> notifiers_;      ///< among those
    FileDownloaderEndpoint* downloader_ = nullptr;  ///< the same
    DataFolder folder_;
    CertFolder certs_;
    std::optional<zam_platform::ListeningSocket> socket_;
    std::optional<zam_platform::ListeningSocket> downloadSocket_;
    bool isFinished_ = false;
};

}  // namespace zam_service
