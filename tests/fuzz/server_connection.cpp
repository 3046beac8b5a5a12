#include "server/server_connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <asio/post.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "check.h"
#include "fuzz_input.h"
#include "support/quiet_logger.h"
#include "support/wire_model.h"
#include "zam_platform/server/server.h"
#include "zam_platform/unique_fd.h"

/// An input is a script of what some clients do to one server: they lay sound frames, damage and
/// bytes of any kind into line, send what lies there in any cuts, read or do not read, and go. What
/// comes back is held against the model of the wire. The first byte chooses the limits; then come
/// commands, see `Play::Act`.

namespace {

using zam_fuzz::Check;
using zam_fuzz::Input;
using zam_platform::Responder;
using zam_platform::Server;
using zam_platform::ServerConnection;
using zam_test::WireBytes;
using zam_test::WireConnection;

constexpr std::uint16_t kRiid = 7;
constexpr char kName[] = "fuzz.endpoint";
constexpr std::uint32_t kMessageBytes = 40;
constexpr std::uint32_t kArenaBytes = 2040;  ///< on both sides of a connection's own buffer
constexpr std::uint32_t kMostAnswer = 8160;  ///< a few of them are more than a socket takes
constexpr unsigned char kFilling = 0x5A;
constexpr std::size_t kClients = 4;

enum Operation : std::uint16_t { kEcho, kHold, kFail, kDrop, kForget, kLarge, kWrong, kOperations };

struct Message {
    vd_message_header header;
    std::uint64_t value;
    std::uint64_t other;
};
static_assert(sizeof(Message) == kMessageBytes);

std::uint32_t LargeBytes(std::uint64_t value) {
    return static_cast<std::uint32_t>(value & 0xFFU) * (kMostAnswer / 255);
}

std::int32_t FailureOf(std::uint64_t value) {
    return static_cast<std::int32_t>(value & 0xFFU) + 1;
}

/// Does what the operation's name says, and counts what it is told of its answers.
class Endpoint final : public zam_platform::EndpointHandler {
public:
    struct Held {
        std::size_t client;  ///< its number
        Message request;
        Responder responder;
    };

    zam_platform::EndpointRule Rule() {
        zam_platform::EndpointRule rule{
            .name = kName, .riid = kRiid, .operations = {}, .handler = this};
        for (std::uint16_t operation = 0; operation < kOperations; ++operation) {
            rule.operations.push_back({.name = "Operation",
                                       .requestBytes = kMessageBytes,
                                       .responseBytes = kMessageBytes,
                                       .requestArenaBytes = kArenaBytes,
                                       .responseArenaBytes = kMostAnswer});
        }
        return rule;
    }

    void OnCall(const zam_platform::Request& request, Responder responder) override {
        const auto& message = request.As<Message>();
        switch (request.operation) {
            case kEcho:
                if ((message.value & 1U) != 0) {
                    ++watched;
                    responder.Watch([this](bool) { ++told; });
                }
                return AnswerWith(responder, message, request.arena.base, request.arena.used);
            case kHold:
                return held.push_back({sender, message, std::move(responder)});
            case kFail:
                return responder.Fail(FailureOf(message.value));
            case kDrop:
                return responder.Drop();
            case kLarge:
                return AnswerWith(responder, message, Filling(), LargeBytes(message.value));
            case kWrong: {
                Message answer = message;
                return responder.AnswerBytes(&answer.header, sizeof(answer) - 1, nullptr, 0);
            }
            default:
                return;
        }
    }

    static void AnswerWith(Responder& responder, const Message& request, const void* arena,
                           std::uint32_t arenaBytes) {
        Message answer{};
        answer.value = request.value;
        answer.other = request.other;
        responder.Answer(answer, arena, arenaBytes);
    }

    static const void* Filling() {
        static const std::vector<unsigned char> filling(kMostAnswer, kFilling);
        return filling.data();
    }

