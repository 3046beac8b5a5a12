#include "support/program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace zam_connector::test {
namespace {

constexpr std::chrono::milliseconds kLimit{60'000};

std::system_error SystemFailure(const std::string& what, int errorNumber) {
    return {errorNumber, std::generic_category(), what};
}

/// A file without a name, for a program's standard streams.
class Stream {
public:
    explicit Stream(const std::string& content)
        : descriptor_(::memfd_create("stream", MFD_CLOEXEC)) {
        if (descriptor_ < 0 ||
            ::write(descriptor_, content.data(), content.size()) !=
                static_cast<ssize_t>(content.size()) ||
            ::lseek(descriptor_, 0, SEEK_SET) != 0) {
            throw SystemFailure("stream for a program", errno);
        }
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { ::close(descriptor_); }

    int Descriptor() const { return descriptor_; }

    std::string Content() const {
        std::string content;
        std::array<char, 4096> buffer{};
        for (off_t at = 0;;) {
            const ssize_t got = ::pread(descriptor_, buffer.data(), buffer.size(), at);
            if (got <= 0) {
                return content;
            }
            content.append(buffer.data(), static_cast<std::size_t>(got));
            at += got;
        }
    }

private:
    int descriptor_;
};

}  // namespace

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> WithSanitizerOptions(std::vector<std::string> environment) {
    for (const char* const name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (const char* const value = std::getenv(name); value != nullptr) {
            environment.push_back(std::string(name) + '=' + value);
        }
    }
    return environment;
}

int WaitFor(pid_t process) {
    const auto descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
    if (descriptor >= 0) {
        pollfd poll{.fd = descriptor, .events = POLLIN, .revents = 0};
        if (::poll(&poll, 1, static_cast<int>(kLimit.count())) == 0) {
            ::kill(process, SIGKILL);
        }
        ::close(descriptor);
    }
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

ProgramResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const ProgramOptions& options) {
    const Stream in(options.input);
    const Stream out("");
    const Stream err("");
    std::vector<std::string> words = {program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables =
        WithSanitizerOptions(options.environment.value_or(std::vector<std::string>()));

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.Descriptor(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.Descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.Descriptor(), STDERR_FILENO);
    pid_t process = 0;
    const int error =
        ::posix_spawn(&process, program.c_str(), &actions, nullptr, Pointers(words).data(),
                      options.environment ? Pointers(variables).data() : environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw SystemFailure(program, error);
    }
    const int status = WaitFor(process);
    return {status, out.Content(), err.Content()};
}

}  // namespace zam_connector::test
