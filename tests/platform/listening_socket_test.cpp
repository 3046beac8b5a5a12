#include "zam_platform/server/listening_socket.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/raw_socket.h"
#include "support/temporary_folder.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

using zam_test::TemporaryFolder;

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
}

bool Exists(const std::string& path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

template <typename Function>
std::string TextOf(Function function) {
    try {
        function();
        return "nothing was thrown";
    } catch (const PlatformError& error) {
        return error.what();
    }
}

class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask) : before_(::umask(mask)) {}
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;
    ~ScopedUmask() { ::umask(before_); }

private:
    mode_t before_;
};

/// A process that does something, tells so, and lives until it is killed.
class KilledProcess {
public:
    template <typename Function>
    explicit KilledProcess(Function function) {
        auto [mine, theirs] = MakePair();
        process_ = ::fork();
        if (process_ == 0) {
            try {
                function(theirs);
                ::pause();
            } catch (const std::exception&) {
            }
            ::_exit(1);
        }
        theirs.Close();
        EXPECT_EQ(mine.Read(1), Bytes{1}) << "the process has done what it should";
    }
    KilledProcess(const KilledProcess&) = delete;
    KilledProcess& operator=(const KilledProcess&) = delete;
    ~KilledProcess() { Kill(); }

    void Kill() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
            process_ = 0;
        }
    }

private:
    pid_t process_ = 0;
};

class ListeningSocketTest : public ::testing::Test {
protected:
    TemporaryFolder temp_;
    RuntimeDirectory directory_{temp_.Path()};
    std::string path_ = temp_.Path("svc.sock");
};

