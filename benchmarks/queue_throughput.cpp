#include <condition_variable>
#include <deque>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "process.h"
#include "qor/utils/blocking_queue.h"
#include "suites.h"

namespace zam_bench {
namespace {

constexpr int kRounds = 11;
constexpr int kValues = 1'000'000;

/// The plain way: a deque under a mutex, and a notification for every value.
class DequeLoop {
public:
    void Push(int value) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            values_.push_back(value);
        }
        notEmpty_.notify_all();
    }

    std::size_t Take() {
        std::deque<int> taken;
        std::unique_lock<std::mutex> lock(mutex_);
        notEmpty_.wait(lock, [this] { return !values_.empty(); });
        taken.swap(values_);
        lock.unlock();
        return taken.size();
    }

private:
    std::mutex mutex_;
    std::condition_variable notEmpty_;
    std::deque<int> values_;
};

class LibraryQueue {
public:
    void Push(int value) { queue_.Push(value); }

    std::size_t Take() {
        std::list<int> taken;
        queue_.PopAll(taken);
        const std::size_t count = taken.size();
        queue_.GiveBack(taken);
        return count;
    }

private:
    qor::utils::BlockingQueue<int> queue_;
};

/// Values per second from one thread to another.
template <typename Queue>
double ValuesPerSecond() {
    Queue queue;
    const double before = NowMicroseconds();
    std::thread producer([&queue] {
        for (int value = 0; value < kValues; ++value) {
            queue.Push(value);
        }
    });
    for (std::size_t taken = 0; taken < kValues;) {
        taken += queue.Take();
    }
    producer.join();
    return kValues / ((NowMicroseconds() - before) / 1e6);
}

}  // namespace

void MeasureQueues(Report& report) {
    std::vector<double> plain;
    std::vector<double> library;
    for (int round = 0; round < kRounds; ++round) {
        plain.push_back(ValuesPerSecond<DequeLoop>());
        library.push_back(ValuesPerSecond<LibraryQueue>());
    }
    report.Add({"queue.throughput", "per_second", "values/s", Median(library), Median(plain)});
}

}  // namespace zam_bench
