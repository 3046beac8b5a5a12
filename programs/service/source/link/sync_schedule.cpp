#include "link/sync_schedule.h"

namespace zam_service {

std::optional<SyncSchedule::Ticket> SyncSchedule::Add() {
    if (isPending_) {
        return std::nullopt;
    }
    isPending_ = true;
    isConfirmed_ = false;
    return ++last_;
}

void SyncSchedule::Confirm(Ticket ticket) noexcept {
    isConfirmed_ = isConfirmed_ || (isPending_ && ticket == last_);
}

void SyncSchedule::Cancel(Ticket ticket) noexcept {
    if (ticket == last_) {
        Drop();
    }
}

bool SyncSchedule::Drop() noexcept {
    const bool wasPending = isPending_;
    isPending_ = false;
    isConfirmed_ = false;
    due_.reset();
    return wasPending;
}

bool SyncSchedule::Advance(bool isConnected, std::chrono::milliseconds takes,
                           TimePoint now) noexcept {
    if (!isConfirmed_ || !isConnected) {
        due_.reset();
        return false;
    }
    if (!due_) {
        due_ = now + takes;
    }
    return *due_ <= now && Drop();
}

}  // namespace zam_service
