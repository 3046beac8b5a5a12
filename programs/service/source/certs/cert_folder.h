#pragma once

#include <asio/io_context.hpp>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "certs/client_cert.h"
#include "data/folder_files.h"
#include "data/folder_watcher.h"
#include "data/rereader.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// The folder, in the data folder, of the client certificates.
inline constexpr char kCertsFolder[] = "client_certs";

/// Most certificates that are served.
inline constexpr std::size_t kMaxCertFiles = 1024;

/// The client certificates of the data folder, kept equal to it. One that cannot be read is logged,
/// and its last good version stays; a private key that others may read is served with a warning.
/// On the loop thread only.
class CertFolder {
public:
    /// None of them is owned; all must outlive this object. Reads the certificates. Throws
    /// `zam_platform::PlatformError`.
    CertFolder(asio::io_context& loop, zam_platform::WorkerPool& workers, const FolderFiles& files);

    /// The certificates in the order of their files' names.
    const std::map<std::string, ClientCert>& Certs() const noexcept { return certs_; }

    /// To be told when the data folder has been replaced.
    void Reattach();

    /// Ends watching. What is being read is still published.
    void Close();

private:
    /// What a worker has made of one description.
    struct Entry {
        std::optional<ClientCert> cert;
        int level = 0;          ///< of the complaint
        std::string complaint;  ///< for the log; empty for none
    };
    using Entries = std::map<std::string, Entry>;

    /// One look at the folder.
    class Scan;

    bool Attach();
    void ReadSoon();
    void AttachLater() noexcept;
    std::function<void()> Read();
    void OnRead(const std::optional<Entries>& entries, const std::string& failure);
    void Publish(const Entries& entries);
    void Complain(const std::string& name, const Entry& entry);

    const FolderFiles& files_;
    FolderWatcher watcher_;
    zam_platform::Alarm settle_;
    bool isUnwatched_ = false;  ///< for want of memory, until the alarm rings
    Rereader reader_;
    std::map<std::string, ClientCert> certs_;
    std::map<std::string, std::string> complaints_;  ///< the last one about each file
    bool isClosed_ = false;
};

}  // namespace zam_service