TEST_F(ListeningSocketTest, ListensUnderItsNameUntilItIsDestroyed) {
    {
        ListeningSocket socket(directory_, "svc", false);
        EXPECT_TRUE(Exists(path_));
        EXPECT_FALSE(Exists(temp_.Path(".svc.sock.new"))) << "the unfinished name is gone";
        const RawSocket client = ConnectRaw(path_);
        const UniqueFd descriptor(socket.Release());
        const RawSocket server(
            UniqueFd(::accept4(descriptor.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
        client.Send({7});
        EXPECT_EQ(server.Read(1), Bytes{7});
    }
    EXPECT_FALSE(Exists(path_));
}

TEST_F(ListeningSocketTest, HasTheModeOfItsPurposeWhateverTheUmask) {
    for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
        const ScopedUmask scope(mask);
        {
            const ListeningSocket own(directory_, "svc", false);
            EXPECT_EQ(ModeOf(path_), 0600U);
        }
        const ListeningSocket open(directory_, "svc", true);
        EXPECT_EQ(ModeOf(path_), 0666U);
    }
}

TEST_F(ListeningSocketTest, ReplacesWhatAKilledServiceHasLeft) {
    const auto leave = [this](const RawSocket& tell) {
        const DirectoryLock lock(directory_);
        const ListeningSocket socket(directory_, "svc", false);
        tell.Send({1});
        ::pause();
    };
    KilledProcess service(leave);
    EXPECT_EQ(TextOf([this] { const DirectoryLock lock(directory_); }),
              "lock '" + temp_.Path() +
                  "/zam_connectord.lock': another connector service serves this directory");
    service.Kill();

    ASSERT_TRUE(Exists(path_));
    EXPECT_THROW(ConnectRaw(path_), std::exception);
    const DirectoryLock lock(directory_);
    const ListeningSocket socket(directory_, "svc", false);
    EXPECT_GE(ConnectRaw(path_).Get(), 0);
}

TEST_F(ListeningSocketTest, ReplacesAnUnfinishedSocketOfAKilledService) {
    { const RawListener left(temp_.Path(".svc.sock.new")); }
    ASSERT_TRUE(Exists(temp_.Path(".svc.sock.new")));
    const ListeningSocket socket(directory_, "svc", false);
    EXPECT_FALSE(Exists(temp_.Path(".svc.sock.new")));
    EXPECT_GE(ConnectRaw(path_).Get(), 0);
}

TEST_F(ListeningSocketTest, TakesConnectionsFromTheMomentThatItHasItsName) {
    // Each replaces the one before, so the name always leads to one that listens.
    std::vector<std::unique_ptr<ListeningSocket>> sockets;
    sockets.push_back(std::make_unique<ListeningSocket>(directory_, "svc", false));
    std::atomic<bool> done{false};
    std::atomic<int> connected{0};
    const Background looking([&] {
        while (!done) {
            ConnectRaw(path_);
            ++connected;
        }
    });
    for (int round = 0; round < 100; ++round) {
        const int before = connected;
        sockets.push_back(std::make_unique<ListeningSocket>(directory_, "svc", false));
        Await("a connection to the successor", [&] { return connected > before; });
    }
    done = true;
}

TEST_F(ListeningSocketTest, LeavesNothingBehindWhenItFails) {
    temp_.MakeFolder("svc.sock");
    EXPECT_EQ(TextOf([this] { const ListeningSocket socket(directory_, "svc", false); }),
              "socket '" + path_ + "': Is a directory");
    EXPECT_FALSE(Exists(temp_.Path(".svc.sock.new")));
    EXPECT_TRUE(Exists(path_)) << "what is not its own stays";
}

TEST_F(ListeningSocketTest, RefusesAWrongName) {
    EXPECT_EQ(TextOf([this] { const ListeningSocket socket(directory_, "../svc", false); }),
              "service name '../svc' begins with a dot");
    EXPECT_EQ(TextOf([this] { const ListeningSocket socket(directory_, "", false); }),
              "service name is empty");
}

TEST_F(ListeningSocketTest, TakesTheLongestNameInADirectoryWithALongPath) {
    std::string path = temp_.Path();
    for (int level = 0; level < 3; ++level) {
        path += '/' + std::string(120, 'd');
        ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    }
    const RuntimeDirectory directory(path);
    const std::string name(64, 'n');
    const ListeningSocket socket(directory, name, false);
    EXPECT_GE(ConnectRaw(path + '/' + name + ".sock").Get(), 0);
}

TEST_F(ListeningSocketTest, CanBeMoved) {
    ListeningSocket socket(directory_, "svc", false);
    {
        const ListeningSocket moved(std::move(socket));
        EXPECT_TRUE(Exists(path_));
    }
    EXPECT_FALSE(Exists(path_));
}

TEST_F(ListeningSocketTest, IsOfOneServicePerDirectory) {
    {
        const DirectoryLock first(directory_);
        EXPECT_EQ(ModeOf(temp_.Path("zam_connectord.lock")), 0600U);
        try {
            const DirectoryLock second(directory_);
            ADD_FAILURE() << "locked twice";
        } catch (const PlatformError& error) {
            EXPECT_EQ(error.Status(), kStatusResources);
        }
        const std::string other = temp_.MakeFolder("other");
        const DirectoryLock elsewhere{RuntimeDirectory(other)};
    }
    const DirectoryLock again(directory_);
}

TEST_F(ListeningSocketTest, DoesNotLockThroughASymbolicLink) {
    temp_.Write("target", "");
    ASSERT_EQ(::symlink("target", temp_.Path("zam_connectord.lock").c_str()), 0);
    EXPECT_EQ(
        TextOf([this] { const DirectoryLock lock(directory_); }),
        "lock '" + temp_.Path("zam_connectord.lock") + "': Too many levels of symbolic links");
}

TEST(PrepareRuntimeDirectory, MakesWhatIsMissingForItsOwnerToWrite) {
    const TemporaryFolder temp;
    for (const mode_t mask : {0U, 022U, 077U}) {
        const ScopedUmask scope(mask);
        const std::string path = temp.Path(std::to_string(mask));
        EXPECT_EQ(PrepareRuntimeDirectory(path).Path(), path);
        EXPECT_EQ(ModeOf(path), 0755U & ~mask);
        EXPECT_EQ(PrepareRuntimeDirectory(path).Path(), path) << "also when it is there";
    }
}

TEST(PrepareRuntimeDirectory, KeepsTheRulesForWhatIsThere) {
    const TemporaryFolder temp;
    const std::string open = temp.MakeFolder("open", 0777);
    EXPECT_EQ(TextOf([&] { PrepareRuntimeDirectory(open); }),
              "runtime directory '" + open + "': mode 0777 lets others write; only its owner may");
    EXPECT_EQ(
        TextOf([&] { PrepareRuntimeDirectory(temp.Write("file", "")); }),
        "runtime directory '" + temp.Path("file") + "': must be a directory and no symbolic link");
    EXPECT_EQ(TextOf([&] { PrepareRuntimeDirectory(temp.Path("a/b")); }),
              "runtime directory '" + temp.Path("a/b") + "': No such file or directory")
        << "only the last component is made";
}

TEST(PrepareRuntimeDirectory, MakesNothingAtARelativePath) {
    const TemporaryFolder temp;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(temp.Path());
    EXPECT_EQ(TextOf([] { PrepareRuntimeDirectory("zam_relative_directory"); }),
              "runtime directory 'zam_relative_directory': the path must be absolute");
    EXPECT_TRUE(std::filesystem::is_empty(temp.Path()));
    std::filesystem::current_path(before);
}

}  // namespace
}  // namespace zam_platform::testing
