#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "qor/mutex.h"
#include "zam_platform/server/handler_room.h"
#include "zam_platform/server/log_context.h"

namespace zam_platform {

/// A few threads for what may block: writing to disk, hashing, parsing. Jobs of one lane run one
/// after the other in the order posted; lanes run side by side.
class WorkerPool {
public:
    /// `limit` bounds the jobs that are queued or running when a user's client wants one more.
    /// Those of one user may be a quarter of them, at least one. The service's own are not refused.
    WorkerPool(std::size_t threads, std::size_t lanes, std::size_t limit);
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Finishes every job that was posted.
    ~WorkerPool();

    /// A job of the service's own. False, with nothing queued, when `Finish` has been called or
    /// there is no memory. A job must not throw. From any thread.
    bool Post(std::size_t lane, std::function<void()> job);

    /// The same for a user's client: false too when the limit is reached or that user's share is
    /// taken.
    bool Post(std::size_t lane, uid_t user, std::function<void()> job);

    /// As `Post`: has `work()` run on a worker, and then `done(result)` on the thread of `loop`;
    /// the result is empty when the work threw for want of memory. What memory the way back takes
    /// is taken here, so that a job that was posted is done, come what may.
    template <typename Work, typename Done>
    bool PostTo(asio::io_context& loop, std::size_t lane, Work work, Done done) {
        return PostPlaced(loop, {.lane = lane, .user = {}}, std::move(work), std::move(done));
    }

    /// The same for a user's client.
    template <typename Work, typename Done>
    bool PostTo(asio::io_context& loop, std::size_t lane, uid_t user, Work work, Done done) {
        return PostPlaced(loop, {.lane = lane, .user = user}, std::move(work), std::move(done));
    }

    /// Blocks until every job posted before has run; takes no more from the moment it is called.
    void Finish();

private:
    /// Where a job stands, and whose share it takes.
    struct Place {
        std::size_t lane;
        std::optional<uid_t> user;
    };

    struct Job {
        std::function<void()> run;
        std::optional<uid_t> user;
        std::unique_ptr<Job> next;
    };

    /// Jobs that run one after the other. It stands in the line of those that are ready once, while
    /// it has jobs and none of them runs.
    struct Lane {
        std::unique_ptr<Job> first;
        Job* last = nullptr;
        Lane* nextReady = nullptr;
        bool isRunning = false;
    };

    bool Put(const Place& place, std::function<void()> job) QOR_EXCLUDES(mutex_);

    template <typename Work, typename Done>
    bool PostPlaced(asio::io_context& loop, const Place& place, Work work, Done done);

    void ReturnPlace(uid_t user) QOR_REQUIRES(mutex_);
    void Run() QOR_EXCLUDES(mutex_);
    /// Waits for the next job; null at the end.
    std::unique_ptr<Job> Take(Lane*& lane) QOR_EXCLUDES(mutex_);
    void MakeReady(Lane& lane) QOR_REQUIRES(mutex_);
    void Join() QOR_EXCLUDES(mutex_);

    const std::size_t limit_;
    qor::Mutex mutex_;
    std::condition_variable changed_;
    std::vector<Lane> lanes_ QOR_GUARDED_BY(mutex_);
    Lane* firstReady_ QOR_GUARDED_BY(mutex_) = nullptr;
    Lane* lastReady_ QOR_GUARDED_BY(mutex_) = nullptr;
    std::size_t jobs_ QOR_GUARDED_BY(mutex_) = 0;  ///< queued or running
    std::map<uid_t, std::size_t> ofUsers_ QOR_GUARDED_BY(mutex_);
    bool isFinished_ QOR_GUARDED_BY(mutex_) = false;
    bool isEnding_ QOR_GUARDED_BY(mutex_) = false;
    std::vector<std::thread> threads_;
};

template <typename Work, typename Done>
bool WorkerPool::PostPlaced(asio::io_context& loop, const Place& place, Work work, Done done) {
    struct Errand {
        Errand(Work errandWork, Done errandDone)
            : work(std::move(errandWork)), done(std::move(errandDone)) {}

        Work work;
        Done done;
        std::optional<std::invoke_result_t<Work&>> result;
        HandlerRoom room;
    };
    const auto run = [&loop, user = place.user](std::shared_ptr<Errand>& errand) {
        Errand& own = *errand;
        const LogsForUser logsForUser(user);
        try {
            own.result.emplace(own.work());
        } catch (const std::bad_alloc&) {
            own.result.reset();
        }
        // Nothing of the loop's is destroyed here: the errand goes along.
        asio::post(loop, InRoom(own.room, [errand = std::move(errand), user] {
                       const LogsForUser logsForUserHere(user);
                       errand->done(std::move(errand->result));
                   }));
    };
    try {
        auto errand = std::make_shared<Errand>(std::move(work), std::move(done));
        return Put(place, [run, errand = std::move(errand)]() mutable { run(errand); });
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace zam_platform
