#include "call_canceller.h"

#include <utility>

namespace zam_connector::proxy {

void CallCanceller::Cancel() noexcept {
    const qor::MutexLock lock(mutex_);
    isCancelled_ = true;
    for (const Entry* entry = entries_; entry != nullptr; entry = entry->next) {
        entry->call->interrupt(entry->call);
    }
}

bool CallCanceller::IsCancelled() const noexcept {
    const qor::MutexLock lock(mutex_);
    return isCancelled_;
}

bool CallCanceller::Enter(Entry& entry, VdCallUnderWay* call) noexcept {
    const qor::MutexLock lock(mutex_);
    if (isCancelled_) {
        return false;
    }
    entry = {call, entries_, nullptr};
    if (entries_ != nullptr) {
        entries_->previous = &entry;
    }
    entries_ = &entry;
    return true;
}

void CallCanceller::Leave(Entry& entry) noexcept {
    const qor::MutexLock lock(mutex_);
    (entry.previous == nullptr ? entries_ : entry.previous->next) = entry.next;
    if (entry.next != nullptr) {
        entry.next->previous = entry.previous;
    }
}

}  // namespace zam_connector::proxy
