#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zamctl::test {

/// A program that runs beside the test, read line by line. One thread at a time.
class RunningProgram {
public:
    /// `environment` takes the place of this process's own. Throws `std::system_error`.
    RunningProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment);
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    /// Kills it when it runs.
    ~RunningProgram();

    /// The next line, without its end; "(nothing)" when there is none within a minute or at all.
    std::string OutLine() { return Line(out_, outBuffer_); }
    std::string ErrLine() { return Line(err_, errBuffer_); }

    /// Closes the pipe that it writes to.
    void StopReading();

    void Signal(int signal) const;
    pid_t Pid() const noexcept { return process_; }

    /// Waits for the end: exit status, or 128 and the number of the signal. Kills it after a
    /// minute.
    int Wait();

private:
    static std::string Line(int descriptor, std::string& buffer);

    pid_t process_ = 0;
    int out_ = -1;
    int err_ = -1;
    std::string outBuffer_;
    std::string errBuffer_;
};

}  // namespace zamctl::test
