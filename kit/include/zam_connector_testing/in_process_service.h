#pragma once

#include <memory>
#include <string>

namespace zam_connector::testing {

/// A connector service of one's own inside the test's process: the same service that
/// `zam_connectord` runs, on a thread, over a runtime directory and a data folder in a private
/// temporary folder that goes with this object. Point clients at it by setting `ZAM_RUNTIME_DIR`
/// to `RuntimeDirectory()` before they are made. What the service logs goes to the process's root
/// logger. One thread at a time.
///
/// Link `zam::in_process_service`, a library of its own: whoever links it has the whole service.
class InProcessService {
public:
    /// Prepares the folders; starts nothing. Throws `std::runtime_error`.
    InProcessService();
    InProcessService(const InProcessService&) = delete;
    InProcessService& operator=(const InProcessService&) = delete;

    /// Stops the service, and removes the folders.
    ~InProcessService();

    /// Starts the service; clients can connect when it returns. Throws `std::runtime_error` with
    /// what is wrong. Does nothing when it runs.
    void Start();

    /// Ends the service in order, as SIGTERM does: what clients were promised is on the disk, and
    /// the calls that wait fail. Does nothing when it does not run.
    void Stop();

    /// `Stop` and `Start`. The data folder stays as it is.
    void Restart();

    bool IsRunning() const noexcept;

    const std::string& RuntimeDirectory() const noexcept;
    const std::string& DataDirectory() const noexcept;

    /// Writes a file of the data folder: under a temporary name, then renamed. `name` may be in a
    /// sub-folder, which is made when it is missing. Throws `std::runtime_error`.
    void WriteData(const std::string& name, const std::string& content) const;

    /// Content of a file of the data folder; empty when there is none.
    std::string ReadData(const std::string& name) const;

private:
    struct Parts;

    std::unique_ptr<Parts> parts_;
};

}  // namespace zam_connector::testing
