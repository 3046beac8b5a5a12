#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "daemon_fixture.h"
#include "endpoints/endpoint_catalog.h"
#include "support/eventually.h"
#include "support/other_user.h"
#include "support/raw_socket.h"

namespace zam_service {
namespace {

using zam_platform::FrameKind;
using zam_platform::testing::Bytes;
using zam_platform::testing::RawSocket;
using zam_service::testing::Client;
using zam_service::testing::Code;
using zam_test::kSomebodyElse;

constexpr std::size_t kBusyConnections = 1500;

/// A greeting with an event behind it, and another event.
struct EventFrames {
    Bytes first;
    Bytes next;
};

EventFrames MakeEventFrames() {
    qx_zam_connector_ConnCommandSender_PostZamEvent_req request{};
    request.header.riid = EndpointOf("ConnCommandSender").riid;
    request.header.operation =
        static_cast<std::uint16_t>(qx_zam_connector_ConnCommandSender_operation::PostZamEvent);
    request.header.fixedSize = sizeof(request);
    const std::string text = "of the busy one";
    request.event = {0, static_cast<std::uint32_t>(text.size())};
    Bytes fixed(sizeof(request));
    std::memcpy(fixed.data(), &request, sizeof(request));
    const Bytes event = zam_platform::testing::FrameOf({.kind = FrameKind::Call, .callNumber = 1},
                                                       fixed, zam_platform::testing::BytesOf(text));
    return {.first = zam_platform::testing::HelloFrame() + event, .next = event};
}

/// A connection to a socket of the working directory.
RawSocket ConnectHere(const std::string& name) {
    RawSocket connection(zam_platform::testing::NewUnconnectedSocket());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
    if (::connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        throw std::system_error(errno, std::system_category(), name);
    }
    return connection;
}

/// In a process of its own, as another user: posts events over all connections at once, for ever,
/// and writes a byte once all have begun.
[[noreturn]] void PostForEver(const std::string& socket, const EventFrames& frames, int begun) {
    try {
        // The way to the socket's folder is the test's user's alone.
        const std::size_t slash = socket.rfind('/');
        if (::chdir(socket.substr(0, slash).c_str()) != 0 || ::setgroups(0, nullptr) != 0 ||
            ::setgid(kSomebodyElse) != 0 || ::setuid(kSomebodyElse) != 0) {
            ::_exit(1);
        }
        std::vector<RawSocket> connections;
        for (std::size_t number = 0; number < kBusyConnections; ++number) {
            connections.push_back(ConnectHere(socket.substr(slash + 1)));
            connections.back().Send(frames.first);
        }
        static_cast<void>(::write(begun, "x", 1));
        for (;;) {
            for (const RawSocket& connection : connections) {
                connection.ReadFrame();
                connection.Send(frames.next);
            }
        }
    } catch (const std::exception&) {
        ::_exit(2);
    }
}

using FairShares = zam_service::testing::DaemonFixture;

TEST_F(FairShares, LeaveTheEventsOfOthersTheirPlaceBesideABusyUsers) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can be another user";
    }
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ASSERT_GT(limit.rlim_cur, 4 * kBusyConnections);
    ASSERT_EQ(::chmod(runtime_.Path().c_str(), 0755), 0);
    daemon_.emplace(DaemonConfig{
        .dataFolder = data_.Path(), .runtimeDirectory = runtime_.Path(), .group = kSomebodyElse});
    const std::string socket = daemon_->SocketPath();
    const EventFrames frames = MakeEventFrames();
    std::array<int, 2> begun{};
    ASSERT_EQ(::pipe(begun.data()), 0);
    const pid_t busy = ::fork();
    if (busy == 0) {
        PostForEver(socket, frames, begun[1]);
    }
    ::close(begun[1]);
    thread_ = std::thread([this] { daemon_->Run(); });
    char byte = 0;
    ASSERT_EQ(::read(begun[0], &byte, 1), 1);

    Client quiet;
    for (int event = 0; event < 20; ++event) {
        ASSERT_EQ(quiet.Post("of the quiet one"), Code(0)) << event;
    }
    EXPECT_TRUE(zam_test::Eventually(
        [this] { return HasLogged(" lines of user 4242 wait, at most 256 may"); }));
    ::kill(busy, SIGKILL);
    ::waitpid(busy, nullptr, 0);
    ::close(begun[0]);
}

}  // namespace
}  // namespace zam_service
