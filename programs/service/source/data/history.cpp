#include "data/history.h"

#include <fmt/format.h>

#include <asio/post.hpp>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "common/log.h"
#include "lanes.h"
#include "result_codes.h"

namespace zam_service {
namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

constexpr char kSourceFile[] = "history";

}  // namespace

History::History(asio::io_context& loop, zam_platform::WorkerPool& workers,
                 const FolderFiles& files, std::size_t maxFileBytes)
    : loop_(loop), workers_(workers), file_(files, maxFileBytes) {}

History::Place::~Place() {
    if (history_ == nullptr) {
        return;
    }
    --history_->places_;
    const auto ofUser = history_->placesOf_.find(user_);
    if (--ofUser->second == 0) {
        history_->placesOf_.erase(ofUser);
    }
}

std::optional<History::Place> History::Reserve(uid_t user) {
    if (const std::string excess = Excess(user); !excess.empty()) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Reserve"), "no place for a line: {}",
            excess);
        return std::nullopt;
    }
    ++placesOf_[user];
    ++places_;
    return Place(*this, user);
}

void History::Append(std::string line, Done done, std::optional<uid_t> user) {
    Add(std::move(line), std::move(done), user, false);
}

void History::Append(std::string line, Done done, Place place) {
    const Place own = std::move(place);
    Add(std::move(line), std::move(done), own.user_, true);
}

void History::Add(std::string line, Done done, std::optional<uid_t> user, bool hasPlace) {
    Line next{.text = std::move(line), .done = std::move(done)};
    try {
        const std::string excess = isClosed_  ? "the service ends"
                                   : hasPlace ? std::string()
                                              : Excess(user);
        if (!excess.empty()) {
            Log(zor::logger::kLevelError, Here(kSourceFile, "Append"), "line dropped: {}", excess);
            Tell(next, kInsufficientResources);
            return;
        }
        std::size_t* const ofUser = user ? &waitingOf_[*user] : nullptr;
        waiting_.push_back(std::move(next));
        if (ofUser != nullptr) {
            ++*ofUser;
        }
    } catch (const std::bad_alloc&) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Append"), "line dropped: out of memory");
        Tell(next, kInsufficientResources);
        return;
    }
    if (!isWriting_) {
        WriteWaiting();
    }
}

std::string History::Excess(std::optional<uid_t> user) const {
    if (const std::size_t all = waiting_.size() + places_; all >= kMaxWaitingLines) {
        return fmt::format("{} lines wait, at most {} may", all, kMaxWaitingLines);
    }
    const std::size_t ofUser = user ? CountOf(waitingOf_, *user) + CountOf(placesOf_, *user) : 0;
    if (ofUser >= kMaxUserWaitingLines) {
        return fmt::format("{} lines of user {} wait, at most {} may", ofUser, *user,
                           kMaxUserWaitingLines);
    }
    return {};
}

std::size_t History::CountOf(const std::map<uid_t, std::size_t>& counts, uid_t user) {
    const auto found = counts.find(user);
    return found == counts.end() ? 0 : found->second;
}

void History::Close() {
    isClosed_ = true;
    if (!isWriting_) {
        WriteWaiting();
    }
}

void History::WriteWaiting() {
    if (waiting_.empty()) {
        return;
    }
    std::shared_ptr<std::vector<Line>> lines;
    try {
        lines = std::make_shared<std::vector<Line>>();
    } catch (const std::bad_alloc&) {
        FailWaiting(kInsufficientResources);
        return;
    }
    lines->swap(waiting_);
    waitingOf_.clear();
    isWriting_ = true;
    const auto write = [this, lines] { return Write(*lines); };
    if (isClosed_) {
        OnWritten(lines, write());
        return;
    }
    const bool posted =
        workers_.PostTo(loop_, kHistoryLane, write,
                        [this, lines](const std::optional<HistoryFile::Result>& result) {
                            // `Write` throws nothing.
                            OnWritten(lines, *result);
                        });
    if (!posted) {
        isWriting_ = false;
        lines->swap(waiting_);
        FailWaiting(kInsufficientResources);
    }
}

HistoryFile::Result History::Write(std::vector<Line>& lines) noexcept {
    try {
        std::vector<std::string> texts;
        texts.reserve(lines.size());
        for (Line& line : lines) {
            texts.push_back(std::move(line.text));
        }
        return file_.Append(texts);
    } catch (const std::bad_alloc&) {
        return {.written = 0, .error = "out of memory", .lacksMemory = true};
    }
}

void History::OnWritten(const std::shared_ptr<std::vector<Line>>& lines,
                        const HistoryFile::Result& result) {
    if (!result.error.empty()) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "OnWritten"), "{} lines lost: {}",
            lines->size() - result.written, result.error);
    }
    TellFrom(0, lines, result.written, result.lacksMemory ? kInsufficientResources : kMediaError);
}

void History::TellFrom(std::size_t next, const std::shared_ptr<std::vector<Line>>& lines,
                       std::size_t written, int failure) {
    for (std::size_t told = 0; next < lines->size(); ++next, ++told) {
        if (told >= kLinesToldAtOnce && !isClosed_ && PostRest(next, lines, written, failure)) {
            return;
        }
        Tell((*lines)[next], next < written ? kNoError : failure);
    }
    // What the answers have led to waits for them.
    isWriting_ = false;
    WriteWaiting();
}

/// False without memory: then the rest is told at once.
bool History::PostRest(std::size_t next, const std::shared_ptr<std::vector<Line>>& lines,
                       std::size_t written, int failure) noexcept {
    try {
        asio::post(loop_, [=, this] { TellFrom(next, lines, written, failure); });
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void History::FailWaiting(int code) {
    const std::vector<Line> lines = std::exchange(waiting_, {});
    waitingOf_.clear();
    Log(zor::logger::kLevelError, Here(kSourceFile, "FailWaiting"),
        "{} lines dropped: out of memory", lines.size());
    for (const Line& line : lines) {
        Tell(line, code);
    }
}

/// One that cannot go on for want of memory must not keep the others from being told.
void History::Tell(const Line& line, int code) noexcept {
    try {
        if (line.done) {
            line.done(code);
        }
    } catch (const std::bad_alloc&) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Tell"), "out of memory behind a line");
    }
}

}  // namespace zam_service
