#include "client/shared_channel.h"

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <utility>

#include "client/answer_head.h"
#include "client/offers.h"
#include "shared/cpu_share.h"
#include "shared/pause.h"
#include "shared/preemption.h"
#include "shared/shared_pages.h"
#include "shared/step.h"
#include "zam_platform/report.h"

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSourceFile[] = "shared_channel";

bool IsGone(const PlatformError& error) noexcept {
    return error.Status() == kStatusBroken || error.Status() == kStatusUnavailable;
}

}  // namespace

SharedChannel::SharedChannel(UniqueFd socket, const SessionToken& token, ProcessPolling& process,
                             std::chrono::milliseconds frameTimeout) noexcept
    : SharedChannel(std::move(socket), token, ClientPolling(), process, frameTimeout) {
    isOnAnyCpu_ = false;
}

SharedChannel::SharedChannel(UniqueFd socket, const SessionToken& token,
                             const ClientPolling& polling, ProcessPolling& process,
                             std::chrono::milliseconds frameTimeout) noexcept
    : socket_(std::move(socket), token, frameTimeout), polling_(polling), process_(process) {}

bool SharedChannel::Send(const OutgoingFrame& frame, const Deadline& deadline) {
    way_ = Way::Socket;
    if (frame.prelude.kind != FrameKind::Call) {
        number_ = frame.prelude.callNumber;
        return socket_.Send(frame, deadline);
    }
    const auto now = Clock::now();
    polling_.Begin(now);
    if (polling_.IsHot() && (isOnAnyCpu_ || HasCpuForPolling(now))) {
        if (!memory_.requests && mayAsk_ && backoff_.Allows(now) && process_.failed.Allows(now) &&
            !AskForMemory(deadline)) {
            return false;
        }
        if (memory_.requests) {
            const std::uint64_t polling = memory_.answers->polling.load();
            if (polling == kPolling && knownEnds_ == SocketChannel::Ended() && Fits(frame) &&
                process_.leave.Allows(now)) {
                return SendThroughMemory(frame, deadline);
            }
            DropGivenUp(now);
        }
    } else if (memory_.requests && now >= nextGlance_) {
        DropGivenUp(now);
    }
    return SendThroughSocket(frame, deadline);
}

bool SharedChannel::SendThroughSocket(OutgoingFrame frame, const Deadline& deadline) {
    number_ = frame.prelude.callNumber;
    knownEnds_ = SocketChannel::Ended();
    if (hasAgreed_) {
        frame.prelude.flags |= Hints();
    }
    return socket_.Send(frame, deadline);
}

bool SharedChannel::Fits(const OutgoingFrame& frame) const noexcept {
    return SlotRoom(frame.prelude) <= kRequestSlotBytes;
}

std::uint32_t SharedChannel::Hints() const noexcept {
    const int cpu = ::sched_getcpu();
    const bool isKnown = cpu >= 0 && cpu < std::numeric_limits<std::uint16_t>::max();
    return CallHints{.gap = EncodeGap(polling_.Gap()),
                     .cpu = static_cast<std::uint16_t>(isKnown ? cpu + 1 : 0)}
        .Flags();
}

bool SharedChannel::SendThroughMemory(const OutgoingFrame& frame, const Deadline& deadline) {
    number_ = frame.prelude.callNumber;
    way_ = Way::Memory;
    Prelude prelude = frame.prelude;
    prelude.flags |= Hints();
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    EncodePrelude(prelude, head.data());
    RequestPages& pages = *memory_.requests.operator->();
    Reach(Step::ClientWrites);
    std::size_t offset = WriteSlot(pages.slot.data(), 0, head.data(), head.size());
    offset = WriteSlot(pages.slot.data(), offset, frame.fixed, prelude.fixedBytes);
    WriteSlot(pages.slot.data(), offset, frame.arena, prelude.arenaBytes);
    Reach(Step::ClientWaits);
    pages.waiting.store(number_);
    Reach(Step::ClientAsks);
    pages.request.store(number_);
    Reach(Step::ClientLooksWhoPolls);
    if (memory_.answers->polling.load() == kPolling) {
        return true;
    }
    // The service looks no more, or has looked once more behind that: then this comes too late and
    // is passed over.
    const OutgoingFrame look{.prelude = {.kind = FrameKind::Look, .callNumber = number_}};
    Reach(Step::ClientRings);
    return socket_.Send(look, deadline) || memory_.answers->taken.load() == number_;
}

