#include "observing_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <system_error>

#include "service_fixture.h"

extern char** environ;

namespace zam_connector::test {
namespace {

struct Pipe {
    int read = -1;
    int write = -1;

    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
        read = ends[0];
        write = ends[1];
    }
};

}  // namespace

ObservingProcess::ObservingProcess(int observers, const std::string& errorFile, bool drops) {
    const Pipe in;
    const Pipe out;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.read, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.write, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    std::string words[] = {ZAM_OBSERVING_CLIENT, std::to_string(observers), "drop"};
    char* const arguments[] = {words[0].data(), words[1].data(), drops ? words[2].data() : nullptr,
                               nullptr};
    const int error =
        ::posix_spawn(&process_, words[0].c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in.read);
    ::close(out.write);
    input_ = in.write;
    output_ = out.read;
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), words[0]);
    }
    reader_ = std::thread([this] { Read(); });
    if (!Said("ready")) {
        ADD_FAILURE() << "a client did not subscribe; see " << errorFile;
    }
}

ObservingProcess::~ObservingProcess() {
    Kill();
    reader_.join();
    ::close(output_);
    if (input_ >= 0) {
        ::close(input_);
    }
}

void ObservingProcess::Kill() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
        process_ = 0;
    }
}

int ObservingProcess::Stop() {
    ::close(input_);
    input_ = -1;
    int status = 0;
    if (!Eventually([&] { return ::waitpid(process_, &status, WNOHANG) == process_; })) {
        return -1;
    }
    process_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool ObservingProcess::WaitUntil(
    const std::function<bool(const std::map<int, Observer>&)>& isEnough) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kBound, [&] { return isEnough(observers_) || ended_; }) &&
           isEnough(observers_);
}

std::map<int, ObservingProcess::Observer> ObservingProcess::Observers() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return observers_;
}

bool ObservingProcess::Said(const std::string& line) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto isThere = [&] { return std::find(said_.begin(), said_.end(), line) != said_.end(); };
    changed_.wait_for(lock, kBound, [&] { return isThere() || ended_; });
    return isThere();
}

void ObservingProcess::Read() {
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t size = ::read(output_, buffer, sizeof buffer);
        const std::lock_guard<std::mutex> lock(mutex_);
        if (size <= 0) {
            ended_ = true;
            changed_.notify_all();
            return;
        }
        text.append(buffer, static_cast<std::size_t>(size));
        for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
            const std::string line = text.substr(0, end);
            text.erase(0, end + 1);
            std::istringstream words(line);
            int number = 0;
            std::string kind;
            std::string value;
            if (words >> number >> kind >> value) {
                Observer& observer = observers_[number];
                observer.kind = kind;
                observer.values.push_back(value);
            } else {
                said_.push_back(line);
            }
        }
        changed_.notify_all();
    }
}

}  // namespace zam_connector::test
