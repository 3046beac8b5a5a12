#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "zam_platform/server/alarm.h"
#include "zam_platform/unique_fd.h"

namespace zam_service {

/// The service manager that started this process, where it wants to be told of its states
/// (`NOTIFY_SOCKET`), and that the loop still runs (`WATCHDOG_USEC`). What cannot be told is not:
/// the manager then acts by its own limits. On the loop thread only.
class ServiceManager {
public:
    /// Reads the environment, but not in a set-user-id program. `loop` is not owned and must
    /// outlive this object.
    explicit ServiceManager(asio::io_context& loop);

    /// Calls are accepted. From now on the loop tells that it lives, twice as often as it must.
    void TellReady();

    /// The service ends, which may take the disk a while.
    void TellStopping();

private:
    void Tell(std::string_view state) const noexcept;
    void KeepAlive();

    std::string socketPath_;  ///< empty when there is no manager
    zam_platform::UniqueFd socket_;
    zam_platform::Alarm alarm_;
    const std::optional<std::chrono::microseconds> period_;
};

}  // namespace zam_service
