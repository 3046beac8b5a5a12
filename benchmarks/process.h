#pragma once

#include <sys/types.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace zam_bench {

/// Where a client and its server run; -1 stands for any core.
struct Placement {
    const char* name;
    int client;
    int server;
};

inline constexpr std::array<Placement, 3> kPlacements = {
    {{"one_core", 0, 0}, {"two_cores", 0, 1}, {"unpinned", -1, -1}}};

/// Pins every thread of a process (0: this one) to a core, or frees it to run on all for -1.
void Pin(pid_t process, int core);

/// CPU time that a process has used, user and system, in microseconds.
double CpuMicroseconds(pid_t process);

double NowMicroseconds();

/// Runs a program, found along `PATH`, to its end; what it prints on stdout is thrown away. Throws
/// `std::runtime_error` unless it ended with status 0.
void Run(const std::vector<std::string>& command);

/// A forked process that runs `body` and ends; killed, if it still runs, and reaped at the end of
/// this object's life. It does not outlive the thread that made it.
class Child {
public:
    explicit Child(const std::function<void()>& body);
    Child(Child&& other) noexcept;
    Child& operator=(Child&&) = delete;
    ~Child();

    pid_t Pid() const noexcept { return process_; }

    /// Waits for its end; throws `std::runtime_error` unless it ended with status 0.
    void Join();

private:
    pid_t process_;
};

}  // namespace zam_bench
