#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <functional>

#include "data/folder_files.h"
#include "zam_connector/zam_connector_settings.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// The connector's settings: in memory for those who ask, in the data folder for the next start.
/// Writing and reading back run in one lane and publish in its order, so memory and disk go through
/// the same sequence of values. On the loop thread only.
class SettingsStore {
public:
    /// Told on the loop thread how a `Set` went.
    using Done = std::function<void(int code)>;

    /// None of them is owned; all must outlive this object.
    SettingsStore(asio::io_context& loop, zam_platform::WorkerPool& workers,
                  const FolderFiles& files);

    const zam_connector::ZamConnectorSettings& Current() const noexcept { return current_; }

    /// Writes consistent settings of a user's client to the disk and then puts them in force. On
    /// failure, "Media error" or "Insufficient resources", those before stay.
    void Set(uid_t user, const zam_connector::ZamConnectorSettings& settings, const Done& done);

    /// Puts settings in force that were read from the disk.
    void Publish(const zam_connector::ZamConnectorSettings& settings) { current_ = settings; }

private:
    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    const FolderFiles& files_;
    zam_connector::ZamConnectorSettings current_;
};

}  // namespace zam_service
