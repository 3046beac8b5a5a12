#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zam_connector::test {

/// A process with observers (observing_client.cpp), and what they have been told. Its standard
/// error goes to a file, so that its log does not.
class ObservingProcess {
public:
    struct Observer {
        std::string kind;
        std::vector<std::string> values;
    };

    /// Returns when all observers are subscribed. With `drops` it gives its subscribers up when it
    /// is asked to end.
    ObservingProcess(int observers, const std::string& errorFile, bool drops = false);
    ObservingProcess(const ObservingProcess&) = delete;
    ObservingProcess& operator=(const ObservingProcess&) = delete;

    /// Kills it when it still runs.
    ~ObservingProcess();

    pid_t Pid() const noexcept { return process_; }

    /// Ends with SIGKILL, as a crash would.
    void Kill();

    /// Asks it to end; its exit status, 128 and a signal's number, or -1 when it does not end.
    int Stop();

    /// Waits until `isEnough` is true of all observers by their numbers; false when time runs out.
    bool WaitUntil(const std::function<bool(const std::map<int, Observer>&)>& isEnough);

    /// All observers that were told something.
    std::map<int, Observer> Observers();

    /// A line that is no call of an observer, "gone" for example.
    bool Said(const std::string& line);

private:
    void Read();

    pid_t process_ = 0;
    int input_ = -1;
    int output_ = -1;
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int, Observer> observers_;
    std::vector<std::string> said_;
    bool ended_ = false;
};

}  // namespace zam_connector::test