    std::deque<Held> held;
    std::size_t sender = 0;  ///< number of the client whose bytes are being read
    int watched = 0;
    int told = 0;
};

WireBytes MessageOf(std::uint16_t operation, std::uint64_t value, std::uint64_t other) {
    WireBytes message = zam_test::WireMessage(kRiid, operation, kMessageBytes);
    std::memcpy(message.data() + sizeof(vd_message_header), &value, sizeof(value));
    std::memcpy(message.data() + sizeof(vd_message_header) + sizeof(value), &other, sizeof(other));
    return message;
}

const std::vector<zam_test::WireEndpoint>& Endpoints() {
    static const std::vector<zam_test::WireEndpoint> endpoints{
        {kName, kRiid,
         std::vector<zam_test::WireOperation>(kOperations, {kMessageBytes, kArenaBytes})}};
    return endpoints;
}

/// A server that serves every input, one after the other: nothing of one is left for the next.
struct World {
    explicit World(zam_platform::ServerLimits limits)
        : server({}, {.ownUser = ::geteuid(), .group = {}}, limits), early_(server.Context()) {
        server.Serve(endpoint.Rule());
        server.OnConnectionBroken([](const zam_platform::SessionToken&,
                                     const zam_platform::LostCall& lost) {
            Check(lost.bytes <= lost.fixed.size(), "no more is lost than is kept");
            Check((lost.endpoint != nullptr) == (lost.kind == zam_platform::LostCall::Kind::Call),
                  "a lost call is one of an endpoint");
        });
    }

    void RunLoop() {
        server.Context().restart();
        server.Context().poll();
    }

    Endpoint endpoint;
    Server server;

private:
    /// A timer that is due before all others, so that these do not set the clock for each
    /// connection, which costs more than all the rest.
    void Arm() {
        early_.expires_after(std::chrono::seconds(1));
        early_.async_wait([this](const std::error_code& error) {
            if (!error) {
                Arm();
            }
        });
    }

