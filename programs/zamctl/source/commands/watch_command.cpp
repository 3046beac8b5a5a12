#include "commands/watch_command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <optional>
#include <ostream>

#include "times.h"
#include "watch/observation.h"

namespace zamctl {
namespace {

std::string KindList(const std::vector<NoticeKind>& kinds) {
    std::vector<std::string> names;
    names.reserve(kinds.size());
    for (const NoticeKind kind : kinds) {
        names.push_back(NoticeKindName(kind));
    }
    return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace

WatchCommand::WatchCommand(Options options) : options_(std::move(options)) {
    if (options_.kinds.empty()) {
        options_.kinds = NoticeKinds();
    }
}

void WatchCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    context.clock.CatchInterrupt();
    context.clock.EndWithReader();
    const Clock::TimePoint start = context.clock.Now();
    NoticeQueue queue(context.clock);
    std::optional<Observation> observation;
    observation.emplace(context, connector, options_.kinds, queue);
    if (!context.output.IsQuiet()) {
        context.err << fmt::format("watching {}\n", KindList(options_.kinds)) << std::flush;
    }
    const Clock::Wakeup end = PrintNotices(context, queue);
    observation.reset();
    if (!context.output.IsQuiet()) {
        context.err << fmt::format("{} {} in {}\n", printed_, printed_ == 1 ? "notice" : "notices",
                                   DurationText(context.clock.Now() - start))
                    << std::flush;
    }
    if (end == Clock::Wakeup::ReaderGone) {
        throw ReaderGone();
    }
}

Clock::Wakeup WatchCommand::PrintNotices(Context& context, NoticeQueue& queue) {
    for (;;) {
        while (const std::optional<Notice> notice = queue.Pop()) {
            Print(context, *notice);
            if (IsEnough()) {
                return Clock::Wakeup::Called;
            }
            if (!context.output.IsGood()) {
                // A reader that has gone shows at the pipe; a full disk does not.
                context.clock.Wake();
                return context.clock.WaitForWake();
            }
        }
        const Clock::Wakeup wakeup = context.clock.WaitForWake();
        if (wakeup != Clock::Wakeup::Called) {
            return wakeup;
        }
    }
}

void WatchCommand::Print(Context& context, const Notice& notice) {
    std::optional<std::chrono::nanoseconds> sincePrevious;
    if (const auto previous = previous_.find(notice.kind); previous != previous_.end()) {
        sincePrevious = notice.received - previous->second;
    }
    previous_[notice.kind] = notice.received;
    context.output.Result(NoticeLine(notice, sincePrevious), NoticeDocument(notice, sincePrevious));
    ++printed_;
}

}  // namespace zamctl
