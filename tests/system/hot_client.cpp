#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "line_log.h"
#include "qx/endpoint_names.h"
#include "support/real_connection.h"
#include "support/wire_model.h"

/// zam_hot_client NAME LOG: bursts of calls, and an event behind each. Writes a line to LOG for
/// each event that was confirmed, and "waited NS" for each call that its service left: from the end
/// of another connection of this process until the call ended. Runs until it is killed.

namespace {

using namespace zam_connector;
using Clock = std::chrono::steady_clock;

constexpr int kBurst = 1000;

/// A failing call returns this much later than it ends: failures are spaced.
constexpr std::chrono::milliseconds kSpacing{1};

/// Another connection to the service, which does nothing but end.
class Watch {
public:
    explicit Watch(const char* directory)
        : path_(std::string(directory) + '/' + qx::kConnectorService + ".sock"),
          thread_([this] { Run(); }) {
        thread_.detach();
    }

    /// How many have ended; an odd number while there is none.
    unsigned Ends() const { return ends_; }

    /// When the last one did.
    Clock::time_point End() const { return Clock::time_point(Clock::duration(end_)); }

private:
    [[noreturn]] void Run() {
        for (;;) {
            const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            if (Greets(socket)) {
                ++ends_;
                pollfd ended{.fd = socket, .events = POLLRDHUP, .revents = 0};
                while (::poll(&ended, 1, -1) != 1) {
                }
                end_ = Clock::now().time_since_epoch().count();
                ++ends_;
            }
            ::close(socket);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    bool Greets(int socket) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path_.size() >= sizeof(address.sun_path)) {
            std::_Exit(3);
        }
        std::memcpy(address.sun_path, path_.data(), path_.size());
        const zam_test::WireBytes hello =
            zam_test::WireFrame({.kind = 1}, zam_test::WireBytes(16, 0x77));
        return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
                   0 &&
               ::send(socket, hello.data(), hello.size(), MSG_NOSIGNAL) ==
                   static_cast<ssize_t>(hello.size());
    }

    const std::string path_;
    std::atomic<unsigned> ends_{1};
    std::atomic<Clock::rep> end_{0};
    std::thread thread_;
};

/// Writes down how long a call has waited that began then, when so many connections had ended.
void NoteWait(const test::LineLog& log, const Watch& watch, unsigned ends,
              Clock::time_point begin) {
    const auto returned = Clock::now();
    if (ends % 2 != 0) {
        return;
    }
    // The call may be the first to see the end.
    const auto limit = returned + std::chrono::seconds(1);
    while (watch.Ends() == ends) {
        if (Clock::now() > limit) {
            return;
        }
        std::this_thread::yield();
    }
    if (begin < watch.End()) {
        const auto waited = returned - kSpacing - watch.End();
        log.Write("waited " + std::to_string(std::max<Clock::rep>(waited.count(), 0)));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const char* const directory = std::getenv("ZAM_RUNTIME_DIR");
    if (argc != 3 || directory == nullptr) {
        return 1;
    }
    const test::LineLog log(argv[2]);
    const Watch watch(directory);
    test::RealConnection connection;
    bool isUp = true;
    for (long number = 0;; ++number) {
        for (int call = 0; call < kBurst; ++call) {
            const unsigned ends = watch.Ends();
            const auto begin = Clock::now();
            ZamConnectorState state{};
            const bool wasUp = isUp;
            isUp = connection.Controller().GetState(state) == 0;
            if (wasUp && !isUp) {
                NoteWait(log, watch, ends, begin);
            }
        }
        const std::string event = std::string(argv[1]) + '/' + std::to_string(number);
        if (isUp && connection.CommandSender().PostZamEvent(event) == 0) {
            log.Write("event " + event);
        }
    }
}
