#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <asio/buffer.hpp>
#include <asio/post.hpp>

#include <utility>

#include "server/server_connection.h"
#include "zam_platform/report.h"

/// How connections end.

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "server_connection";

}  // namespace

void ServerConnection::Drop() {
    if (server_.context_.get_executor().running_in_this_thread()) {
        Break();
    } else {
        asio::post(server_.context_, [self = shared_from_this()] { self->Break(); });
    }
}

void ServerConnection::Refuse(TransportStatus status, std::string_view why) {
    if (!open_) {
        return;
    }
    Report(zor::logger::kLevelError, kSourceFile, "Refuse",
           fmt::format("client of user {}: {}: connection closed", client_.user, why));
    if (queue_.empty()) {
        std::array<unsigned char, kPreludeBytes> head;
        EncodePrelude({.kind = FrameKind::Refusal, .status = status}, head.data());
        std::error_code ignored;
        socket_.write_some(asio::buffer(head), ignored);
    }
    Break();
}

void ServerConnection::Break() {
    const bool isNews = open_ && greeted_;
    Close();
    if (isNews && server_.onBroken_) {
        server_.onBroken_(client_.token);
    }
}

void ServerConnection::EndAfterClient() {
    if (have_ != 0 || callPending_ || !queue_.empty()) {
        Break();
    } else {
        EndWatch(true);
        Close();
    }
}

void ServerConnection::EndWatch(bool wasTaken) {
    if (const DeliveryWatch watch = std::exchange(watch_, nullptr)) {
        watch(wasTaken);
    }
}

void ServerConnection::NoticeEnd() {
    pollfd ended{.fd = socket_.native_handle(), .events = POLLRDHUP, .revents = 0};
    if (!open_ || ::poll(&ended, 1, 0) != 1) {
        return;
    }
    unsigned char next = 0;
    if (::recv(socket_.native_handle(), &next, 1, MSG_PEEK | MSG_DONTWAIT) == 0) {
        EndAfterClient();
    } else {
        // A call that nobody waits for any more, part of one, or an answer that was left unread.
        Break();
    }
}

void ServerConnection::Close() {
    if (!std::exchange(open_, false)) {
        return;
    }
    frameTimer_.cancel();
    std::error_code ignored;
    socket_.close(ignored);
    ReleaseLarge();
    UserUsage& usage = Usage();
    usage.queuedBytes -= queue_.size() - queueSent_ + queueBehind_.size();
    queue_ = {};
    queueBehind_ = {};
    queueSent_ = 0;
    --usage.connections;
    if (greeted_) {
        server_.sessions_.Detach(client_.token);
    }
    // The last reference may be the set's; whoever called holds another.
    if (const auto self = weak_from_this().lock()) {
        server_.connections_.erase(self);
    }
    EndWatch(false);
}

}  // namespace zam_platform
