#include "process.h"

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace zam_bench {

void Pin(pid_t process, int core) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (std::size_t candidate = 0; candidate < CPU_SETSIZE; ++candidate) {
        if (core < 0 || candidate == static_cast<std::size_t>(core)) {
            CPU_SET(candidate, &set);
        }
    }
    const std::string tasks =
        "/proc/" + (process == 0 ? std::string("self") : std::to_string(process)) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        const pid_t thread = std::stoi(task.path().filename().string());
        if (::sched_setaffinity(thread, sizeof(set), &set) != 0) {
            throw std::runtime_error("cannot pin a process to core " + std::to_string(core));
        }
    }
}

double CpuMicroseconds(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("no CPU clock of process " + std::to_string(process));
    }
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double NowMicroseconds() {
    return std::chrono::duration<double, std::micro>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void Run(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    const int spawned =
        ::posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (spawned != 0 || ::waitpid(process, &status, 0) < 0 || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        throw std::runtime_error(command[0] + " failed");
    }
}

Child::Child(const std::function<void()>& body) : process_(::fork()) {
    if (process_ < 0) {
        throw std::runtime_error("cannot fork");
    }
    if (process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        int status = 0;
        try {
            body();
        } catch (const std::exception& exception) {
            std::fprintf(stderr, "%s\n", exception.what());
            status = 1;
        }
        ::_exit(status);
    }
}

Child::Child(Child&& other) noexcept : process_(std::exchange(other.process_, 0)) {}

Child::~Child() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
}

void Child::Join() {
    int status = 0;
    if (::waitpid(std::exchange(process_, 0), &status, 0) < 0 || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        throw std::runtime_error("a measuring process failed");
    }
}

}  // namespace zam_bench
