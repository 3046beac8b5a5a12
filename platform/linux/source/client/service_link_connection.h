#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "client/service_link.h"
#include "zam_platform/channel.h"

namespace zam_platform {

struct ServiceLink::Connection {
    std::unique_ptr<Channel> channel;
    std::uint64_t calls = 0;     ///< made on this channel; numbers them
    std::uint64_t answered = 0;  ///< calls, without lookups
    LinkUse told;                ///< guarded by the link's mutex
    Connection* nextIdle = nullptr;
    Connection* next = nullptr;
    Connection* previous = nullptr;
};

class ServiceLink::Lease {
public:
    Lease(ServiceLink& link, Connection* connection) noexcept
        : link_(link), connection_(connection) {}
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    ~Lease() { Reset(nullptr); }

    explicit operator bool() const noexcept { return connection_ != nullptr; }
    Connection* operator->() const noexcept { return connection_; }
    Connection& operator*() const noexcept { return *connection_; }

    /// Closes the connection and takes another.
    void Reset(Connection* connection) noexcept {
        if (connection_ != nullptr) {
            link_.Discard(connection_);
        }
        connection_ = connection;
    }

    /// The connection, which is the caller's now.
    Connection* Release() noexcept { return std::exchange(connection_, nullptr); }

    void GiveBack() noexcept { link_.GiveBack(std::exchange(connection_, nullptr)); }

private:
    ServiceLink& link_;
    Connection* connection_;
};

}  // namespace zam_platform
