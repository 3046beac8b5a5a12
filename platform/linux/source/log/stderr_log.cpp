#include "log/stderr_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace zam_platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// For a thread that must not wait: others hold the lock for microseconds, unless they wait for a
/// reader.
constexpr milliseconds kShortWait{1};

/// Until when a line that is begun now may wait for room.
steady_clock::time_point EndOf(StderrLog::Patience patience) noexcept {
    return patience == StderrLog::Patience::Never ? steady_clock::time_point::min()
                                                  : steady_clock::now() + StderrLog::kLongestWait;
}

/// One of several counts in a text.
void PutCount(BoundedText& out, std::uint64_t count, std::string_view what) noexcept {
    if (count != 0) {
        out.Put(out.Size() == 0 ? "left out: " : ", ");
        out.Put(static_cast<long long>(count));
        out.Put(what);
    }
}

}  // namespace

bool StderrLog::Write(const LogRecord& record, Patience patience) noexcept {
    const Time end = EndOf(patience);
    if (!Lock(patience)) {
        lost_.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    BoundedText body(buffer_.data() + kFrontBytes, kMaxLogBodyBytes);
    PutBody(body, record);
    // What was not written is not remembered either: the next of its kind is tried.
    if (!IsLeftOut(record.level, body.View()) && Put(body.Size(), end)) {
        folding_.Remember(body.View(), clock_());
    }
    const bool hasLeftOut = HasLeftOut();
    lock_.Unlock();
    return hasLeftOut;
}

void StderrLog::TellLeftOut(Patience patience) noexcept {
    const Time end = EndOf(patience);
    if (!Lock(patience)) {
        return;
    }
    if (HasLeftOut()) {
        Put(0, end);
    }
    lock_.Unlock();
}

void StderrLog::LockForFork() noexcept {
    while (!lock_.Lock(kLongestWait)) {
    }
}

void StderrLog::UnlockInChild() noexcept {
    ForgetLeftOut(lost_.load(std::memory_order_relaxed));
    lock_.Unlock();
}

void StderrLog::ForgetLeftOut(std::uint64_t lost) noexcept {
    repeated_ = 0;
    beyondShare_ = 0;
    lost_.fetch_sub(lost, std::memory_order_relaxed);
}

bool StderrLog::Lock(Patience patience) noexcept {
    return lock_.Lock(patience == Patience::Never ? kShortWait : kLongestWait);
}

bool StderrLog::HasLeftOut() const noexcept {
    return repeated_ != 0 || beyondShare_ != 0 || lost_.load(std::memory_order_relaxed) != 0;
}

bool StderrLog::IsLeftOut(int level, std::string_view body) noexcept {
    const Time now = clock_();
    if (folding_.IsRepeated(body, now)) {
        ++repeated_;
        return true;
    }
    // Who has asked for more than failures is to see it all.
    if (level >= zor::logger::kLevelError && share_ != nullptr && !share_->Take(now)) {
        ++beyondShare_;
        return true;
    }
    return false;
}

/// Writes the record whose body stands in the buffer behind `kFrontBytes`, if there is one, and in
/// front of it what was left out until now.
bool StderrLog::Put(std::size_t bodyBytes, Time end) noexcept {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    std::array<char, kFrontBytes> bytes;
    BoundedText front(bytes.data(), bytes.size());
    if (output_.IsTorn()) {
        front.Put('\n');
    }
    const std::uint64_t lost = lost_.load(std::memory_order_relaxed);
    if (HasLeftOut()) {
        PutLeftOut(front, time, lost);
    }
    if (bodyBytes != 0) {
        PutHead(front, time, ::getpid());
    }
    char* const begin = buffer_.data() + kFrontBytes - front.Size();
    std::memcpy(begin, front.View().data(), front.Size());
    std::size_t size = front.Size() + bodyBytes;
    if (bodyBytes != 0) {
        begin[size++] = '\n';
    }
    if (!output_.Write({begin, size}, end)) {
        lost_.fetch_add(bodyBytes == 0 ? 0 : 1, std::memory_order_relaxed);
        return false;
    }
    ForgetLeftOut(lost);
    return true;
}

void StderrLog::PutLeftOut(BoundedText& out, const timespec& time,
                           std::uint64_t lost) const noexcept {
    std::array<char, 256> bytes;
    BoundedText text(bytes.data(), bytes.size());
    PutCount(text, repeated_, " repeated");
    PutCount(text, beyondShare_, " beyond a user's share");
    PutCount(text, lost, " that could not be written");
    PutHead(out, time, ::getpid());
    PutBody(out, {.level = zor::logger::kLevelWarning,
                  .file = "stderr_log",
                  .line = __LINE__,
                  .function = "PutLeftOut",
                  .text = text.View()});
    out.Put('\n');
}

}  // namespace zam_platform