    asio::steady_timer early_;
};

/// One client, and what the model says that it has to get.
class Client {
public:
    Client(World& world, std::size_t number, bool isExact)
        : world_(world), number_(number), isExact_(isExact), model_(Endpoints()) {
        int sockets[2];
        Check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sockets) == 0,
              "there are descriptors for a connection");
        socket_.Reset(sockets[0]);
        constexpr int kLeast = 1;  // the kernel makes it what it needs at least
        ::setsockopt(sockets[1], SOL_SOCKET, SO_SNDBUF, &kLeast, sizeof(kLeast));
        ServerConnection::Socket accepted(world.server.Context(), asio::local::stream_protocol(),
                                          sockets[1]);
        accepted.non_blocking(true);
        const auto connection =
            std::make_shared<ServerConnection>(world.server, std::move(accepted), ::geteuid());
        connection_ = connection;
        connection->Start();
    }

    WireBytes line;  ///< to be sent

    std::size_t Number() const noexcept { return number_; }
    bool HasClosed() const noexcept { return !socket_; }
    const zam_platform::SessionToken& Token() const noexcept { return token_; }

    void Greet(unsigned char token) {
        token_.fill(token);
        Lay(zam_test::WireFrame({.kind = 1}, WireBytes(token_.begin(), token_.end())));
    }

    void Lay(const WireBytes& bytes) { line.insert(line.end(), bytes.begin(), bytes.end()); }

    void Send(std::size_t count) {
        count = std::min(count, line.size());
        if (count == 0) {
            return;
        }
        const ssize_t sent = ::send(socket_.Get(), line.data(), count, MSG_NOSIGNAL);
        if (sent > 0 && !IsOver()) {
            model_.Feed(line.data(), static_cast<std::size_t>(sent));
            FollowModel();
        }
        line.erase(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(count));
        world_.endpoint.sender = number_;
        world_.RunLoop();
    }

    /// Its held call has been answered.
    void Released(const Message& request) {
        if (!IsOver()) {
            Expect(zam_test::WireFrame({.kind = 5, .callNumber = heldNumber_},
                                       MessageOf(kHold, request.value, request.other)));
            model_.Answered();
            FollowModel();
        }
    }

    /// Reads what has come and holds it against the model.
    void Read() {
        static std::array<unsigned char, 1U << 16U> buffer;
        while (!HasClosed()) {
            const ssize_t got = ::recv(socket_.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (got <= 0) {
                return;
            }
            const auto count = static_cast<std::size_t>(got);
            Check(
                !isExact_ || (expected_.size() - received_ >= count &&
                              std::memcmp(buffer.data(), expected_.data() + received_, count) == 0),
                "a client gets what the model says");
            received_ += count;
            world_.RunLoop();  // what had no room goes on its way
        }
    }

    /// Closes when nothing reads any more, or ends the sending.
    void Leave(bool byClosing) {
        End();
        if (byClosing) {
            socket_.Reset();
        } else {
            ::shutdown(socket_.Get(), SHUT_WR);
        }
    }

    /// What has to be so when it has read all.
    void CheckState() const {
        const auto connection = connection_.lock();
        Check(!isExact_ || (connection != nullptr && connection->IsOpen()) != IsOver(),
              "a connection is open until a rule is broken or the client leaves");
        Check(!isExact_ || HasClosed() || received_ == expected_.size() || maySufferLoss_,
              "a client that reads gets all that the model says");
    }

    void CheckGone() const { Check(connection_.expired(), "nothing is left of a connection"); }

private:
    /// What a socket takes at once in any case, in answers of any size.
    static constexpr std::size_t kAlwaysTaken = 130;

    bool IsOver() const noexcept { return isOver_; }

    /// What has not been taken by then may be lost.
    void End() {
        maySufferLoss_ = maySufferLoss_ || expected_.size() - received_ > kAlwaysTaken;
        isOver_ = true;
    }

    void Expect(const WireBytes& bytes) {
        expected_.insert(expected_.end(), bytes.begin(), bytes.end());
    }

    void FollowModel() {
        while (!IsOver()) {
            const WireConnection::Step step = model_.Next();
            switch (step.event) {
                case WireConnection::Event::Waits:
                    return;
                case WireConnection::Event::Greeted:
                    break;
                case WireConnection::Event::Refuses:
                    End();
                    Expect(zam_test::WireFrame({.kind = 6, .status = step.status}));
                    break;
                case WireConnection::Event::LooksUp:
                    Expect(model_.LookupAnswer(step));
                    break;
                case WireConnection::Event::Called:
                    FollowCall(step);
                    break;
            }
        }
    }

    void FollowCall(const WireConnection::Step& step) {
        std::uint64_t value = 0;
        std::uint64_t other = 0;
        std::memcpy(&value, step.fixed.data() + offsetof(Message, value), sizeof(value));
        std::memcpy(&other, step.fixed.data() + offsetof(Message, other), sizeof(other));
        const zam_test::WireHead head{.kind = 5, .callNumber = step.callNumber};
        const auto fails = [&](std::int32_t status) {
            Expect(
                zam_test::WireFrame({.kind = 5, .callNumber = step.callNumber, .status = status}));
        };
        switch (step.operation) {
            case kHold:
                heldNumber_ = step.callNumber;
                return;  // not answered yet
            case kDrop:
                return End();
            case kEcho:
                Expect(zam_test::WireFrame(head, MessageOf(kEcho, value, other), step.arena));
                break;
            case kLarge:
                Expect(zam_test::WireFrame(head, MessageOf(kLarge, value, other),
                                           WireBytes(LargeBytes(value), kFilling)));
                break;
            case kFail:
                fails(FailureOf(value));
                break;
            default:
                fails(zam_platform::kStatusUnanswered);
                break;
        }
        model_.Answered();
    }

    World& world_;
    const std::size_t number_;
    const bool isExact_;
    zam_platform::UniqueFd socket_;
    std::weak_ptr<ServerConnection> connection_;
    zam_platform::SessionToken token_{};
    WireConnection model_;
    WireBytes expected_;
    std::size_t received_ = 0;
    bool isOver_ = false;  ///< a rule was broken, or it has left
    bool maySufferLoss_ = false;
    std::uint64_t heldNumber_ = 0;
};

/// Plays one input.
class Play {
public:
    Play(World& world, Input input, bool isExact)
        : world_(world), input_(input), isExact_(isExact) {}

    void Run() {
        while (!input_.IsAtEnd()) {
            Act(input_.Byte());
        }
        while (!world_.endpoint.held.empty()) {
            Release(true);
        }
        for (const auto& client : clients_) {
            if (client != nullptr) {
                client->Read();
                client->CheckState();
                client->Leave(true);
            }
        }
        world_.RunLoop();
        for (const auto& client : clients_) {
            if (client != nullptr) {
                client->CheckGone();
            }
        }
        Check(world_.endpoint.watched == world_.endpoint.told, "every watch is told, and once");
    }

private:
    enum Command { kGreet, kLookup, kCall, kRaw, kDamage, kSend, kLeave, kRelease };

