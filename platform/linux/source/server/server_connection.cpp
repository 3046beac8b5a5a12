#include "server/server_connection.h"

#include <fmt/format.h>
#include <asio/buffer.hpp>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "zam_platform/report.h"
#include "zam_platform/server/log_context.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "server_connection";

/// Bytes of a call's body that tell its operation.
constexpr std::size_t kHeaderBytes = sizeof(vd_message_header);

}  // namespace

ServerConnection::ServerConnection(Server& server, Socket socket, uid_t user)
    : server_(server), socket_(std::move(socket)), frameTimer_(server.context_) {
    client_.user = user;
    ++Usage().connections;
}

ServerConnection::~ServerConnection() {
    Close();
}

void ServerConnection::Start() {
    Guard([this] {
        // Who connects and says nothing has no longer than who begins a frame.
        StartFrameTimer();
        ReadMore();
    });
}

void ServerConnection::ReadMore() {
    if (have_ == 0) {
        *Buffer() = kNothingRead;
    }
    socket_.async_read_some(
        asio::buffer(Buffer() + have_, Capacity() - have_),
        InRoom(readRoom_,
               [self = shared_from_this()](const std::error_code& error, std::size_t bytes) {
                   if (!self->open_) {
                       return;
                   }
                   const LogsForUser logsForUser(self->client_.user);
                   if (error == asio::error::eof) {
                       self->EndAfterClient();
                   } else if (error) {
                       // The client has not read all that it was sent.
                       self->HasTakenAnswer() ? self->EndAfterClient() : self->Break(self->Lost());
                   } else {
                       self->Guard([&self, bytes] { self->OnRead(bytes); });
                   }
               }));
}

void ServerConnection::OnRead(std::size_t bytes) {
    if (server_.isClosing_) {
        return;
    }
    HandleFrames(bytes);
    if (open_) {
        ReadMore();
        if (turn_) {
            server_.quiet_->OnRead(*turn_, bytes);
        }
    }
}

void ServerConnection::HandleFrames(std::size_t bytes) {
    have_ += bytes;
    std::size_t offset = 0;
    bool hasHandled = false;
    while (HandleFrameAt(offset)) {
        hasHandled = true;
    }
    if (!open_) {
        return;
    }
    KeepRest(offset);
    if (open_) {
        WatchRest(hasHandled);
    }
}

bool ServerConnection::HandleFrameAt(std::size_t& offset) {
    if (have_ - offset < kPreludeBytes) {
        return false;
    }
    if (offset % alignof(vd_message_header) != 0) {
        // Messages are read where they lie. Only a client that sends ahead of its answers gets
        // here.
        std::memmove(Buffer(), Buffer() + offset, have_ - offset);
        have_ -= std::exchange(offset, 0);
    }
    const unsigned char* const head = Buffer() + offset;
    Prelude prelude;
    const FrameFault fault = DecodePrelude(head, prelude);
    if (fault != FrameFault::None) {
        Refuse(fault == FrameFault::Version ? kStatusVersion : kStatusBadRequest,
               DescribeFault(fault, head));
        return false;
    }
    const unsigned char* const body = head + kPreludeBytes;
    const std::size_t bodyBytes = have_ - offset - kPreludeBytes;
    if (!CheckHead(prelude, body, bodyBytes) || have_ - offset < prelude.FrameBytes()) {
        return false;
    }
    offset += prelude.FrameBytes();
    HandleFrame(prelude, body);
    return open_;
}

bool ServerConnection::CheckHead(const Prelude& prelude, const unsigned char* body,
                                 std::size_t bodyBytes) {
    const auto refuse = [this](std::string_view why) {
        Refuse(kStatusBadRequest, why);
        return false;
    };
    if (prelude.status != 0) {
        return refuse(fmt::format("frame of a client with status {}", prelude.status));
    }
    if (greeted_ == (prelude.kind == FrameKind::Hello)) {
        return refuse(greeted_ ? "second greeting" : "frame before the greeting");
    }
    switch (prelude.kind) {
        case FrameKind::Hello:
            if (prelude.fixedBytes != kTokenBytes || prelude.arenaBytes != 0) {
                return refuse(fmt::format("greeting of {} and {} bytes, not {} and 0",
                                          prelude.fixedBytes, prelude.arenaBytes, kTokenBytes));
            }
            return true;
        case FrameKind::Lookup:
            if (prelude.fixedBytes == 0 || prelude.fixedBytes > kMaxEndpointNameBytes ||
                prelude.arenaBytes != 0) {
                return refuse(fmt::format("lookup of {} and {} bytes, not 1 to {} and 0",
                                          prelude.fixedBytes, prelude.arenaBytes,
                                          kMaxEndpointNameBytes));
            }
            return true;
        case FrameKind::Call:
            return CheckCall(prelude, body, bodyBytes);
        case FrameKind::Look:
        case FrameKind::MemoryRequest:
            return CheckMemoryFrame(prelude);
        case FrameKind::LookupAnswer:
        case FrameKind::Answer:
        case FrameKind::Refusal:
        case FrameKind::MemoryAnswer:
            break;
    }
    return refuse(fmt::format("frame kind {} from a client", static_cast<unsigned>(prelude.kind)));
}

