#include "data/rereader.h"

#include <new>
#include <utility>

namespace zam_service {
Rereader::Rereader(asio::io_context& loop, zam_platform::WorkerPool& workers, Lane lane, Read read,
                   std::function<bool()> canRead)
    : loop_(loop),
      workers_(workers),
      lane_(lane),
      read_(std::move(read)),
      canRead_(std::move(canRead)),
      retry_(loop, [this] {
          if (isStale_) {
              Start();
          }
      }) {}

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
        StartLater();
    }
}

void Rereader::StartLater() noexcept {
    isStale_ = true;
    retry_.RingAfter(kMemoryDelay);
}

void Rereader::Close() {
    isClosed_ = true;
    retry_.Cancel();
}

void Rereader::OnRead(const std::optional<std::function<void()>>& publish) {
    isReading_ = false;
    try {
        if (publish) {
            (*publish)();
        }
    } catch (const std::bad_alloc&) {
        return StartLater();
    }
    if (!publish) {
        StartLater();
    } else if (isStale_) {
        Start();
    }
}

}  // namespace zam_service
