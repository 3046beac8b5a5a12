#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "data/history_file.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// Most lines that wait to be written, and most of those that the clients of one user may have
/// among them; a client whose line does not fit is told "Insufficient resources".
inline constexpr std::size_t kMaxWaitingLines = 1024;
inline constexpr std::size_t kMaxUserWaitingLines = kMaxWaitingLines / 4;

/// The history of events, synchronisations and state changes. Lines that come while others are
/// being written are written together, with one wait for the disk. On the loop thread only.
class History {
public:
    /// Told 0 when the line is on the disk, "Media error" when it could not be written,
    /// "Insufficient resources" when too many wait. Runs on the loop thread, perhaps before
    /// `Append` returns.
    using Done = std::function<void(int code)>;

    /// None of them is owned; all must outlive this object.
    History(asio::io_context& loop, zam_platform::WorkerPool& workers, const FolderFiles& files,
            std::size_t maxFileBytes = kMaxHistoryBytes);

    /// Appends a line, newline included. A failure is logged; `done` may be null. `user` is whose
    /// client caused the line; none is the service itself.
    void Append(std::string line, Done done, std::optional<uid_t> user = {});

    /// Writes what waits and takes no more. To be called when the workers have finished; the lines
    /// of a worker whose end the loop has not seen yet follow when it does.
    void Close();

private:
    struct Line {
        std::string text;
        Done done;
    };

    /// Why a line finds no place; empty when it has one.
    std::string Excess(std::optional<uid_t> user) const;
    void WriteWaiting();
    HistoryFile::Result Write(std::vector<Line>& lines) noexcept;
    void OnWritten(std::vector<Line> lines, const HistoryFile::Result& result);
    void FailWaiting(int code);
    static void Tell(const Line& line, int code) noexcept;

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    HistoryFile file_;  ///< used by the one job in flight, or on the loop thread when closed
    std::vector<Line> waiting_;
    std::map<uid_t, std::size_t> waitingOf_;  ///< how many of those are users'
    bool isWriting_ = false;
    bool isClosed_ = false;
};

}  // namespace zam_service
