#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vd/arena.h"
#include "zam_platform/frame.h"

namespace zam_platform {

class ServerConnection;

/// What the server checks of an operation before a handler sees the call. Sizes are bytes.
struct OperationRule {
    std::string name;
    std::uint32_t requestBytes = 0;        ///< exact size of the request's fixed part
    std::uint32_t responseBytes = 0;       ///< exact size of the response's fixed part
    std::uint32_t requestArenaBytes = 0;   ///< most arena bytes of a request
    std::uint32_t responseArenaBytes = 0;  ///< most arena bytes of a response
    bool isSecret = false;  ///< its answers are not left in memory that is shared with the client
};

/// Who calls: the client process and handle, and the user that it runs as.
struct ClientIdentity {
    SessionToken token{};
    uid_t user = 0;
};

/// A call that has passed the checks. Valid during `EndpointHandler::OnCall`, until it is answered.
struct Request {
    std::uint16_t operation = 0;
    const OperationRule* rule = nullptr;
    ClientIdentity client;
    std::uint32_t flags = 0;                     ///< of `CallFlag`
    const vd_message_header* message = nullptr;  ///< `rule->requestBytes` bytes, 8-aligned
    vd_arena arena{};                            ///< the request's arena bytes, to be read only

    /// The message as its type, whose size is the rule's.
    template <typename Message>
    const Message& As() const noexcept {
        return *reinterpret_cast<const Message*>(message);
    }
};

/// An answer on its way out, before it is sent.
struct AnswerParts {
    std::int32_t status = 0;             ///< transport status; when not 0 the rest is not sent
    std::vector<unsigned char> message;  ///< the fixed part
    std::vector<unsigned char> arena;
};

/// Told once what became of an answer: true when the client has got it, which shows when the next
/// frame comes on the same connection or the client closes it with nothing left to read; false when
/// the connection ends otherwise, and when the answer does not go out as the handler gave it. On
/// the loop thread; must not throw.
using DeliveryWatch = std::function<void(bool wasTaken)>;

class Responder;

/// Gets an answer in the place of the client, and the right to answer.
class AnswerInterceptor {
public:
    virtual ~AnswerInterceptor() = default;
    virtual void OnAnswer(AnswerParts answer, Responder responder) = 0;
};

/// The right and the duty to answer one call, once. May be kept and used from any thread; it must
/// not outlive the server. Destroyed without an answer it fails the call with
/// `kStatusUnanswered`. When the client has gone, an answer goes nowhere.
class Responder {
public:
    Responder(std::shared_ptr<ServerConnection> connection, std::uint64_t callNumber,
              const vd_message_header& header, const OperationRule& rule) noexcept;
    Responder(Responder&&) noexcept = default;
    Responder& operator=(Responder&&) = delete;
    ~Responder();

    /// Answers with a message of the operation's response size, whose header is filled in, and
    /// with arena bytes (at most the operation's limit).
    template <typename Message>
    void Answer(Message& message, const void* arena = nullptr, std::uint32_t arenaBytes = 0) {
        AnswerBytes(&message.header, sizeof(Message), arena, arenaBytes);
    }

    /// The same with the size told; a size that is not the operation's fails the call.
    void AnswerBytes(vd_message_header* message, std::uint32_t messageBytes, const void* arena,
                     std::uint32_t arenaBytes);

    /// Fails the call with a transport status other than 0.
    void Fail(std::int32_t status);

    /// Closes the connection without an answer.
    void Drop();

    /// Has `watch` told what becomes of the answer. Then the call is to be answered on the loop
    /// thread; `watch` may be told before an answering function returns.
    void Watch(DeliveryWatch watch) noexcept { watch_ = std::move(watch); }

    /// The answer to come will not be the handler's: its watch is told that it is lost.
    void TellLost();

    /// False when the client has gone. On the loop thread.
    bool IsConnected() const noexcept;

    /// Sends later answers of this responder through `interceptor`.
    void Intercept(std::unique_ptr<AnswerInterceptor> interceptor) noexcept;

private:
    std::shared_ptr<ServerConnection> connection_;  ///< null once answered
    std::unique_ptr<AnswerInterceptor> interceptor_;
    DeliveryWatch watch_;
    std::uint64_t callNumber_;
    vd_message_header header_;
    const OperationRule* rule_;
};

/// Serves the calls of one endpoint.
class EndpointHandler {
public:
    virtual ~EndpointHandler() = default;

    /// Takes one call, on the server's loop thread; answers at once or keeps the responder. Must
    /// not block.
    virtual void OnCall(const Request& request, Responder responder) = 0;
};

/// One endpoint as the server knows it.
struct EndpointRule {
    std::string name;
    std::uint16_t riid = 0;                 ///< below 0xFFFF
    std::vector<OperationRule> operations;  ///< by operation number
    EndpointHandler* handler = nullptr;     ///< not owned; called by `Server::Run` only
};

/// What is known of the call that was lost with a connection: that came only in part, or whose
/// answer the client has not got.
struct LostCall {
    /// Bytes of a request's fixed part that are kept: the header, and an id behind it.
    static constexpr std::size_t kKeptBytes = sizeof(vd_message_header) + sizeof(std::int64_t);

    enum class Kind {
        Unknown,  ///< too little of it came to tell
        None,     ///< it was no call
        Call,     ///< what follows says which
    };

    Kind kind = Kind::Unknown;
    const EndpointRule* endpoint = nullptr;
    std::uint16_t operation = 0;
    std::size_t bytes = 0;  ///< of `fixed` that are known
    std::array<unsigned char, kKeptBytes> fixed{};

    /// The field behind the header; empty when it did not come.
    template <typename Id>
    std::optional<Id> FirstField() const noexcept {
        static_assert(sizeof(Id) <= sizeof(std::int64_t));
        if (bytes < sizeof(vd_message_header) + sizeof(Id)) {
            return std::nullopt;
        }
        Id id{};
        std::memcpy(&id, fixed.data() + sizeof(vd_message_header), sizeof(id));
        return id;
    }
};

}  // namespace zam_platform
