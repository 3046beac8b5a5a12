#pragma once

#include <chrono>

namespace zamctl {

/// Time and the events around the process as the commands see them, so that their tests need not
/// wait. One thread at a time, where nothing else is said.
class Clock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using WallTime = std::chrono::system_clock::time_point;

    /// What ended a wait.
    enum class Wakeup {
        Called,       ///< `Wake` was called
        Interrupted,  ///< also when it came before
        ReaderGone,   ///< nobody reads standard output any more
    };

    virtual ~Clock() = default;

    /// Thread-safe.
    virtual TimePoint Now() const = 0;

    /// The time of day. Thread-safe.
    virtual WallTime WallNow() const = 0;

    /// Sleeps that long, or until the interrupt that `CatchInterrupt` waits for. False when the
    /// interrupt has come, also when it came before.
    virtual bool SleepFor(std::chrono::nanoseconds duration) = 0;

    /// From now on the first SIGINT or SIGTERM does not end the process; the second of the same
    /// does, so that a call that the service never answers can still be left.
    virtual void CatchInterrupt() = 0;

    /// True when the interrupt has come.
    virtual bool Interrupted() const = 0;

    /// From now on a write to a pipe that nobody reads fails instead of ending the process, and
    /// `WaitForWake` tells of it.
    virtual void EndWithReader() = 0;

    /// Ends one `WaitForWake`, also one that is yet to come; several calls may end one together.
    /// Behind `CatchInterrupt` only. Thread-safe.
    virtual void Wake() noexcept = 0;

    /// Waits without limit. Behind `CatchInterrupt` only.
    virtual Wakeup WaitForWake() = 0;

    /// Ends the process with that status behind `limit`, wherever it hangs, with `message` on
    /// standard error, unless that does not take it at once. `message` has static storage. An
    /// earlier limit stays, with what the last call says. 0 calls it off.
    virtual void LimitRun(std::chrono::milliseconds limit, const char* message, int status) = 0;
};

/// The system's clock and signals. Only one object may exist at a time.
class SystemClock final : public Clock {
public:
    SystemClock() = default;
    SystemClock(const SystemClock&) = delete;
    SystemClock& operator=(const SystemClock&) = delete;

    /// Puts the signals back to what they were.
    ~SystemClock() override;

    TimePoint Now() const override;
    WallTime WallNow() const override;
    bool SleepFor(std::chrono::nanoseconds duration) override;

    /// Throws `std::system_error` when the system is out of descriptors.
    void CatchInterrupt() override;
    bool Interrupted() const override;
    void EndWithReader() override;
    void Wake() noexcept override;
    Wakeup WaitForWake() override;
    void LimitRun(std::chrono::milliseconds limit, const char* message, int status) override;

private:
    bool catching_ = false;
    bool watchesReader_ = false;
    bool isLimited_ = false;
    int calls_ = -1;  // counts calls of Wake
};

}  // namespace zamctl
