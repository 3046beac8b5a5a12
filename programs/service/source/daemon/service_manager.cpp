#include "daemon/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace zam_service {
namespace {

std::string_view Environment(const char* name) {
    const char* const text = ::secure_getenv(name);
    return text != nullptr ? text : "";
}

std::optional<std::int64_t> NumberIn(const char* name) {
    const std::string_view digits = Environment(name);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return number;
}

/// How often the manager wants to hear from this process; none when it wants nothing of it.
std::optional<std::chrono::microseconds> WatchdogPeriod() {
    const auto period = NumberIn("WATCHDOG_USEC");
    if (!period || *period <= 0 || NumberIn("WATCHDOG_PID").value_or(::getpid()) != ::getpid()) {
        return std::nullopt;
    }
    return std::chrono::microseconds(*period);
}

}  // namespace

ServiceManager::ServiceManager(asio::io_context& loop)
    : socketPath_(Environment("NOTIFY_SOCKET")),
      alarm_(loop, [this] { KeepAlive(); }),
      period_(WatchdogPeriod()) {
    if (!socketPath_.empty()) {
        // Not blocking: a manager that does not read must not hold up the loop.
        socket_ =
            zam_platform::UniqueFd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    }
}

void ServiceManager::TellReady() {
    Tell("READY=1");
    if (socket_ && period_) {
        KeepAlive();
    }
}

void ServiceManager::TellStopping() {
    alarm_.Cancel();
    Tell("STOPPING=1");
}

void ServiceManager::Tell(std::string_view state) const noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!socket_ || socketPath_.size() >= sizeof(address.sun_path)) {
        return;
    }
    socketPath_.copy(&address.sun_path[0], socketPath_.size());
    if (socketPath_.front() == '@') {
        address.sun_path[0] = '\0';  // a name without a file
    }
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socketPath_.size());
    static_cast<void>(::sendto(socket_.Get(), state.data(), state.size(), MSG_NOSIGNAL,
                               reinterpret_cast<const sockaddr*>(&address), length));
}

void ServiceManager::KeepAlive() {
    Tell("WATCHDOG=1");
    alarm_.RingAfter(*period_ / 2);
}

}  // namespace zam_service