bool ServerConnection::CheckCall(const Prelude& prelude, const unsigned char* body,
                                 std::size_t bodyBytes) {
    const auto refuse = [this](std::string_view why) {
        Refuse(kStatusBadRequest, why);
        return false;
    };
    if (callPending_) {
        return refuse("call while another is in flight on the same connection");
    }
    if (!hasAgreed_ && (prelude.flags & kHintFlags) != 0) {
        return refuse(fmt::format("flags {:#x} of a call without shared memory", prelude.flags));
    }
    if (prelude.fixedBytes < kHeaderBytes) {
        return refuse(fmt::format("call with a fixed part of {} bytes, less than the header's {}",
                                  prelude.fixedBytes, kHeaderBytes));
    }
    if (bodyBytes < kHeaderBytes) {
        return true;
    }
    const vd_message_header header = HeaderAt(body);
    const EndpointRule* const endpoint = server_.FindEndpoint(header.riid);
    if (endpoint == nullptr) {
        return refuse(fmt::format("call to unknown interface {}", header.riid));
    }
    if (header.operation >= endpoint->operations.size()) {
        return refuse(
            fmt::format("call to unknown operation {} of {}", header.operation, endpoint->name));
    }
    const OperationRule& rule = endpoint->operations[header.operation];
    if (prelude.fixedBytes != rule.requestBytes || header.fixedSize != rule.requestBytes) {
        return refuse(fmt::format("{} of {}: fixed part of {} bytes, header says {}, not {}",
                                  rule.name, endpoint->name, prelude.fixedBytes, header.fixedSize,
                                  rule.requestBytes));
    }
    if (prelude.arenaBytes > rule.requestArenaBytes) {
        return refuse(fmt::format("{} of {}: arena of {} bytes exceeds {}", rule.name,
                                  endpoint->name, prelude.arenaBytes, rule.requestArenaBytes));
    }
    return true;
}

void ServerConnection::HandleFrame(const Prelude& prelude, const unsigned char* body) {
    if (prelude.kind == FrameKind::Look) {
        return HandleLook(prelude);  // may be older than the last answer
    }
    // Clients read an answer before they send another frame.
    EndWatch(true);
    switch (prelude.kind) {
        case FrameKind::MemoryRequest:
            return HandleMemoryRequest(prelude);
        case FrameKind::Hello:
            return HandleHello(body);
        case FrameKind::Lookup:
            return HandleLookup(prelude, body);
        default:
            return HandleCall(prelude, body);
    }
}

void ServerConnection::HandleHello(const unsigned char* body) {
    std::memcpy(client_.token.data(), body, client_.token.size());
    const Attachment attachment = server_.sessions_.Attach(client_);
    if (attachment == Attachment::Foreign) {
        Refuse(kStatusNotAdmitted, "session token of another user");
        return;
    }
    if (attachment == Attachment::Full) {
        Refuse(kStatusQuota, fmt::format("user {} has {} sessions, the most allowed", client_.user,
                                         server_.limits_.sessionsPerUser));
        return;
    }
    greeted_ = true;
    server_.greeted_[client_.token].insert(this);
    turn_ = server_.quiet_->Enter(*this, client_.user);
}

void ServerConnection::HandleLookup(const Prelude& prelude, const unsigned char* body) {
    lastCallBytes_ = 0;
    lastNumber_ = prelude.callNumber;
    const std::string_view name(reinterpret_cast<const char*>(body), prelude.fixedBytes);
    const LookupResult result{
        .riid = server_.FindRiid(name), .offers = server_.Offers(), .reserved = {}};
    SendNow({.kind = FrameKind::LookupAnswer,
             .callNumber = prelude.callNumber,
             .fixedBytes = sizeof(result)},
            &result, nullptr);
}

