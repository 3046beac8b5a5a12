#include "support/signal_storm.h"

#include <chrono>

namespace zam_platform::testing {
namespace {

void Interrupt(int /*signal*/) {}

}  // namespace

SignalStorm::SignalStorm() {
    struct sigaction action {};
    action.sa_handler = &Interrupt;  // and no SA_RESTART
    ::sigaction(SIGUSR1, &action, &before_);
    thread_ = std::thread([this, target = ::pthread_self()] {
        while (!stop_) {
            ::pthread_kill(target, SIGUSR1);
            ++sent_;
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
}

SignalStorm::~SignalStorm() {
    stop_ = true;
    thread_.join();
    ::sigaction(SIGUSR1, &before_, nullptr);
}

}  // namespace zam_platform::testing
