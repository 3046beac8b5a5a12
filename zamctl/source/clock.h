#pragma once

#include <chrono>

namespace zamctl {

/// Time as the commands see it, so that their tests need not wait. One thread at a time.
class Clock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;

    virtual TimePoint Now() const = 0;

    /// Sleeps that long, or until the interrupt that `CatchInterrupt` waits for. False when the
    /// interrupt has come, also when it came before.
    virtual bool SleepFor(std::chrono::nanoseconds duration) = 0;

    /// From now on the first SIGINT does not end the process; the second does, so that a call that
    /// the service never answers can still be left.
    virtual void CatchInterrupt() = 0;

    /// True when the interrupt has come.
    virtual bool Interrupted() const = 0;
};

/// The system's clock and signals. Only one object may exist at a time.
class SystemClock final : public Clock {
public:
    SystemClock() = default;
    SystemClock(const SystemClock&) = delete;
    SystemClock& operator=(const SystemClock&) = delete;

    /// Puts SIGINT back to what it was.
    ~SystemClock() override;

    TimePoint Now() const override;
    bool SleepFor(std::chrono::nanoseconds duration) override;

    /// Throws `std::system_error` when the system is out of descriptors.
    void CatchInterrupt() override;
    bool Interrupted() const override;

private:
    bool catching_ = false;
};

}  // namespace zamctl
