// Prints changes of the policy and of the connection's state as they come:
//
//     observe_changes [COUNT]
//
// It ends behind COUNT changes, or when it is interrupted (SIGINT, SIGTERM).

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "zam_connector/zam_connector.h"
#include "zuv/zuv.h"

namespace {

/// Prints a line for each change. Data and states are told on a thread each, so what the two calls
/// share needs a lock.
class Observer final : public zam_connector::IPolicyObserver,
                       public zam_connector::IZamConnStateObserver {
public:
    /// Ends the program behind so many changes; 0: never.
    explicit Observer(unsigned long count) : count_(count) {}

    int OnChange(const std::pair<std::uint64_t, zam_connector::ZamPolicy>& policy) override {
        Print("policy " + zuv::ToText(policy.second.tree));
        return 0;
    }

    int OnChange(const zam_connector::ZamConnectorState& state) override {
        constexpr std::array kNames = {"stopped",      "connecting", "connected",
                                       "reconnecting", "stopping",   "refused"};
        const auto number = static_cast<std::size_t>(state);
        Print(std::string("state ") + (number < kNames.size() ? kNames[number] : "unknown"));
        return 0;
    }

private:
    void Print(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (count_ != 0 && printed_ == count_) {
            return;
        }
        std::cout << line << std::endl;
        if (++printed_ == count_) {
            ::kill(::getpid(), SIGTERM);  // the main thread waits for this
        }
    }

    const unsigned long count_;
    unsigned long printed_ = 0;
    std::mutex mutex_;
};

}  // namespace

int main(int argc, char* argv[]) {
    // Taken by sigwait below. Threads of the library take no signals, so they reach this one.
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::shared_ptr<zam_connector::IZamConnector> connector;
    if (zam_connector::CreateZamConnector(connector, {"observe_changes"}) != 0 || !connector) {
        std::cerr << "observe_changes: cannot make a connector\n";
        return 1;
    }
    std::shared_ptr<zam_connector::IZamDataChangeSubscriber> data;
    std::shared_ptr<zam_connector::IZamConnStateSubscriber> states;
    connector->GetDataChangeSubscriber(data);
    connector->GetStateChangeSubscriber(states);

    // The library does not own observers: this one is to live as long as it is subscribed.
    const auto observer =
        std::make_shared<Observer>(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0);
    zam_connector::SubscriptionCookie policyCookie;
    zam_connector::SubscriptionCookie stateCookie;
    if (data->SubscribeOnPolicyChange(observer, policyCookie) != 0 ||
        states->SubscribeOnStateChange(observer, stateCookie) != 0) {
        std::cerr << "observe_changes: cannot subscribe\n";
        return 1;
    }
    std::cout << "observing" << std::endl;  // every change from now on is told

    int signal = 0;
    ::sigwait(&signals, &signal);

    // These return when no observer is being called any more.
    data->Unsubscribe(policyCookie);
    states->Unsubscribe(stateCookie);
}
