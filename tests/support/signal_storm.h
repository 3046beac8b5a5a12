#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstddef>
#include <thread>

namespace zam_platform::testing {

/// Sends signals that interrupt system calls to the thread that makes it, over and over until the
/// end of the scope.
class SignalStorm {
public:
    SignalStorm();
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;
    ~SignalStorm();

    std::size_t Sent() const noexcept { return sent_; }

private:
    struct sigaction before_ {};
    std::atomic<bool> stop_{false};
    std::atomic<std::size_t> sent_{0};
    std::thread thread_;
};

}  // namespace zam_platform::testing
