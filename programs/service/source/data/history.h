#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "data/history_file.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// Most lines that wait to be written or have a place, and most of those that the clients of one
/// user may have among them; a client whose line does not fit is told "Insufficient resources".
inline constexpr std::size_t kMaxWaitingLines = 1024;
inline constexpr std::size_t kMaxUserWaitingLines = kMaxWaitingLines / 4;

/// Lines that are told in one handler of the loop: an answer takes some 5 us, and other users'
/// calls come between.
inline constexpr std::size_t kLinesToldAtOnce = 32;

/// The history of events, synchronisations and state changes. Lines that come while others are
/// being written are written together, with one wait for the disk. On the loop thread only.
class History {
public:
    /// Told 0 when the line is on the disk, "Media error" when it could not be written,
    /// "Insufficient resources" when too many wait or memory was wanting. Runs on the loop thread,
    /// perhaps before `Append` returns.
    using Done = std::function<void(int code)>;

    /// Room for one line of a user's client that is to come, for as long as the object lives. The
    /// history must outlive it.
    class Place {
    public:
        Place(Place&& other) noexcept
            : history_(std::exchange(other.history_, nullptr)), user_(other.user_) {}
        Place& operator=(Place&&) = delete;
        ~Place();

    private:
        friend class History;
        Place(History& history, uid_t user) noexcept : history_(&history), user_(user) {}

        History* history_;
        uid_t user_;
    };

    /// None of them is owned; all must outlive this object.
    History(asio::io_context& loop, zam_platform::WorkerPool& workers, const FolderFiles& files,
            std::size_t maxFileBytes = kMaxHistoryBytes);

    /// Appends a line, newline included. A failure is logged; `done` may be null. `user` is whose
    /// client caused the line; none is the service itself.
    void Append(std::string line, Done done, std::optional<uid_t> user = {});

    /// Keeps a place for a line, for what must not be done when its line finds none; empty, which
    /// is logged, when too many wait. Throws `std::bad_alloc`.
    std::optional<Place> Reserve(uid_t user);

    /// Appends the line that `place` was kept for. A failure is logged.
    void Append(std::string line, Done done, Place place);

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
    void Add(std::string line, Done done, std::optional<uid_t> user, bool hasPlace);
    static std::size_t CountOf(const std::map<uid_t, std::size_t>& counts, uid_t user);
    void WriteWaiting();
    HistoryFile::Result Write(std::vector<Line>& lines) noexcept;
    void OnWritten(const std::shared_ptr<std::vector<Line>>& lines,
                   const HistoryFile::Result& result);

    /// Tells the lines from the `next` one on what became of them, so many in one handler.
    void TellFrom(std::size_t next, const std::shared_ptr<std::vector<Line>>& lines,
                  std::size_t written, int failure);
    bool PostRest(std::size_t next, const std::shared_ptr<std::vector<Line>>& lines,
                  std::size_t written, int failure) noexcept;
    void FailWaiting(int code);
    static void Tell(const Line& line, int code) noexcept;

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    HistoryFile file_;  ///< used by the one job in flight, or on the loop thread when closed
    std::vector<Line> waiting_;
    std::map<uid_t, std::size_t> waitingOf_;  ///< how many of those are users'
    std::size_t places_ = 0;                  ///< kept for lines to come
    std::map<uid_t, std::size_t> placesOf_;
    bool isWriting_ = false;
    bool isClosed_ = false;
};

}  // namespace zam_service