void ServerConnection::HandleCall(const Prelude& prelude, const unsigned char* body) {
    const vd_message_header header = HeaderAt(body);
    const EndpointRule& endpoint = *server_.FindEndpoint(header.riid);
    const OperationRule& rule = endpoint.operations[header.operation];
    Request request{.operation = header.operation,
                    .rule = &rule,
                    .client = client_,
                    .flags = prelude.flags & ~std::uint32_t{kHintFlags},
                    .message = reinterpret_cast<const vd_message_header*>(body)};
    // A view of the received bytes; handlers read it only.
    vd_arena_init(&request.arena, const_cast<unsigned char*>(body) + prelude.fixedBytes,
                  prelude.arenaBytes);
    request.arena.used = prelude.arenaBytes;
    lastCallBytes_ = std::min<std::size_t>(prelude.fixedBytes, lastCall_.size());
    std::memcpy(lastCall_.data(), body, lastCallBytes_);
    lastNumber_ = prelude.callNumber;
    hints_ = CallHints::Of(prelude.flags);
    callPending_ = true;
    isServingMemory_ = isServingMemory_ && !rule.isSecret;
    try {
        endpoint.handler->OnCall(request,
                                 Responder(shared_from_this(), prelude.callNumber, header, rule));
    } catch (const std::exception& exception) {
        // The call was failed when its responder went; others go on.
        ReportText(zor::logger::kLevelError, kSourceFile, "HandleCall", [&] {
            return fmt::format("{} of {}: {}", rule.name, endpoint.name, exception.what());
        });
    }
}

void ServerConnection::KeepRest(std::size_t offset) {
    const std::size_t rest = have_ - offset;
    const unsigned char* const from = Buffer() + offset;
    std::size_t wanted = kInlineBytes;
    Prelude prelude;
    // Room for the arena is made only once the header has passed the checks.
    if (rest >= kPreludeBytes + kHeaderBytes && DecodePrelude(from, prelude) == FrameFault::None) {
        wanted = std::max(wanted, prelude.FrameBytes());
    }
    if (wanted > Capacity()) {
        if (Usage().bufferedBytes + wanted > server_.limits_.bufferedBytesPerUser) {
            Refuse(kStatusQuota,
                   fmt::format("user {} has {} bytes of half-received frames", client_.user,
                               Usage().bufferedBytes),
                   CallIn(from, rest));
            return;
        }
        std::vector<unsigned char> larger;
        try {
            larger.resize(wanted);
        } catch (const std::bad_alloc&) {
            Refuse(kStatusQuota, "no memory for a frame of this size", CallIn(from, rest));
            return;
        }
        std::memcpy(larger.data(), from, rest);
        ReleaseLarge();
        Usage().bufferedBytes += wanted;
        large_ = std::move(larger);
    } else {
        if (wanted == kInlineBytes && !large_.empty()) {
            std::memcpy(inline_.data(), from, rest);
            ReleaseLarge();
        } else if (offset != 0 && rest != 0) {
            std::memmove(Buffer(), from, rest);
        }
    }
    have_ = rest;
}

void ServerConnection::ReleaseLarge() noexcept {
    if (!large_.empty()) {
        Usage().bufferedBytes -= large_.size();
        large_ = std::vector<unsigned char>();  // not `{}`, which keeps the memory
    }
}

void ServerConnection::WatchRest(bool isNewFrame) {
    if (have_ == 0) {
        if (frameTimed_) {
            frameTimed_ = false;
            frameTimer_.cancel();
        }
    } else if (!frameTimed_ || isNewFrame) {
        StartFrameTimer();
    }
}

void ServerConnection::StartFrameTimer() {
    frameTimed_ = true;
    frameTimer_.expires_after(server_.limits_.frameTimeout);
    frameTimer_.async_wait([weak = weak_from_this()](const std::error_code& error) {
        const auto self = weak.lock();
        // What was due when another frame began is on its way all the same.
        if (!error && self && self->open_ && self->frameTimed_ &&
            self->frameTimer_.expiry() <= std::chrono::steady_clock::now()) {
            const LogsForUser logsForUser(self->client_.user);
            self->Guard([&self] {
                self->Refuse(kStatusBadRequest,
                             fmt::format("only {} bytes of a frame came within {} ms", self->have_,
                                         self->server_.limits_.frameTimeout.count()),
                             self->Lost());
            });
        }
    });
}

}  // namespace zam_platform
