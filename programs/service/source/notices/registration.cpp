#include "notices/registration.h"

#include <new>
#include <optional>
#include <utility>

#include "common/log.h"

namespace zam_service {
namespace {

constexpr char kSourceFile[] = "registration";

}  // namespace

void Registration::Tell(std::uint32_t value) noexcept {
    try {
        LogWhenDropped(queue_.Push(value));
        Serve();
    } catch (const std::bad_alloc&) {
        Miss();
    }
}

void Registration::Wait(std::unique_ptr<NoticeWaiter> waiter) noexcept {
    hasBeenWaitedFor_ = true;
    const std::unique_ptr<NoticeWaiter> older = std::exchange(waiter_, std::move(waiter));
    try {
        if (older != nullptr) {
            older->End(WaitEnd::Displaced);
        }
        Serve();
    } catch (const std::bad_alloc&) {
        Miss();
    }
}

void Registration::End() {
    if (const std::unique_ptr<NoticeWaiter> waiter = std::move(waiter_)) {
        waiter->End(WaitEnd::Unregistered);
    }
}

void Registration::Serve() {
    if (waiter_ == nullptr) {
        return;
    }
    const std::optional<Notice> notice = queue_.Oldest();
    if (!notice) {
        return;
    }
    // All that takes memory is made before anything is taken.
    NoticeWaiter::OnDelivery onDelivery = [weak = weak_from_this(),
                                           notice = *notice](bool wasTaken) {
        if (const auto self = weak.lock()) {
            self->OnDelivery(notice, wasTaken);
        }
    };
    queue_.TakeOldest();
    ++inFlight_;
    isDropping_ = isDropping_ && !queue_.IsEmpty();
    const std::unique_ptr<NoticeWaiter> waiter = std::move(waiter_);
    waiter->Give(notice->value, std::move(onDelivery));
}

void Registration::OnDelivery(const Notice& notice, bool wasTaken) noexcept {
    --inFlight_;
    if (wasTaken) {
        return;
    }
    try {
        LogWhenDropped(queue_.PutBack(notice));
        Serve();
    } catch (const std::bad_alloc&) {
        Miss();
    }
}

void Registration::Miss() noexcept {
    hasMissed_ = true;
    waiter_.reset();
    zam_connector::common::Log(zor::logger::kLevelError,
                               zam_connector::common::Here(kSourceFile, "Miss"),
                               "{} registration {:#010x}: no memory for a notice: told again when "
                               "its client waits again",
                               rules_.sort, id_);
}

/// Once until the client has fetched everything: one that fetches nothing must not fill the log.
void Registration::LogWhenDropped(bool isKept) {
    if (!isKept && !std::exchange(isDropping_, true)) {
        zam_connector::common::Log(
            zor::logger::kLevelError, zam_connector::common::Here(kSourceFile, "Tell"),
            "{} registration {:#010x}: more than {} notices wait, the oldest are dropped",
            rules_.sort, id_, rules_.maxQueued);
    }
}

}  // namespace zam_service
