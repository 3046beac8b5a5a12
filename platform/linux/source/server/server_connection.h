#pragma once

#include <array>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "server/quiet_users.h"
#include "server/server_slot.h"
#include "zam_platform/frame.h"
#include "zam_platform/server/handler_room.h"
#include "zam_platform/server/server.h"
#include "zam_platform/transport_status.h"
#include "zam_platform/wipe.h"

namespace zam_platform {

/// The header that a call's fixed part begins with.
inline vd_message_header HeaderAt(const unsigned char* fixed) noexcept {
    vd_message_header header;
    std::memcpy(&header, fixed, sizeof(header));
    return header;
}

/// One client connection: cuts what comes into frames, checks them, hands calls on and sends
/// answers. One call is in flight at a time; reading goes on meanwhile, so that a client that goes
/// away is noticed. Everything runs on the loop thread but for `Send` and `Drop`. What cannot go on
/// for want of memory ends the connection, and nothing else.
class ServerConnection : public std::enable_shared_from_this<ServerConnection> {
public:
    using Socket = asio::local::stream_protocol::socket;

    ServerConnection(Server& server, Socket socket, uid_t user);
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;
    ~ServerConnection();

    /// Begins to read.
    void Start();

    /// Sends the answer to a call, from any thread; nothing when the connection has closed. The
    /// parts are copied when they cannot be sent at once. `watch` may be null.
    void Send(const Prelude& prelude, const void* message, const void* arena,
              DeliveryWatch watch) noexcept;

    /// On the loop thread.
    bool IsOpen() const noexcept { return open_; }
    int Descriptor() noexcept { return socket_.native_handle(); }

    /// Closes the connection without an answer, from any thread.
    void Drop() noexcept;

    /// Logs what is wrong, tells the client by a refusal, closes. A frame that breaks a rule may be
    /// anywhere in what was read, so that what is lost with it is known to some callers only.
    void Refuse(TransportStatus status, std::string_view why, const LostCall& lost = {});

    /// Closes at once. On the loop thread, or when the loop does not run.
    void Close() noexcept;

    /// What follows is for the looks at the memory that is shared with the client; see
    /// `SlotPoller`. Whether there is a request, or what should be one.
    bool HasRequest() const noexcept;
    bool HasPendingCall() const noexcept { return callPending_; }
    void ServeFromMemory();
    void TellPolling(bool isPolling) noexcept;

    /// Lets go of the memory, behind a last look at it.
    void GiveUpMemory();

    /// Ends when the client has given the connection up, also when not all that it sent has been
    /// read yet. On the loop thread.
    void NoticeEnd();

    /// Whether the next frame may be taken before the connection's turn: nothing of another has
    /// been read, no call waits, and no answer is under way.
    bool MayServeEarly() const noexcept {
        return open_ && have_ == 0 && large_.empty() && inline_[0] == kNothingRead &&
               !callPending_ && queue_.empty();
    }

    /// Handles what can be read when that is one whole frame and `MayServeEarly`, and nothing
    /// otherwise; the read that is under way goes on and finds what comes behind the frame. On the
    /// loop thread, not from within a handler.
    void ServeEarly() noexcept;

private:
    /// Frames up to this size, which most are, need no buffer of their own.
    static constexpr std::size_t kInlineBytes = 1024;

    /// Stands where a read will put the first byte of a frame, none of which begins with it. Asio
    /// may have read already what it will tell of later, and nothing may be taken before that.
    static constexpr unsigned char kNothingRead = 0;
    static_assert(kNothingRead != (kFrameMagic & 0xFFU));

    /// Runs what the loop has for this connection, which ends when that throws.
    template <typename Body>
    void Guard(Body&& body) noexcept {
        try {
            body();
        } catch (const std::exception& exception) {
            EndAfter(exception);
        }
    }
    void EndAfter(const std::exception& exception) noexcept;

    /// Closes, and tells the server's observer what was lost.
    void Break(const LostCall& lost) noexcept;

    /// The call that the service has last been given.
    LostCall LastCall() const noexcept;

    /// What the socket holds, or how it ended, as `recv` tells it. Reads what stands in front of it
    /// of looks at calls that were served without them: with those nothing is lost.
    ssize_t PeekBehindLateLooks(unsigned char* to, std::size_t bytes) noexcept;

