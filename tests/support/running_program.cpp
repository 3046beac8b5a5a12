#include "support/running_program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "support/program.h"

namespace zamctl::test {

using zam_connector::test::Pointers;
using zam_connector::test::WithSanitizerOptions;

namespace {

constexpr int kPatienceMs = 60'000;

std::array<int, 2> MakePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return ends;
}

}  // namespace

RunningProgram::RunningProgram(const std::string& program,
                               const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment) {
    std::vector<std::string> words = {program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> variables = WithSanitizerOptions(environment);
    const std::array<int, 2> out = MakePipe();
    const std::array<int, 2> err = MakePipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    const int error = ::posix_spawn(&process_, program.c_str(), &actions, nullptr,
                                    Pointers(words).data(), Pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    out_ = out[0];
    err_ = err[0];
    if (error != 0) {
        process_ = 0;
        throw std::system_error(error, std::generic_category(), program);
    }
}

RunningProgram::~RunningProgram() {
    if (process_ > 0) {
        Signal(SIGKILL);
        Wait();
    }
    StopReading();
    ::close(err_);
}

void RunningProgram::StopReading() {
    if (out_ >= 0) {
        ::close(std::exchange(out_, -1));
    }
}

void RunningProgram::Signal(int signal) const {
    ::kill(process_, signal);
}

int RunningProgram::Wait() {
    return zam_connector::test::WaitFor(std::exchange(process_, 0));
}

std::string RunningProgram::Line(int descriptor, std::string& buffer) {
    for (;;) {
        if (const std::size_t end = buffer.find('\n'); end != std::string::npos) {
            std::string line = buffer.substr(0, end);
            buffer.erase(0, end + 1);
            return line;
        }
        pollfd poll{.fd = descriptor, .events = POLLIN, .revents = 0};
        if (::poll(&poll, 1, kPatienceMs) <= 0) {
            return "(nothing)";
        }
        std::array<char, 4096> bytes{};
        const ssize_t got = ::read(descriptor, bytes.data(), bytes.size());
        if (got <= 0) {
            return "(nothing)";
        }
        buffer.append(bytes.data(), static_cast<std::size_t>(got));
    }
}

}  // namespace zamctl::test
