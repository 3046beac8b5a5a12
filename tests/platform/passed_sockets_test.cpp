#include "server/passed_sockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/raw_socket.h"
#include "support/temporary_folder.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/server/listening_socket.h"

namespace zam_platform::testing {
namespace {

using zam_test::TemporaryFolder;

/// A socket of the given kind at a path, as a service manager makes it.
UniqueFd BoundSocket(const std::string& path, int type = SOCK_STREAM, bool listens = true) {
    UniqueFd socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    if (listens) {
        EXPECT_EQ(::listen(socket.Get(), 8), 0);
    }
    return socket;
}

class PassedSocketsTest : public ::testing::Test {
protected:
    UniqueFd Find(const UniqueFd& passed) const {
        return PassedSocket(directory_, "svc.sock", {passed.Get(), 1});
    }

    TemporaryFolder temp_;
    RuntimeDirectory directory_{temp_.Path()};
    std::string path_ = temp_.Path("svc.sock");
};

TEST_F(PassedSocketsTest, AreFoundByTheirNameAmongOthers) {
    const UniqueFd other = BoundSocket(temp_.Path("other.sock"));
    const UniqueFd wanted = BoundSocket(path_);
    const int first = std::min(other.Get(), wanted.Get());
    const int last = std::max(other.Get(), wanted.Get());
    const UniqueFd found = PassedSocket(directory_, "svc.sock", {first, last - first + 1});
    ASSERT_TRUE(found);
    EXPECT_NE(found.Get(), wanted.Get()) << "a copy";
    const RawSocket client = ConnectRaw(path_);
    const RawSocket server(UniqueFd(::accept4(found.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
    client.Send({7});
    EXPECT_EQ(server.Read(1), Bytes{7});
}

TEST_F(PassedSocketsTest, NeitherBlockNorReachOtherPrograms) {
    const UniqueFd passed = BoundSocket(path_);
    ASSERT_EQ(::fcntl(passed.Get(), F_SETFD, 0), 0) << "as it comes through exec";
    const UniqueFd found = Find(passed);
    ASSERT_TRUE(found);
    EXPECT_NE(static_cast<unsigned>(::fcntl(found.Get(), F_GETFL)) & unsigned{O_NONBLOCK}, 0U);
    EXPECT_EQ(::fcntl(found.Get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(passed.Get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(PassedSocketsTest, AreFoundThroughALinkToTheDirectory) {
    const TemporaryFolder links;
    std::filesystem::create_directory_symlink(temp_.Path(), links.Path("link"));
    const UniqueFd passed = BoundSocket(links.Path("link/svc.sock"));
    EXPECT_TRUE(Find(passed));
}

TEST_F(PassedSocketsTest, OfOtherDirectoriesAreLeftAlone) {
    const TemporaryFolder elsewhere;
    const UniqueFd passed = BoundSocket(elsewhere.Path("svc.sock"));
    EXPECT_FALSE(Find(passed));
}

TEST_F(PassedSocketsTest, AreNoOtherDescriptors) {
    const UniqueFd file(::open("/dev/null", O_RDWR | O_CLOEXEC));
    EXPECT_FALSE(Find(file));
    const UniqueFd unbound(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_FALSE(Find(unbound));
    EXPECT_FALSE(PassedSocket(directory_, "svc.sock", {1 << 20, 3})) << "closed ones";
}

TEST_F(PassedSocketsTest, MustListenForStreams) {
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        const UniqueFd passed = BoundSocket(path_, type, false);
        try {
            Find(passed);
            ADD_FAILURE() << "taken";
        } catch (const PlatformError& error) {
            EXPECT_EQ(error.what(),
                      "passed socket '" + path_ + "': must be a stream socket that listens");
        }
        std::filesystem::remove(path_);
    }
}

struct Variables {
    const char* process;  ///< null: unset; empty: the number of this process
    const char* count;
    int expected;
};

TEST(PassedByEnvironment, CountsWhatIsMeantForThisProcess) {
    const std::string own = std::to_string(::getpid());
    const Variables table[] = {
        {"", "0", 0},       {"", "1", 1},
        {"", "2", 2},       {nullptr, "1", 0},
        {"", nullptr, 0},   {"1", "1", 0},
        {"text", "1", 0},   {"", "text", 0},
        {"", "-1", 0},      {"", "1x", 0},
        {"", "", 0},        {"", "1048576", 1 << 20},
        {"", "1048577", 0}, {"", "99999999999999999999", 0},
    };
    for (const Variables& row : table) {
        SCOPED_TRACE(::testing::Message() << (row.process == nullptr ? "unset" : row.process) << ' '
                                          << (row.count == nullptr ? "unset" : row.count));
        const auto set = [&own](const char* name, const char* value, bool emptyIsOwn) {
            if (value == nullptr) {
                ::unsetenv(name);
            } else {
                ::setenv(name, emptyIsOwn && *value == '\0' ? own.c_str() : value, 1);
            }
        };
        set("LISTEN_PID", row.process, true);
        set("LISTEN_FDS", row.count, false);
        const PassedDescriptors passed = PassedByEnvironment(::getpid());
        EXPECT_EQ(passed.count, row.expected);
        EXPECT_EQ(passed.first, row.expected == 0 ? passed.first : 3);
    }
    ::unsetenv("LISTEN_PID");
    ::unsetenv("LISTEN_FDS");
}

TEST_F(PassedSocketsTest, AreServedAndKeepTheirNames) {
    const UniqueFd passed = BoundSocket(path_);
    const pid_t process = ::fork();
    if (process == 0) {
        // In a process of its own, because descriptor 3 is somebody's here.
        ::dup2(passed.Get(), 3);
        ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
        ::setenv("LISTEN_FDS", "1", 1);
        bool good = false;
        try {
            const RuntimeDirectory directory(temp_.Path());
            for (int round = 0; round < 2; ++round) {
                ListeningSocket socket(directory, "svc", false);
                const UniqueFd descriptor(socket.Release());
                const RawSocket client = ConnectRaw(path_);
                good =
                    UniqueFd(::accept4(descriptor.Get(), nullptr, nullptr, SOCK_CLOEXEC)).Get() >=
                    0;
            }
        } catch (const std::exception&) {
            good = false;
        }
        ::_exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::is_socket(path_));
    EXPECT_GE(ConnectRaw(path_).Get(), 0);
}

}  // namespace
}  // namespace zam_platform::testing
