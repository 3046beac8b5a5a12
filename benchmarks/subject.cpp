#include "subject.h"

#include <malloc.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "report.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 7;

/// The C library puts off part of the work of freeing small blocks until the next large allocation,
/// which must not fall into what is measured next.
void SettleHeap() {
    constexpr std::size_t kLargeBytes = 65'536;
    const std::vector<char> large(kLargeBytes);
}

void Serve(int socket, const Size& size, const Work& work) {
    char start = 0;
    while (::read(socket, &start, 1) == 1) {
        double time = 0;
        for (int repeat = 0; repeat < size.repeats; ++repeat) {
            const double before = NowMicroseconds();
            work.run();
            time += NowMicroseconds() - before;
            work.clear();
            SettleHeap();
        }
        time = time * 1000 / size.repeats / static_cast<double>(size.nodes);
        if (::write(socket, &time, sizeof time) != sizeof time) {
            return;
        }
    }
}

}  // namespace

Subject::Subject(std::string name, const Size& size, const std::function<Work()>& prepare)
    : name_(std::move(name)), sockets_(MakeSocketPair()), child_([&] {
          sockets_.client.Reset();
          Serve(sockets_.server.Get(), size, prepare());
      }) {
    sockets_.server.Reset();
}

double Subject::Round() {
    const char start = 'r';
    double time = 0;
    if (::write(sockets_.client.Get(), &start, 1) != 1 ||
        ::read(sockets_.client.Get(), &time, sizeof time) != sizeof time) {
        throw std::runtime_error(name_ + " ended before its time");
    }
    return time;
}

std::vector<std::vector<double>> RoundsInTurns(const std::vector<Subject*>& subjects) {
    std::vector<std::vector<double>> times(subjects.size());
    for (int round = -1; round < kRounds; ++round) {  // the first is for warming up
        for (std::size_t index = 0; index < subjects.size(); ++index) {
            const double time = subjects[index]->Round();
            if (round >= 0) {
                times[index].push_back(time);
            }
        }
    }
    return times;
}

std::vector<double> MeasureInTurns(std::vector<std::unique_ptr<Subject>>& subjects) {
    std::vector<Subject*> all;
    for (const auto& subject : subjects) {
        all.push_back(subject.get());
    }
    std::vector<double> medians;
    medians.reserve(all.size());
    for (std::vector<double>& times : RoundsInTurns(all)) {
        medians.push_back(Median(std::move(times)));
    }
    return medians;
}

double MeasureApart(const std::function<double()>& body) {
    SocketPair sockets = MakeSocketPair();
    Child child([&] {
        sockets.client.Reset();
        const double value = body();
        if (::write(sockets.server.Get(), &value, sizeof value) != sizeof value) {
            throw std::runtime_error("nobody takes what was measured");
        }
    });
    sockets.server.Reset();
    double value = 0;
    const bool isRead = ::read(sockets.client.Get(), &value, sizeof value) == sizeof value;
    child.Join();
    if (!isRead) {
        throw std::runtime_error("a measuring process gave no result");
    }
    return value;
}

void KeepHeap() {
    constexpr int kBytes = 1 << 30;
    mallopt(M_TRIM_THRESHOLD, kBytes);
    mallopt(M_MMAP_THRESHOLD, kBytes);
}

}  // namespace zam_bench
