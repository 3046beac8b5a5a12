#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "vd/arena.h"
#include "vd/zor_transport.h"

namespace zam_connector::testing {

using Bytes = std::vector<unsigned char>;

/// Transport statuses of calls that went wrong in the script itself, not by its order. They stand
/// apart from the numbers that scripts use; `ScriptedTransport::Faults` tells what happened.
inline constexpr int kNoAnswerScripted = -770001;  ///< nothing in the script answers the call
inline constexpr int kAnswerDoesNotFit = -770002;  ///< the answer exceeds the response or its arena
inline constexpr int kResponderThrew = -770003;    ///< the responder ended with an exception
inline constexpr int kMalformedCall = -770004;     ///< a message or an arena is no such thing

/// One call as it reached the transport, before it was answered.
struct RecordedCall {
    const VdZorTransport* transport = nullptr;

    /// Both headers with all 24 bytes, as the operation stub left them.
    vd_message_header requestHeader{};
    vd_message_header responseHeader{};

    Bytes request;   ///< the request's fixed part behind its header
    Bytes response;  ///< the same of the response, as the caller had filled it

    bool hasRequestArena = false;  ///< false: null was passed
    Bytes requestArena;            ///< the bytes in use
    std::uint32_t requestArenaCapacity = 0;

    bool hasResponseArena = false;  ///< false: null was passed
    std::uint32_t responseArenaCapacity = 0;
    std::uint32_t responseArenaUsed = 0;
    bool responseArenaIsZero = true;  ///< every byte of its capacity was 0

    /// The request as its own type; empty when it has another size.
    template <typename Request>
    std::optional<Request> As() const {
        static_assert(std::is_trivially_copyable<Request>::value, "messages are plain records");
        static_assert(sizeof(Request) >= sizeof(vd_message_header), "messages have a header");
        if (sizeof(Request) != sizeof(vd_message_header) + request.size()) {
            return std::nullopt;
        }
        Request typed;
        auto* const bytes = reinterpret_cast<unsigned char*>(&typed);
        std::memcpy(bytes, &requestHeader, sizeof(requestHeader));
        if (!request.empty()) {
            std::memcpy(bytes + sizeof(requestHeader), request.data(), request.size());
        }
        return typed;
    }
};

/// What a call is answered with. Everything is written as told, also beside a status that is not
/// 0, as a transport may leave anything behind when it fails.
struct ScriptedAnswer {
    int status = 0;
    Bytes response;  ///< fixed part behind the header; what it does not cover is zero-filled
    Bytes arena;     ///< bytes of the response arena from offset 0
};

/// An answer from a response record; its header is ignored.
template <typename Response>
ScriptedAnswer AnswerWith(const Response& response, std::string_view arena = {}, int status = 0) {
    static_assert(std::is_trivially_copyable<Response>::value, "messages are plain records");
    static_assert(sizeof(Response) >= sizeof(vd_message_header), "messages have a header");
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&response);
    return {status, Bytes(bytes + sizeof(vd_message_header), bytes + sizeof(Response)),
            Bytes(arena.begin(), arena.end())};
}

/// An answer of a transport that failed and left zeros.
inline ScriptedAnswer FailWith(int status) {
    return {status, {}, {}};
}

/// A transport that sends nothing: it records every call and answers it from a script, which is
/// asked in this order: the queue, the responder, the default. Initialise an IDL proxy record with
/// `Get()` and hand that to the class under test. Thread-safe; must outlive every call.
class ScriptedTransport {
public:
    /// Answers a call, or leaves it to the default with an empty return. Runs on the caller's
    /// thread without any lock held, so it may block and must be thread-safe if the calls are
    /// concurrent.
    using Responder = std::function<std::optional<ScriptedAnswer>(const RecordedCall&)>;

    ScriptedTransport();
    ScriptedTransport(const ScriptedTransport&) = delete;
    ScriptedTransport& operator=(const ScriptedTransport&) = delete;

    /// The transport, owned by this object.
    VdZorTransport* Get() noexcept { return &transport_; }

    /// Makes another transport lead here, whatever it held. Its `handle` is 0.
    void Attach(VdZorTransport* transport) noexcept;

    /// Appends an answer that is given once.
    void Enqueue(ScriptedAnswer answer);

    /// Sets what the calls get that nothing else answers; without it they fail.
    void SetDefault(ScriptedAnswer answer);

    /// Sets the responder; an empty function removes it. A call under way keeps the one it has.
    void SetResponder(Responder responder);

    /// The calls so far, in the order of their arrival, a call under way included.
    std::vector<RecordedCall> Calls() const;

    /// One line for every call that the script failed on; empty in a sound test.
    std::vector<std::string> Faults() const;

private:
    static int Answer(VdZorTransport* transport, vd_message_header* request, vd_arena* requestArena,
                      vd_message_header* response, vd_arena* responseArena) noexcept;
    static int Call(VdZorTransport* transport, vd_message_header* request, vd_arena* requestArena,
                    vd_message_header* response, vd_arena* responseArena) noexcept;

    std::optional<ScriptedAnswer> NextAnswer(const RecordedCall& call);
    int Fault(int status, const RecordedCall& call, const std::string& reason);

    static const VdZorTransportOps kOps;

    VdZorTransport transport_{};
    mutable std::mutex mutex_;  // guards what follows; a leaf, no responder runs under it
    std::deque<ScriptedAnswer> queue_;
    std::optional<ScriptedAnswer> default_;
    Responder responder_;
    std::vector<RecordedCall> calls_;
    std::vector<std::string> faults_;
};

}  // namespace zam_connector::testing
