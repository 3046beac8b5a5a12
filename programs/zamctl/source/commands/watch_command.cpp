#include "commands/watch_command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <ostream>

#include "command_set.h"
#include "nearest.h"
#include "times.h"
#include "watch/observation.h"

namespace zamctl {
namespace {

std::vector<std::string> NamesOf(const std::vector<NoticeKind>& kinds) {
    std::vector<std::string> names;
    names.reserve(kinds.size());
    for (const NoticeKind kind : kinds) {
        names.push_back(NoticeKindName(kind));
    }
    return names;
}

void AddKind(std::vector<NoticeKind>& kinds, const std::string& name) {
    const std::optional<NoticeKind> kind = ParseNoticeKind(name);
    if (!kind) {
        throw UsageError(fmt::format("KIND: '{}' cannot be watched{}", name,
                                     SuggestName(name, NamesOf(NoticeKinds()), "kinds")));
    }
    if (std::find(kinds.begin(), kinds.end(), *kind) == kinds.end()) {
        kinds.push_back(*kind);
    }
}

}  // namespace

void WatchCommand::Declare(Options& options) {
    const std::vector<std::string> names = NamesOf(NoticeKinds());
    options
        .Values(
            "KIND", "KIND", [this](const std::string& name) { AddKind(kinds_, name); },
            fmt::format("All, or some of: {}", fmt::join(names, ", ")))
        .Offers(OfferWords(names));
    DeclareCount(options);
}

Option WatchCommand::DeclareCount(Options& options) {
    return options.Number(
        "--count", "N", {1, kMaxNoticeCount}, [this](std::uint64_t value) { count_ = value; },
        "End behind so many changes");
}

void WatchCommand::Run(Context& context) {
    const std::vector<NoticeKind> kinds = kinds_.empty() ? NoticeKinds() : kinds_;
    const ConnectorInterfaces connector = context.Connector();
    context.clock.CatchInterrupt();
    context.clock.EndWithReader();
    const Clock::TimePoint start = context.clock.Now();
    NoticeQueue queue(context.clock);
    std::optional<Observation> observation;
    observation.emplace(context, connector, kinds, queue);
    if (!context.output.IsQuiet()) {
        context.err << fmt::format("watching {}\n", fmt::join(NamesOf(kinds), ", ")) << std::flush;
    }
    // What comes is waited for without limit.
    context.clock.LimitRun({}, "", kExitDone);
    const Clock::Wakeup end = PrintNotices(context, queue);
    // Before the summary, behind which no notice may come.
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

void DeclareWatch(CommandSet& commands) {
    commands.Add("watch", "Print changes as they come, until interrupted",
                 std::make_shared<WatchCommand>());
}

}  // namespace zamctl
