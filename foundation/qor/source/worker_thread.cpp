#include "qor/utils/worker_thread.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace qor::utils {
namespace {

constexpr int kSignalsOfOwnFault[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};

/// Blocks signals in this thread for its own lifetime: a new thread starts with its creator's mask,
/// so no signal can reach it before it has set its own.
class BlockedSignals {
public:
    BlockedSignals() noexcept {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int signal : kSignalsOfOwnFault) {
            sigdelset(&blocked, signal);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &previous_);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

private:
    sigset_t previous_{};
};

}  // namespace

std::thread StartWorkerThread(const char* name, std::function<void()> work) {
    const BlockedSignals blocked;
    return std::thread([name, work = std::move(work)]() noexcept {
        pthread_setname_np(pthread_self(), name);
        work();
    });
}

}  // namespace qor::utils
