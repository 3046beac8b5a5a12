#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace zam_service {

/// The one synchronisation that may be pending. It is carried out some time after it was confirmed
/// while the link is up; a link that goes down puts it off. Told the time; no I/O, no timer. One
/// thread at a time.
class SyncSchedule {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Ticket = std::uint64_t;

    /// Makes one pending that waits for its `Confirm`. Empty when one is pending already.
    std::optional<Ticket> Add();

    /// The pending one may be carried out from now on. Nothing when it has been dropped.
    void Confirm(Ticket ticket) noexcept;

    /// Takes back a pending one. Nothing when it has been dropped.
    void Cancel(Ticket ticket) noexcept;

    /// Drops the pending one. False when there is none.
    bool Drop() noexcept;

    /// Tells whether the link is up, and how long a synchronisation takes. True when the pending
    /// one is carried out now.
    bool Advance(bool isConnected, std::chrono::milliseconds takes, TimePoint now) noexcept;

    /// When the pending one is carried out if the link stays up.
    std::optional<TimePoint> Due() const noexcept { return due_; }

private:
    Ticket last_ = 0;
    bool isPending_ = false;
    bool isConfirmed_ = false;
    std::optional<TimePoint> due_;
};

}  // namespace zam_service
