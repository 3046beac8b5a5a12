#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <asio/buffer.hpp>
#include <asio/post.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

#include "server/server_connection.h"
#include "server/slot_poller.h"
#include "zam_platform/report.h"
#include "zam_platform/server/log_context.h"

/// How connections end.

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "server_connection";

}  // namespace

void ServerConnection::Drop() noexcept {
    if (server_.IsLoopThread()) {
        Break(LastCall());
    } else if (!isDropping_.exchange(true)) {
        asio::post(server_.context_, InRoom(dropRoom_, [self = shared_from_this()] {
                       const LogsForUser logsForUser(self->client_.user);
                       self->Break(self->LastCall());
                   }));
    }
}

void ServerConnection::EndAfter(const std::exception& exception) noexcept {
    ReportText(zor::logger::kLevelError, kSourceFile, "EndAfter", [&] {
        return fmt::format("client of user {}: {}: connection closed", client_.user,
                           exception.what());
    });
    Break(Lost());
}

void ServerConnection::Refuse(TransportStatus status, std::string_view why, const LostCall& lost) {
    if (!open_) {
        return;
    }
    ReportText(zor::logger::kLevelError, kSourceFile, "Refuse", [&] {
        return fmt::format("client of user {}: {}: connection closed", client_.user, why);
    });
    if (queue_.empty()) {
        std::array<unsigned char, kPreludeBytes> head;
        EncodePrelude({.kind = FrameKind::Refusal, .status = status}, head.data());
        std::error_code ignored;
        socket_.write_some(asio::buffer(head), ignored);
    }
    Break(lost);
}

void ServerConnection::Break(const LostCall& lost) noexcept {
    const bool isNews = open_ && greeted_;
    Close();
    if (isNews && server_.onBroken_) {
        server_.onBroken_(client_.token, lost);
    }
}

LostCall ServerConnection::LastCall() const noexcept {
    LostCall lost;
    lost.kind = LostCall::Kind::None;
    return lastCallBytes_ == 0 ? lost : CallOf(lastCall_.data(), lastCallBytes_);
}

LostCall ServerConnection::CallOf(const unsigned char* fixed, std::size_t bytes) const noexcept {
    LostCall lost;
    const vd_message_header header = HeaderAt(fixed);
    lost.endpoint = server_.FindEndpoint(header.riid);
    if (lost.endpoint != nullptr) {
        lost.kind = LostCall::Kind::Call;
        lost.operation = header.operation;
        lost.bytes = std::min(bytes, lost.fixed.size());
        std::memcpy(lost.fixed.data(), fixed, lost.bytes);
    }
    return lost;
}

LostCall ServerConnection::CallIn(const unsigned char* frame, std::size_t bytes) const noexcept {
    Prelude prelude;
    if (bytes < kPreludeBytes || DecodePrelude(frame, prelude) != FrameFault::None) {
        return {};
    }
    if (prelude.kind == FrameKind::Lookup || prelude.kind == FrameKind::MemoryRequest) {
        LostCall lost;
        lost.kind = LostCall::Kind::None;
        return lost;
    }
    const std::size_t fixedBytes =
        std::min(bytes - kPreludeBytes, static_cast<std::size_t>(prelude.fixedBytes));
    if (prelude.kind != FrameKind::Call || fixedBytes < sizeof(vd_message_header)) {
        return {};
    }
    return CallOf(frame + kPreludeBytes, fixedBytes);
}

LostCall ServerConnection::Lost() noexcept {
    // While a call is being handled the buffer still holds it, perhaps behind others. What stands
    // behind a call that waits for its answer breaks a rule.
    if (callPending_) {
        return LastCall();
    }
    if (have_ != 0) {
        return CallIn(Buffer(), have_);
    }
    if (!queue_.empty()) {
        return LastCall();
    }
    if (HasUnservedRequest()) {
        return UnservedCall();
    }
    std::array<unsigned char, kPreludeBytes + LostCall::kKeptBytes> unread;
    const ssize_t got = PeekBehindLateLooks(unread.data(), unread.size());
    // What was sent and not read is lost; where there is nothing of it, it was the last answer.
    return got > 0 ? CallIn(unread.data(), static_cast<std::size_t>(got)) : LastCall();
}

ssize_t ServerConnection::PeekBehindLateLooks(unsigned char* to, std::size_t bytes) noexcept {
    for (;;) {
        // One system call tells of the end: the next knows nothing of an answer that was left
        // unread.
        const ssize_t got = ::recv(Descriptor(), to, bytes, MSG_PEEK | MSG_DONTWAIT);
        Prelude look;
        if (got < static_cast<ssize_t>(kPreludeBytes) || have_ != 0 ||
            DecodePrelude(to, look) != FrameFault::None || look.kind != FrameKind::Look ||
            look.callNumber > lastNumber_ || look.FrameBytes() != kPreludeBytes ||
            ::recv(Descriptor(), to, kPreludeBytes, MSG_DONTWAIT) !=
                static_cast<ssize_t>(kPreludeBytes)) {
            return got;
        }
    }
}

void ServerConnection::EndAfterClient() {
    const bool isAllTaken = have_ == 0 && !callPending_ && queue_.empty();
    if (isAllTaken) {
        EndWatch(true);
    }
    if (!isAllTaken || HasUnservedRequest()) {
        Break(Lost());
    } else {
        Close();
    }
}

void ServerConnection::EndWatch(bool wasTaken) noexcept {
    if (const DeliveryWatch watch = std::exchange(watch_, nullptr)) {
        try {
            watch(wasTaken);
        } catch (const std::bad_alloc&) {
            Report(zor::logger::kLevelError, kSourceFile, "EndWatch", "out of memory");
        }
    }
}

void ServerConnection::NoticeEnd() {
    pollfd ended{.fd = socket_.native_handle(), .events = POLLRDHUP, .revents = 0};
    if (!open_ || ::poll(&ended, 1, 0) != 1) {
        return;
    }
    std::array<unsigned char, kPreludeBytes> next;
    const ssize_t got = PeekBehindLateLooks(next.data(), next.size());
    if (got == 0 || (got < 0 && HasTakenAnswer())) {
        EndAfterClient();
    } else {
        // A call that nobody waits for any more, part of one, or an answer that was left unread.
        Break(Lost());
    }
}

void ServerConnection::Close() noexcept {
    if (!std::exchange(open_, false)) {
        return;
    }
    frameTimer_.cancel();
    std::error_code ignored;
    socket_.close(ignored);
    server_.poller_->Remove(*this);
    slot_.reset();
    ReleaseLarge();
    UserUsage& usage = Usage();
    usage.queuedBytes -= queue_.size() - queueSent_ + queueBehind_.size();
    queue_ = WipedBytes();  // not `{}`, which keeps the memory
    queueBehind_ = WipedBytes();
    queueSent_ = 0;
    --usage.connections;
    if (const auto turn = std::exchange(turn_, std::nullopt)) {
        server_.quiet_->Leave(*turn);
    }
    if (greeted_) {
        const auto ofClient = server_.greeted_.find(client_.token);
        if (ofClient != server_.greeted_.end()) {
            ofClient->second.erase(this);
            if (ofClient->second.empty()) {
                server_.greeted_.erase(ofClient);
            }
        }
        server_.sessions_.Detach(client_.token);
    }
    // The last reference may be the set's; whoever called holds another.
    if (const auto self = weak_from_this().lock()) {
        server_.connections_.erase(self);
    }
    EndWatch(false);
}

}  // namespace zam_platform
