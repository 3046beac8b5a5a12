#include "data/rereader.h"

#include <chrono>
#include <utility>

namespace zam_service {
namespace {

/// Before something is read that found every worker taken, or no memory to say what was read.
constexpr std::chrono::milliseconds kRetryDelay{100};

}  // namespace

Rereader::Rereader(asio::io_context& loop, zam_platform::WorkerPool& workers, Lane lane, Read read,
                   std::function<bool()> canRead)
    : loop_(loop),
      workers_(workers),
      lane_(lane),
      read_(std::move(read)),
      canRead_(std::move(canRead)),
      retry_(loop) {}

void Rereader::Start() {
    isStale_ = true;
    if (isReading_ || isClosed_ || !canRead_()) {
        return;
    }
    const bool posted = workers_.PostTo(
        loop_, lane_, [this] { return read_(); },
        [this](const std::optional<std::function<void()>>& publish) { OnRead(publish); });
    if (posted) {
        isReading_ = true;
        isStale_ = false;
    } else {
        RetryLater();
    }
}

void Rereader::Close() {
    isClosed_ = true;
    retry_.cancel();
}

void Rereader::OnRead(const std::optional<std::function<void()>>& publish) {
    isReading_ = false;
    if (publish) {
        (*publish)();
    } else if (!isStale_) {
        isStale_ = true;
        RetryLater();
        return;
    }
    if (isStale_) {
        Start();
    }
}

void Rereader::RetryLater() {
    retry_.expires_after(kRetryDelay);
    retry_.async_wait([this](const std::error_code& error) {
        if (!error && isStale_) {
            Start();
        }
    });
}

}  // namespace zam_service
