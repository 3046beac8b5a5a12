#include <fmt/format.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "server/server_connection.h"
#include "server/slot_poller.h"
#include "shared/step.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/server/log_context.h"

/// Calls that come through memory, and the answers to them.

namespace zam_platform {

bool ServerConnection::HasRequest() const noexcept {
    Reach(Step::ServiceLooks);
    return slot_ != nullptr && slot_->RequestNumber() != memoryNumber_;
}

bool ServerConnection::HasUnservedRequest() const noexcept {
    return slot_ != nullptr && slot_->RequestNumber() == lastNumber_ + 1;
}

bool ServerConnection::HasTakenAnswer() const noexcept {
    if (slot_ == nullptr) {
        return takenNumber_ != 0 && takenNumber_ == lastNumber_ && !callPending_;
    }
    return slot_->IsTaken(lastNumber_) && !callPending_ && !HasUnservedRequest();
}

void ServerConnection::TellPolling(bool isPolling) noexcept {
    slot_->Tell(isPolling ? kPolling : kAsleep);
}

void ServerConnection::ServeFromMemory() {
    if (server_.isClosing_) {
        return;
    }
    const auto self = shared_from_this();
    const LogsForUser logsForUser(client_.user);
    Guard([this] {
        Prelude prelude;
        if (ReadFromMemory(prelude)) {
            Reach(Step::ServiceHandles);
            isServingMemory_ = true;
            HandleFrame(prelude, server_.poller_->Frame() + kPreludeBytes);
            isServingMemory_ = false;
            if (turn_) {
                server_.quiet_->OnServedFromMemory(*turn_, prelude.FrameBytes());
            }
        }
    });
}

bool ServerConnection::ReadFromMemory(Prelude& prelude) {
    const auto refuse = [this](std::string_view why, TransportStatus status = kStatusBadRequest) {
        Refuse(status, why, UnservedCall());
        return false;
    };
    const std::uint64_t number = slot_->RequestNumber();
    if (number != lastNumber_ + 1) {
        return refuse(fmt::format("request {} in shared memory, not {}", number, lastNumber_ + 1));
    }
    Reach(Step::ServiceTakes);
    slot_->Take(number);
    Reach(Step::ServiceReads);
    memoryNumber_ = number;
    unsigned char* const frame = server_.poller_->Frame();
    std::size_t offset = slot_->Read(0, frame, kPreludeBytes);
    const FrameFault fault = DecodePrelude(frame, prelude);
    if (fault != FrameFault::None) {
        return refuse(DescribeFault(fault, frame),
                      fault == FrameFault::Version ? kStatusVersion : kStatusBadRequest);
    }
    if (prelude.kind != FrameKind::Call || prelude.callNumber != number) {
        return refuse(fmt::format("frame {} of kind {} in shared memory, not call {}",
                                  prelude.callNumber, static_cast<unsigned>(prelude.kind), number));
    }
    if (!ServerSlot::FitsRequest(prelude)) {
        return refuse(fmt::format("frame of {} bytes in a slot of {}", prelude.FrameBytes(),
                                  kRequestSlotBytes));
    }
    unsigned char* const body = frame + kPreludeBytes;
    offset = slot_->Read(offset, body, prelude.fixedBytes);
    slot_->Read(offset, body + prelude.fixedBytes, prelude.arenaBytes);
    return CheckHead(prelude, body, std::size_t{prelude.fixedBytes} + prelude.arenaBytes);
}

bool ServerConnection::CheckMemoryFrame(const Prelude& prelude) {
    const auto refuse = [this](std::string_view why) {
        Refuse(kStatusBadRequest, why);
        return false;
    };
    if (!server_.poller_->IsOn()) {
        return refuse(fmt::format("frame kind {}, which was not offered",
                                  static_cast<unsigned>(prelude.kind)));
    }
    if (prelude.kind == FrameKind::Look) {
        if (!hasAgreed_) {
            return refuse("look at memory that is not shared");
        }
        if (prelude.fixedBytes != 0 || prelude.arenaBytes != 0) {
            return refuse(fmt::format("look of {} and {} bytes, not 0 and 0", prelude.fixedBytes,
                                      prelude.arenaBytes));
        }
        return true;
    }
    if (prelude.fixedBytes != 0 || prelude.arenaBytes != 0) {
        return refuse(fmt::format("memory request of {} and {} bytes, not 0 and 0",
                                  prelude.fixedBytes, prelude.arenaBytes));
    }
    if (callPending_ || slot_ != nullptr) {
        return refuse(slot_ != nullptr ? "second memory request"
                                       : "memory request while a call is in flight");
    }
    return true;
}

void ServerConnection::HandleLook(const Prelude& prelude) {
    if (prelude.callNumber <= lastNumber_) {
        return;  // served before the look came
    }
    if (slot_ == nullptr && prelude.callNumber == lastNumber_ + 1) {
        // The memory was given up before the request was there: it was not looked at.
        lastCallBytes_ = 0;  // its client has had that answer
        SendNow({.kind = FrameKind::Look, .callNumber = prelude.callNumber}, nullptr, nullptr);
        return;
    }
    if (slot_ == nullptr || prelude.callNumber != lastNumber_ + 1 ||
        slot_->RequestNumber() != prelude.callNumber) {
        Refuse(kStatusBadRequest,
               fmt::format("look at call {}, which is not in shared memory", prelude.callNumber));
        return;
    }
    ServeFromMemory();
}

void ServerConnection::HandleMemoryRequest(const Prelude& prelude) {
    lastCallBytes_ = 0;  // its client has had that answer
    const Prelude answer{.kind = FrameKind::MemoryAnswer, .callNumber = prelude.callNumber};
    if (!MakeSlot(CallHints::Of(prelude.flags))) {
        Prelude refusal = answer;
        refusal.status = kStatusQuota;
        SendNow(refusal, nullptr, nullptr);
        return;
    }
    SendSlot(answer, {.requestSlotBytes = kRequestSlotBytes, .answerSlotBytes = kAnswerSlotBytes});
}

bool ServerConnection::MakeSlot(const CallHints& hints) noexcept {
    SlotPoller& poller = *server_.poller_;
    // Files on their way count against all that this process sends, to others as well; and they
    // come with a frame's first byte, which is not to come before what waits in the queue.
    int unread = 0;
    if (!poller.IsOn() || !SlotPoller::IsElsewhere(hints) || !queue_.empty() ||
        ::ioctl(Descriptor(), SIOCOUTQ, &unread) != 0 || unread != 0 ||
        !poller.MayAdmit(client_.user)) {
        return false;
    }
    try {
        slot_ = std::make_unique<ServerSlot>();
        if (poller.Admit(*this, client_.user)) {
            hasAgreed_ = true;
            memoryNumber_ = 0;
            return true;
        }
    } catch (const PlatformError&) {
        // The socket carries on alone.
    } catch (const std::bad_alloc&) {
    }
    slot_.reset();
    return false;
}

void ServerConnection::SendSlot(const Prelude& prelude, const MemoryGrant& grant) {
    std::array<unsigned char, kPreludeBytes + sizeof(grant)> frame;
    Prelude head = prelude;
    head.fixedBytes = sizeof(grant);
    EncodePrelude(head, frame.data());
    std::memcpy(frame.data() + kPreludeBytes, &grant, sizeof(grant));

    const std::array<int, 2> files = {slot_->RequestFile().Get(), slot_->AnswerFile().Get()};
    alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(sizeof(files))> control{};
    iovec part{.iov_base = frame.data(), .iov_len = frame.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* const rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(files));
    std::memcpy(CMSG_DATA(rights), files.data(), sizeof(files));

    const ssize_t sent = ::sendmsg(Descriptor(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
        // The files could not go: the socket carries on alone.
        server_.poller_->Remove(*this);
        slot_.reset();
        Prelude refusal = prelude;
        refusal.status = kStatusResources;
        SendNow(refusal, nullptr, nullptr);
        return;
    }
    if (sent != static_cast<ssize_t>(frame.size())) {
        Break(LastCall());  // a client that leaves so much unread does not read this either
        return;
    }
    slot_->CloseFiles();
}

void ServerConnection::GiveUpMemory() {
    const auto self = shared_from_this();
    server_.poller_->Remove(*this);
    slot_->Tell(kGivenUp);
    if (HasRequest()) {
        ServeFromMemory();
    }
    takenNumber_ = HasTakenAnswer() ? lastNumber_ : 0;
    slot_.reset();
}

LostCall ServerConnection::UnservedCall() const noexcept {
    if (!HasUnservedRequest()) {
        return {};
    }
    alignas(8) std::array<unsigned char, kPreludeBytes + LostCall::kKeptBytes> frame;
    static_assert(std::tuple_size_v<decltype(frame)> % sizeof(SharedWord) == 0);
    slot_->Read(0, frame.data(), frame.size());
    return CallIn(frame.data(), frame.size());
}

}  // namespace zam_platform
