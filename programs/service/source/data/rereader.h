#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <optional>

#include "lanes.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// Before something is read again for which memory was wanting: it may be large, and be read in
/// vain for long.
inline constexpr std::chrono::milliseconds kMemoryDelay{2000};

/// What the log is told then.
inline constexpr char kMemoryLacks[] =
    "out of memory: what was read last stays until it can be read again";

/// Reads something again when it has changed: on a worker, one reading at a time, once more when it
/// changed meanwhile, and a little later when memory was wanting. On the loop thread only.
class Rereader {
public:
    /// Runs on a worker and must throw nothing but `std::bad_alloc`. What it returns is called on
    /// the loop thread, to publish what was read, and may throw the same. What has thrown is read
    /// again later.
    using Read = std::function<std::function<void()>()>;

    /// Neither `loop` nor `workers` is owned; both must outlive this object, which must outlive the
    /// jobs of `workers`. While `canRead` says no, nothing is read: whoever makes it say yes again
    /// must call `Start`.
    Rereader(
        asio::io_context& loop, zam_platform::WorkerPool& workers, Lane lane, Read read,
        std::function<bool()> canRead = [] { return true; });

    /// What was read last no longer counts.
    void Start();

    /// The same, a little later: memory was wanting.
    void StartLater() noexcept;

    /// Nothing is read any more. What is being read is still published.
    void Close();

private:
    void OnRead(const std::optional<std::function<void()>>& publish);

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    const Lane lane_;
    const Read read_;
    const std::function<bool()> canRead_;
    zam_platform::Alarm retry_;
    bool isReading_ = false;
    bool isStale_ = false;  ///< changed since it was read
    bool isClosed_ = false;
};

}  // namespace zam_service
