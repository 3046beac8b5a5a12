#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ping_pong.h"
#include "process.h"

namespace zam_bench {

struct Size {
    const char* name;
    std::size_t nodes;
    int repeats;  ///< in one round, so that a round takes some milliseconds
};

/// What is timed: `run` alone; `clear` takes down what it made.
struct Work {
    std::function<void()> run;
    std::function<void()> clear;
};

/// A process of its own for one kind of work, so that none runs on a heap that another has left in
/// pieces. `prepare` is called there.
class Subject {
public:
    Subject(std::string name, const Size& size, const std::function<Work()>& prepare);

    const std::string& Name() const noexcept { return name_; }

    /// ns per node. Throws `std::runtime_error` when the process is gone.
    double Round();

private:
    std::string name_;
    SocketPair sockets_;
    Child child_;
};

/// Times of each, measured in turns, round by round.
std::vector<std::vector<double>> RoundsInTurns(const std::vector<Subject*>& subjects);

/// Middle times of all, measured in turns.
std::vector<double> MeasureInTurns(std::vector<std::unique_ptr<Subject>>& subjects);

/// What `body` returns in a process of its own. Throws `std::runtime_error` when that fails.
double MeasureApart(const std::function<double()>& body);

/// Keeps memory that was freed in the process, so that the library is measured and not the kernel's
/// handing out of zeroed pages.
void KeepHeap();

}  // namespace zam_bench
