#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/real_subscribers.h"

/// Subscribes as many observers as its argument says, of all kinds in turn, writes "ready", and
/// then a line "OBSERVER KIND VALUE" for each call of one, until it is killed or its standard input
/// ends. With "drop" as second argument it then gives its subscribers up, and writes "gone".

namespace {

using namespace zam_connector;

void WriteLine(const std::string& line) {
    const std::string ended = line + '\n';
    if (::write(STDOUT_FILENO, ended.data(), ended.size()) != static_cast<ssize_t>(ended.size())) {
        std::_Exit(2);
    }
}

template <typename Data>
std::string Text(const std::pair<std::uint64_t, Data>& data) {
    return std::to_string(data.first);
}
std::string Text(const std::string& cert) {
    return std::to_string(cert.size());
}
std::string Text(const ZamServerData& data) {
    return std::to_string(data.clockOffset.count());
}
std::string Text(ZamConnectorState state) {
    return std::to_string(static_cast<int>(state));
}

template <typename T>
class Printer final : public qor::observer::IChangeObserver<T, int> {
public:
    explicit Printer(std::string name) : name_(std::move(name)) {}

    int OnChange(const T& value) override {
        WriteLine(name_ + " " + Text(value));
        return 0;
    }

private:
    const std::string name_;
};

template <typename T>
std::shared_ptr<Printer<T>> MakePrinter(int number, const char* kind,
                                        std::vector<std::shared_ptr<void>>& kept) {
    auto printer = std::make_shared<Printer<T>>(std::to_string(number) + " " + kind);
    kept.push_back(printer);
    return printer;
}

int Subscribe(test::RealSubscribers& subscribers, int number,
              std::vector<std::shared_ptr<void>>& kept) {
    SubscriptionCookie cookie;
    IZamDataChangeSubscriber& data = *subscribers.Data();
    switch (number % 7) {
        case 0:
            return data.SubscribeOnPolicyChange(
                MakePrinter<std::pair<std::uint64_t, ZamPolicy>>(number, "policy", kept), cookie);
        case 1:
            return data.SubscribeOnProductSettingsChange(
                MakePrinter<std::pair<std::uint64_t, ZamProductSettings>>(number, "settings", kept),
                cookie);
        case 2:
            return data.SubscribeOnSubscriptionsChange(
                MakePrinter<std::pair<std::uint64_t, ZamSubscriptions>>(number, "subscriptions",
                                                                        kept),
                cookie);
        case 3:
            return data.SubscribeOnZamServerDataChange(
                MakePrinter<ZamServerData>(number, "server", kept), cookie);
        case 4:
            return data.SubscribeOnZamReserveCertChange(
                MakePrinter<std::string>(number, "cert", kept), cookie);
        case 5:
            return data.SubscribeOnZamUpdatesStatusChange(
                MakePrinter<std::pair<std::uint64_t, ZamUpdatesStatus>>(number, "updates", kept),
                cookie);
        default:
            return subscribers.States()->SubscribeOnStateChange(
                MakePrinter<ZamConnectorState>(number, "state", kept), cookie);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int observers = argc > 1 ? std::atoi(argv[1]) : 7;
    std::vector<std::shared_ptr<void>> kept;
    {
        test::RealSubscribers subscribers;
        for (int number = 0; number < observers; ++number) {
            if (Subscribe(subscribers, number, kept) != 0) {
                return 1;
            }
        }
        WriteLine("ready");
        char byte = 0;
        while (::read(STDIN_FILENO, &byte, 1) > 0) {
        }
        if (argc < 3 || std::string(argv[2]) != "drop") {
            std::_Exit(0);
        }
    }
    WriteLine("gone");
    return 0;
}
