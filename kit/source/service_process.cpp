#include "zam_connector_testing/service_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zam_connector::testing {
namespace {

constexpr std::chrono::milliseconds kLimit{30'000};

constexpr char kLogFile[] = "log";

/// Descriptor that the child reports its readiness on.
constexpr int kReadyDescriptor = 3;

std::runtime_error SystemFailure(const std::string& what, int errorNumber) {
    return std::runtime_error(what + ": " + std::generic_category().message(errorNumber));
}

/// Waits for input or the end of input; false when the time is up.
bool WaitForInput(int descriptor, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd poll{.fd = descriptor, .events = POLLIN, .revents = 0};
        const int ready =
            ::poll(&poll, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

}  // namespace

ServiceProcess::ServiceProcess(std::string program) : program_(std::move(program)) {}

ServiceProcess::~ServiceProcess() {
    Kill();
}

void ServiceProcess::Start(const std::vector<std::string>& arguments) {
    if (IsRunning()) {
        return;
    }
    std::vector<std::string> words = {program_,
                                      "--data",
                                      DataDirectory(),
                                      "--runtime-dir",
                                      RuntimeDirectory(),
                                      "--ready-fd",
                                      std::to_string(kReadyDescriptor)};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    std::array<int, 2> ready{};
    if (::pipe2(ready.data(), O_CLOEXEC) != 0) {
        throw SystemFailure("pipe", errno);
    }
    // The child's copy must not be close-on-exec, which dup2 onto the same number would leave.
    const int writeEnd = ::fcntl(ready[1], F_DUPFD_CLOEXEC, kReadyDescriptor + 1);
    ::close(ready[1]);
    const std::string log = folders_.Path(kLogFile);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, writeEnd, kReadyDescriptor);
    const int error =
        ::posix_spawn(&process_, program_.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(writeEnd);
    if (error != 0) {
        process_ = 0;
        ::close(ready[0]);
        throw SystemFailure(program_, error);
    }
    char byte = 0;
    const bool isReady = WaitForInput(ready[0], kLimit) && ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    if (!isReady) {
        Kill();
        throw std::runtime_error("the service did not start: " + Log());
    }
}

void ServiceProcess::Kill() {
    if (IsRunning()) {
        ::kill(process_, SIGKILL);
        Wait(kLimit);
    }
}

int ServiceProcess::Stop() {
    if (!IsRunning()) {
        return 0;
    }
    ::kill(process_, SIGTERM);
    return Wait(kLimit);
}

int ServiceProcess::Wait(std::chrono::milliseconds limit) {
    // The C library of Debian 12 declares its own wrapper without C linkage.
    const auto process = static_cast<int>(::syscall(SYS_pidfd_open, process_, 0));
    if (process >= 0) {
        if (!WaitForInput(process, limit)) {
            ::kill(process_, SIGKILL);
        }
        ::close(process);
    }
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string ServiceProcess::Log() const {
    return folders_.Read(kLogFile);
}

}  // namespace zam_connector::testing
