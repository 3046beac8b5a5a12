#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

#include "command.h"
#include "watch/notice.h"

namespace zamctl {

class NoticeQueue;
class Option;

/// Most notices that a watch can be told to end behind.
inline constexpr std::size_t kMaxNoticeCount = 1'000'000'000;

/// Prints changes as they come, until interrupted, until nobody reads them or until there were
/// enough.
class WatchCommand final : public Command {
public:
    /// `kinds` are watched, and those that the command line names.
    explicit WatchCommand(std::vector<NoticeKind> kinds = {}) : kinds_(std::move(kinds)) {}

    void Declare(Options& options) override;

    /// Declares `--count` alone, for a command that watches too.
    Option DeclareCount(Options& options);

    /// Its calls wait for whatever comes.
    std::chrono::milliseconds CallTimeout() const override { return std::chrono::milliseconds(0); }

    /// Throws `ReaderGone` when that is what ended it.
    void Run(Context& context) override;

private:
    Clock::Wakeup PrintNotices(Context& context, NoticeQueue& queue);
    void Print(Context& context, const Notice& notice);
    bool IsEnough() const { return count_ > 0 && printed_ >= count_; }

    std::vector<NoticeKind> kinds_;  ///< none: all
    std::size_t count_ = 0;          ///< 0: without end
    std::size_t printed_ = 0;
    std::map<NoticeKind, Clock::TimePoint> previous_;
};

}  // namespace zamctl
