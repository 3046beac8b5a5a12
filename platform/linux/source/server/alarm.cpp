#include "zam_platform/server/alarm.h"

#include <asio/post.hpp>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "zam_platform/server/handler_room.h"

namespace zam_platform {

using Clock = std::chrono::steady_clock;

/// What a wait that is not over finds when the alarm has gone. One wait is under way at most, in
/// the room; its end begins the next.
class Alarm::Bell : public std::enable_shared_from_this<Bell> {
public:
    Bell(asio::io_context& loop, std::function<void()> ring)
        : loop_(loop), timer_(loop), ring_(std::move(ring)) {}

    void RingAt(TimePoint time) noexcept {
        due_ = time;
        if (!isWaiting_) {
            Wait();
        } else if (time < timer_.expiry()) {
            timer_.cancel();
        }
    }

    void Cancel() noexcept {
        due_.reset();
        timer_.cancel();
    }

    bool IsSet() const noexcept { return due_.has_value(); }

private:
    void Wait() noexcept {
        isWaiting_ = true;
        auto look = [bell = shared_from_this()](const std::error_code& /*error*/ = {}) {
            bell->Look();
        };
        try {
            timer_.expires_at(*due_);
            timer_.async_wait(InRoom(room_, look));
        } catch (const std::bad_alloc&) {
            // The loop has no room for one more timer: time is looked at in every round meanwhile.
            asio::post(loop_, InRoom(room_, std::move(look)));
        }
    }

    void Look() {
        isWaiting_ = false;
        if (!due_) {
            return;
        }
        if (Clock::now() < *due_) {
            Wait();
            return;
        }
        due_.reset();
        ring_();
    }

    asio::io_context& loop_;
    HandlerRoom room_;
    asio::steady_timer timer_;
    const std::function<void()> ring_;
    std::optional<TimePoint> due_;
    bool isWaiting_ = false;
};

Alarm::Alarm(asio::io_context& loop, std::function<void()> ring)
    : bell_(std::make_shared<Bell>(loop, std::move(ring))) {}

Alarm::~Alarm() {
    bell_->Cancel();
}

void Alarm::RingAt(TimePoint time) noexcept {
    bell_->RingAt(time);
}

void Alarm::RingAfter(std::chrono::nanoseconds delay) noexcept {
    RingAt(Clock::now() + delay);
}

void Alarm::Cancel() noexcept {
    bell_->Cancel();
}

bool Alarm::IsSet() const noexcept {
    return bell_->IsSet();
}

}  // namespace zam_platform