    /// What is lost when the connection ends now, between two reads.
    LostCall Lost() noexcept;
    LostCall CallIn(const unsigned char* frame, std::size_t bytes) const noexcept;
    LostCall CallOf(const unsigned char* fixed, std::size_t bytes) const noexcept;

    /// Ends after the client's end: a break, unless it came between two frames with nothing left
    /// to do.
    void EndAfterClient();

    void ReadMore();
    void OnRead(std::size_t bytes);
    /// Handles the whole frames in the buffer, of which so many bytes are new, and keeps the rest.
    void HandleFrames(std::size_t bytes);
    /// Whether this client has given up another of its connections and the loop has not come to
    /// that.
    bool HasEndedElsewhere() const noexcept;
    /// Handles the frame at `offset` when it is whole. False when more bytes are needed or the
    /// connection has closed; otherwise `offset` is behind the frame.
    bool HandleFrameAt(std::size_t& offset);
    void HandleFrame(const Prelude& prelude, const unsigned char* body);
    bool CheckHead(const Prelude& prelude, const unsigned char* body, std::size_t bodyBytes);
    bool CheckCall(const Prelude& prelude, const unsigned char* body, std::size_t bodyBytes);
    void HandleHello(const unsigned char* body);
    void HandleLookup(const Prelude& prelude, const unsigned char* body);
    void HandleCall(const Prelude& prelude, const unsigned char* body);
    void HandleLook(const Prelude& prelude);
    void HandleMemoryRequest(const Prelude& prelude);
    bool CheckMemoryFrame(const Prelude& prelude);
    bool ReadFromMemory(Prelude& prelude);
    bool MakeSlot(const CallHints& hints) noexcept;
    void SendSlot(const Prelude& prelude, const MemoryGrant& grant);
    bool HasUnservedRequest() const noexcept;

    /// Whether the client had the last answer before the look that tells it: what it has left
    /// unread is no more than that look.
    bool HasTakenAnswer() const noexcept;
    LostCall UnservedCall() const noexcept;

    /// Moves what is left to the front of a buffer that holds the frame it begins.
    void KeepRest(std::size_t offset);
    /// Bounds the time for the rest of a frame; `isNewFrame` when another was handled before it.
    void WatchRest(bool isNewFrame);
    void StartFrameTimer();
    unsigned char* Buffer() noexcept { return large_.empty() ? inline_.data() : large_.data(); }
    std::size_t Capacity() const noexcept {
        return large_.empty() ? inline_.size() : large_.size();
    }
    void ReleaseLarge() noexcept;

    void SendNow(const Prelude& prelude, const void* message, const void* arena,
                 DeliveryWatch watch = nullptr);
    void EndWatch(bool wasTaken) noexcept;
    void QueueRest(const std::array<asio::const_buffer, 3>& parts, std::size_t sent);
    void WriteQueue();
    UserUsage& Usage() { return server_.usage_[client_.user]; }

    Server& server_;
    HandlerRoom readRoom_;
    HandlerRoom writeRoom_;
    HandlerRoom dropRoom_;
    std::atomic<bool> isDropping_{false};
    Socket socket_;
    asio::steady_timer frameTimer_;
    ClientIdentity client_;
    bool open_ = true;
    bool greeted_ = false;
    bool callPending_ = false;
    bool frameTimed_ = false;

    std::optional<QuietUsers::Turn> turn_;  ///< once greeted

    DeliveryWatch watch_;  ///< of the last answer

    std::unique_ptr<ServerSlot> slot_;
    std::uint64_t lastNumber_ = 0;    ///< of the last lookup or call, whichever way it came
    std::uint64_t memoryNumber_ = 0;  ///< of the last that came through memory
    std::uint64_t takenNumber_ = 0;   ///< of the one whose answer was taken as memory was given up
    CallHints hints_;                 ///< of the last call
    bool hasAgreed_ = false;          ///< the client has been given memory once
    bool isServingMemory_ = false;    ///< while a call that came through memory is being handled

    std::array<unsigned char, LostCall::kKeptBytes> lastCall_{};  ///< how its fixed part begins
    std::size_t lastCallBytes_ = 0;

    alignas(8) std::array<unsigned char, kInlineBytes> inline_;
    std::vector<unsigned char> large_;
    std::size_t have_ = 0;  ///< bytes in the buffer

    /// What the socket did not take at once. It is being written, so it must stay where it is.
    WipedBytes queue_;
    std::size_t queueSent_ = 0;
    WipedBytes queueBehind_;  ///< what came after it
};

}  // namespace zam_platform
