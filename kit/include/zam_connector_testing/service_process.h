#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "zam_connector_testing/service_folders.h"

namespace zam_connector::testing {

/// A connector service of one's own: a child process that serves a data folder on a runtime
/// directory, both in a private temporary folder that goes with this object. Point clients at it
/// by setting `ZAM_RUNTIME_DIR` to `RuntimeDirectory()`. One thread at a time.
class ServiceProcess {
public:
    /// Prepares the folders; starts nothing. `program` is the path of `zam_connectord`. Throws
    /// `std::runtime_error`.
    explicit ServiceProcess(std::string program);
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /// Kills the process when it runs, and removes the folders.
    ~ServiceProcess();

    /// Starts the process, with more arguments behind its own, and returns when it takes calls.
    /// Throws `std::runtime_error` with what it wrote to stderr when it ends first or takes longer
    /// than 30 s. Does nothing when it runs.
    void Start(const std::vector<std::string>& arguments = {});

    /// Ends the process with SIGKILL, as a crash would; returns when it is gone.
    void Kill();

    /// Asks the process to end; returns its exit status, or 128 and the number of the signal that
    /// ended it. Kills it when it takes longer than 30 s.
    int Stop();

    bool IsRunning() const noexcept { return process_ > 0; }
    pid_t Pid() const noexcept { return process_; }

    const std::string& RuntimeDirectory() const noexcept { return folders_.RuntimeDirectory(); }
    const std::string& DataDirectory() const noexcept { return folders_.DataDirectory(); }

    /// Writes a file of the data folder: under a temporary name, then renamed. `name` may be in a
    /// sub-folder, which is made when it is missing. Throws `std::runtime_error`.
    void WriteData(const std::string& name, const std::string& content) const {
        folders_.WriteData(name, content);
    }

    /// Content of a file of the data folder; empty when there is none.
    std::string ReadData(const std::string& name) const { return folders_.ReadData(name); }

    /// What all processes that this object started have written to stderr.
    std::string Log() const;

private:
    int Wait(std::chrono::milliseconds limit);

    ServiceFolders folders_;
    std::string program_;
    pid_t process_ = 0;
};

}  // namespace zam_connector::testing