bool SharedChannel::Receive(IncomingFrame& frame, const Deadline& deadline) {
    if (way_ == Way::Socket) {
        ReceiveThroughSocket(frame, deadline);
        if (frame.kind == FrameKind::Answer) {
            polling_.End(Clock::now(), false);
        }
        return true;
    }
    if (AwaitInMemory()) {
        TakeFromMemory(frame);
        ++use_.memoryCalls;
        polling_.End(Clock::now(), true);
        return true;
    }
    Reach(Step::ClientStopsWaiting);
    memory_.requests->waiting.store(0);
    Reach(Step::ClientLooksAgain);
    if (IsAnswered()) {
        mayHaveLook_ = true;
        TakeFromMemory(frame);
        // The service may see the connection's end before its look has been read.
        Reach(Step::ClientTellsThatItHas);
        memory_.requests->waiting.store(number_);
    } else {
        try {
            Reach(Step::ClientSleeps);
            if (!ReceiveBehindLooks(frame, deadline)) {
                return false;
            }
        } catch (const PlatformError& error) {
            if (!IsGone(error)) {
                throw;
            }
            // Who reads a byte of a request says so before, and who closes a connection reads none
            // of it later. One that this side has shut down says nothing of that: its call is ended
            // by whoever did so, and goes nowhere else.
            Reach(Step::ClientJudgesEnd);
            if (memory_.answers->taken.load() != number_) {
                return false;
            }
            if (!IsAnswered()) {
                throw;
            }
            TakeFromMemory(frame);  // its last deed
            // Where this side has shut the connection down, the service is still there.
            memory_.requests->waiting.store(number_);
        }
    }
    ++use_.memoryCalls;
    polling_.End(Clock::now(), false);
    return true;
}

void SharedChannel::ReceiveThroughSocket(IncomingFrame& frame, const Deadline& deadline) {
    if (mayHaveLook_) {
        ReceiveBehindLooks(frame, deadline);
    } else {
        socket_.Receive(frame, deadline);
    }
}

bool SharedChannel::IsAnswered() const noexcept {
    return memory_.answers->answer.load() == number_;
}

bool SharedChannel::AwaitInMemory() noexcept {
    PollingLeave& leave = process_.leave;
    const auto begin = Clock::now();
    const Nanoseconds limit = polling_.SpinLimit(leave.Cap());
    auto last = begin;
    for (;;) {
        Reach(Step::ClientLooks);
        if (IsAnswered()) {
            leave.EndPoll(last, last - begin, true);
            return true;
        }
        Pause();
        const auto now = Clock::now();
        const bool isPreempted = leave.IsHole(now - last) && HasBeenPreempted(now - last) &&
                                 leave.NoticeHole(now, now - last);
        last = now;
        if (isPreempted || now - begin >= limit) {
            break;
        }
    }
    leave.EndPoll(last, last - begin, false);
    ++use_.vainPolls;
    use_.vainTime += last - begin;
    return false;
}

void SharedChannel::TakeFromMemory(IncomingFrame& frame) {
    Reach(Step::ClientTakes);
    const SharedWord* const slot = memory_.answers->slot.data();
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    std::size_t offset = ReadSlot(slot, 0, head.data(), head.size());
    const Prelude prelude = ReadHead(head.data());
    CheckAnswer(prelude, frame);
    if (SlotRoom(prelude) > kAnswerSlotBytes) {
        throw PlatformError(kStatusProtocol, fmt::format("answer of {} bytes in a slot of {}",
                                                         prelude.FrameBytes(), kAnswerSlotBytes));
    }
    offset = ReadSlot(slot, offset, frame.fixed, prelude.fixedBytes);
    if (prelude.arenaBytes != 0) {
        frame.arena->used = prelude.arenaBytes;
        ReadSlot(slot, offset, frame.arena->base, prelude.arenaBytes);
    }
    frame.status = prelude.status;
}

Prelude SharedChannel::ReceiveHeadBehindLooks(const Deadline& deadline, PassedFiles* files) {
    for (;;) {
        const Prelude prelude = socket_.ReceiveHead(deadline, files);
        if (prelude.kind != FrameKind::Look) {
            mayHaveLook_ = false;  // it would have come before
            return prelude;
        }
        const bool isAwaited = way_ == Way::Memory && prelude.callNumber == number_;
        if (prelude.callNumber <= lastLook_ || prelude.callNumber > number_ ||
            prelude.FrameBytes() != kPreludeBytes) {
            throw PlatformError(kStatusProtocol,
                                fmt::format("look at call {} while waiting for call {}",
                                            prelude.callNumber, number_));
        }
        lastLook_ = prelude.callNumber;
        if (isAwaited) {
            return prelude;
        }
    }
}

