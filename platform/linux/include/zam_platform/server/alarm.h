#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>

namespace zam_platform {

/// Calls a function at a time. Setting it takes no memory, so that what goes on by itself does not
/// stand still because memory was wanting once. On the loop thread only.
class Alarm {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// `ring` runs on the thread of `loop`, never within a call of this object; it may set the
    /// alarm and may throw `std::bad_alloc`. `loop` is not owned and must outlive this object.
    Alarm(asio::io_context& loop, std::function<void()> ring);
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

    /// Nothing is called any more.
    ~Alarm();

    /// Rings once at `time`, or right away when that has passed, instead of when it was set to ring
    /// before.
    void RingAt(TimePoint time) noexcept;
    void RingAfter(std::chrono::nanoseconds delay) noexcept;

    /// Does not ring, unless it is set again.
    void Cancel() noexcept;

    bool IsSet() const noexcept;

private:
    class Bell;

    std::shared_ptr<Bell> bell_;
};

}  // namespace zam_platform
