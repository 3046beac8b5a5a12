#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "command.h"
#include "watch/notice.h"

namespace zamctl {

class NoticeQueue;

/// Most notices that a watch can be told to end behind.
inline constexpr std::size_t kMaxNoticeCount = 1'000'000'000;

/// Prints changes as they come, until interrupted, until nobody reads them or until there were
/// enough.
class WatchCommand final : public Command {
public:
    struct Options {
        std::vector<NoticeKind> kinds;  ///< none: all
        std::size_t count = 0;          ///< 0: without end
    };

    explicit WatchCommand(Options options);

    /// Throws `ReaderGone` when that is what ended it.
    void Run(Context& context) override;

private:
    Clock::Wakeup PrintNotices(Context& context, NoticeQueue& queue);
    void Print(Context& context, const Notice& notice);
    bool IsEnough() const { return options_.count > 0 && printed_ >= options_.count; }

    Options options_;
    std::size_t printed_ = 0;
    std::map<NoticeKind, Clock::TimePoint> previous_;
};

}  // namespace zamctl