bool SharedChannel::ReceiveBehindLooks(IncomingFrame& frame, const Deadline& deadline) {
    const Prelude prelude = ReceiveHeadBehindLooks(deadline);
    if (prelude.kind != FrameKind::Look) {
        socket_.ReceiveBody(prelude, frame, deadline);
        return true;
    }
    if (IsAnswered()) {
        TakeFromMemory(frame);
        return true;
    }
    // The service gave the memory up in between, and sends the look back.
    if (memory_.answers->polling.load() == kGivenUp && memory_.answers->taken.load() != number_) {
        return false;
    }
    throw PlatformError(kStatusProtocol,
                        fmt::format("look at call {}, which is not answered", number_));
}

bool SharedChannel::AskForMemory(const Deadline& deadline) {
    try {
        if (!use_.offers && !AskForOffers(*this, number_, deadline)) {
            return false;
        }
        if ((*use_.offers & kOfferSharedMemory) == 0) {
            mayAsk_ = false;
            return true;
        }
        const OutgoingFrame request{
            .prelude = {.kind = FrameKind::MemoryRequest, .callNumber = number_, .flags = Hints()}};
        if (!socket_.Send(request, deadline)) {
            return false;
        }
        TakeGrant(deadline);
        return true;
    } catch (const PlatformError& error) {
        if (error.Status() == kStatusTimeout && deadline && Clock::now() >= *deadline) {
            throw;  // the call's own time, which says nothing about memory
        }
        if (!IsGone(error)) {
            BackOff(error.what());  // the connection ends with it, and the next one may as well
        }
    } catch (const std::bad_alloc&) {
        BackOff("out of memory");
    }
    return false;
}

void SharedChannel::TakeGrant(const Deadline& deadline) {
    MemoryGrant grant{};
    IncomingFrame answer{.kind = FrameKind::MemoryAnswer,
                         .callNumber = number_,
                         .fixed = &grant,
                         .fixedBytes = sizeof(grant)};
    PassedFiles files;
    socket_.ReceiveBody(ReceiveHeadBehindLooks(deadline, &files), answer, deadline);
    if (answer.status != kStatusOk) {
        backoff_.Refused(Clock::now());
        return;
    }
    try {
        if (grant.requestSlotBytes != kRequestSlotBytes ||
            grant.answerSlotBytes != kAnswerSlotBytes) {
            throw PlatformError(
                kStatusProtocol,
                fmt::format("slots of {} and {} bytes, not {} and {}", grant.requestSlotBytes,
                            grant.answerSlotBytes, kRequestSlotBytes, kAnswerSlotBytes));
        }
        memory_ = MapClientMemory(files[0], files[1]);
        hasAgreed_ = true;
        use_.hasMemory = true;
        nextGlance_ = Clock::now() + process_.glancePeriod;
        process_.leave.NoteRoundTrip(polling_.SocketRoundTrip());
        polling_.SetBreakEven(process_.leave.BreakEven());
        backoff_.Granted(Clock::now());
        process_.failed = {};
        return;
    } catch (const PlatformError& error) {
        if (error.Status() == kStatusResources) {
            BackOff(error.what());
        } else {
            CountFailure(error.what());  // this service's, and nobody else's
        }
    } catch (const std::bad_alloc&) {
        BackOff("out of memory");
    }
    mayAsk_ = false;
}

void SharedChannel::DropGivenUp(TimePoint now) noexcept {
    nextGlance_ = now + process_.glancePeriod;
    if (memory_.answers->polling.load() == kGivenUp) {
        memory_ = {};
        use_.hasMemory = false;
        backoff_.Lost(now);
    }
}

void SharedChannel::BackOff(std::string_view why) noexcept {
    process_.failed.Refused(Clock::now());
    CountFailure(why);
}

void SharedChannel::CountFailure(std::string_view why) noexcept {
    process_.failures.Update([](std::uint64_t failures) { return failures + 1; });
    ReportText(zor::logger::kLevelTrace, kSourceFile, "CountFailure", [this, why] {
        return fmt::format("no shared memory, failure {}: {}", process_.failures.Get(), why);
    });
}

bool SharedChannel::HasMemory() const noexcept {
    return memory_.answers && memory_.answers->polling.load() != kGivenUp;
}

void SharedChannel::Abandon() noexcept {
    memory_.requests.Abandon();
    memory_.answers.Abandon();
    socket_.Abandon();
}

}  // namespace zam_platform
