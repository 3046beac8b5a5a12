#include <fmt/format.h>
#include <asio/buffer.hpp>
#include <asio/post.hpp>

#include <array>
#include <cstddef>
#include <new>
#include <utility>

#include "server/server_connection.h"
#include "server/slot_poller.h"
#include "shared/step.h"
#include "zam_platform/report.h"
#include "zam_platform/server/log_context.h"

/// How answers go out, and what the socket does not take at once.

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "server_connection";

}  // namespace

void ServerConnection::Send(const Prelude& prelude, const void* message, const void* arena,
                            DeliveryWatch watch) noexcept {
    if (server_.IsLoopThread()) {
        Guard([&] { SendNow(prelude, message, arena, std::move(watch)); });
        return;
    }
    try {
        const auto* const first = static_cast<const unsigned char*>(message);
        const auto* const second = static_cast<const unsigned char*>(arena);
        WipedBytes body(first, first + prelude.fixedBytes);
        body.insert(body.end(), second, second + prelude.arenaBytes);
        asio::post(server_.context_, [self = shared_from_this(), prelude, body = std::move(body),
                                      watch = std::move(watch)]() mutable {
            const LogsForUser logsForUser(self->client_.user);
            self->Guard([&] {
                self->SendNow(prelude, body.data(), body.data() + prelude.fixedBytes,
                              std::move(watch));
            });
        });
    } catch (const std::bad_alloc&) {
        Drop();
    }
}

void ServerConnection::SendNow(const Prelude& prelude, const void* message, const void* arena,
                               DeliveryWatch watch) {
    if (!open_) {
        if (watch) {
            watch(false);
        }
        return;
    }
    if (prelude.kind == FrameKind::Answer) {
        callPending_ = false;
        watch_ = std::move(watch);
        if (slot_ != nullptr && !server_.isClosing_) {
            const bool byMemory = isServingMemory_ && !watch_ && slot_->FitsAnswer(prelude);
            server_.poller_->BeforeAnswer(*this, hints_, byMemory);
            if (byMemory) {
                if (!slot_->Answer(prelude, message, arena)) {
                    Reach(Step::ServiceRings);
                    SendNow({.kind = FrameKind::Look, .callNumber = prelude.callNumber}, nullptr,
                            nullptr);
                }
                return;
            }
        }
    }
    server_.quiet_->OnAnswer(prelude.FrameBytes());
    std::array<unsigned char, kPreludeBytes> head;
    EncodePrelude(prelude, head.data());
    const std::array<asio::const_buffer, 3> parts = {asio::buffer(head),
                                                     asio::buffer(message, prelude.fixedBytes),
                                                     asio::buffer(arena, prelude.arenaBytes)};
    std::error_code error;
    const std::size_t sent = queue_.empty() ? socket_.write_some(parts, error) : 0;
    if (error && error != asio::error::would_block) {
        const bool isLate = prelude.kind == FrameKind::Look && HasTakenAnswer();
        isLate ? Close() : Break(LastCall());
    } else if (sent < prelude.FrameBytes()) {
        QueueRest(parts, error ? 0 : sent);
    }
}

void ServerConnection::QueueRest(const std::array<asio::const_buffer, 3>& parts, std::size_t sent) {
    const std::size_t total = asio::buffer_size(parts);
    const std::size_t rest = total - sent;
    if (Usage().queuedBytes + rest > server_.limits_.queuedBytesPerUser) {
        Report(zor::logger::kLevelError, kSourceFile, "QueueRest",
               fmt::format("user {} has {} bytes of answers that its clients do not take: "
                           "connection closed",
                           client_.user, Usage().queuedBytes));
        Break(LastCall());
        return;
    }
    const bool isIdle = queue_.empty();
    WipedBytes& queue = isIdle ? queue_ : queueBehind_;
    WipedBytes whole(total);
    asio::buffer_copy(asio::buffer(whole), parts);
    queue.insert(queue.end(), whole.begin() + static_cast<std::ptrdiff_t>(sent), whole.end());
    Usage().queuedBytes += rest;
    if (isIdle) {
        WriteQueue();
    }
}

void ServerConnection::WriteQueue() {
    socket_.async_write_some(
        asio::buffer(queue_.data() + queueSent_, queue_.size() - queueSent_),
        InRoom(writeRoom_,
               [self = shared_from_this()](const std::error_code& error, std::size_t bytes) {
                   if (!self->open_) {
                       return;
                   }
                   const LogsForUser logsForUser(self->client_.user);
                   if (error) {
                       self->Break(self->LastCall());
                       return;
                   }
                   self->queueSent_ += bytes;
                   self->Usage().queuedBytes -= bytes;
                   if (self->queueSent_ == self->queue_.size()) {
                       self->queue_ = std::exchange(self->queueBehind_, {});
                       self->queueSent_ = 0;
                   }
                   if (!self->queue_.empty()) {
                       self->WriteQueue();
                   }
               }));
}

}  // namespace zam_platform