    Client& At(std::size_t place) {
        auto& client = clients_[place];
        if (client == nullptr || client->HasClosed()) {
            client = std::make_unique<Client>(world_, ++lastNumber_, isExact_);
        }
        return *client;
    }

    void Act(std::uint8_t command) {
        const bool hasUnread = (command & 0x20U) != 0;
        const bool isOther = (command & 0x40U) != 0;
        Client& client = At(command >> 3U & 3U);
        switch (command & 7U) {
            case kGreet:
                return client.Greet(input_.Byte() & 3U);
            case kLookup:
                return LayLookup(client);
            case kCall:
                return LayCall(client);
            case kRaw:
                return client.Lay(input_.Bytes(input_.Byte()));
            case kDamage:
                return Damage(client.line);
            case kSend: {
                const std::size_t count = input_.Byte();
                client.Send(count == 0 ? client.line.size() : count * (isOther ? 16 : 1));
                break;
            }
            case kLeave:
                client.Leave(isOther);
                if (hasUnread) {
                    world_.server.NoticeBroken(client.Token());
                }
                world_.RunLoop();
                break;
            case kRelease:
                return Release(isOther);
            default:
                break;
        }
        if (!hasUnread) {
            client.Read();
            client.CheckState();
        }
    }

    void LayLookup(Client& client) {
        const std::size_t length = input_.Byte();
        const std::string name = length == 0 ? std::string(kName) : std::string(length, 'x');
        client.Lay(zam_test::WireFrame({.kind = 2, .callNumber = ++callNumber_},
                                       WireBytes(name.begin(), name.end())));
    }

    void LayCall(Client& client) {
        const auto operation = static_cast<std::uint16_t>(input_.Byte() % kOperations);
        std::uint64_t value = input_.Byte();
        if (operation == kLarge && ++large_ > kMostLarge) {
            value = 0;
        }
        const std::size_t arenaBytes = std::size_t{input_.Byte()} * 8;
        ++callNumber_;
        client.Lay(zam_test::WireFrame({.kind = 4, .callNumber = callNumber_},
                                       MessageOf(operation, value, callNumber_),
                                       WireBytes(arenaBytes, static_cast<unsigned char>(value))));
    }

    void Damage(WireBytes& line) {
        const std::size_t at = input_.Word();
        const std::uint8_t bits = input_.Byte();
        if (!line.empty()) {
            line[at % line.size()] ^= bits;
        }
    }

    /// Answers the call that has waited longest, on the loop's thread or as from another.
    void Release(bool onLoop) {
        if (world_.endpoint.held.empty()) {
            return;
        }
        Endpoint::Held held = std::move(world_.endpoint.held.front());
        world_.endpoint.held.pop_front();
        if (onLoop) {
            asio::post(world_.server.Context(),
                       [&held] { Endpoint::AnswerWith(held.responder, held.request, nullptr, 0); });
        } else {
            Endpoint::AnswerWith(held.responder, held.request, nullptr, 0);
        }
        for (const auto& client : clients_) {
            if (client != nullptr && client->Number() == held.client) {
                client->Released(held.request);
                world_.endpoint.sender = held.client;
            }
        }
        world_.RunLoop();
    }

    static constexpr int kMostLarge = 8;  ///< of an input, or it takes long

    World& world_;
    Input input_;
    const bool isExact_;
    std::array<std::unique_ptr<Client>, kClients> clients_;
    std::size_t lastNumber_ = 0;
    std::uint64_t callNumber_ = 0;
    int large_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const zam_test::QuietLogger logger;
    static World roomy({});
    // Limits that are reached soon; the model does not know them.
    static World narrow({.bufferedBytesPerUser = 3000, .queuedBytesPerUser = 4000});
    Input input(data, size);
    const bool isExact = (input.Byte() & 1U) == 0;
    Play(isExact ? roomy : narrow, input, isExact).Run();
    return 0;
}
