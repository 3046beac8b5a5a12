#include "server/server_connection.h"

#include <sys/socket.h>
#include <sys/uio.h>
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
#include "shared/shared_file.h"
#include "shared/shared_pages.h"
#include "support/quiet_logger.h"
#include "support/wire_model.h"
#include "zam_platform/server/server.h"
#include "zam_platform/unique_fd.h"

/// An input is a script of what some clients do to one server: they lay sound frames, damage and
/// bytes of any kind into line, send what lies there in any cuts, read or do not read, and go. They
/// ask for shared memory and write there what they like, between any two of the service's looks.
/// What comes back is held against the model of the wire. The first byte chooses the limits and
/// whether memory is offered; then come commands, see `Play::Act`.

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

/// Hints of a client whose CPU no machine has.
constexpr std::uint16_t kElsewhere = 0xFFFE;

/// CPUs below it may be the loop's own, and whether that gets memory is not for the model to say.
constexpr std::uint16_t kMostCpus = 8192;

constexpr std::uint32_t HintsOf(std::uint8_t gap, std::uint16_t cpu) {
    return zam_platform::CallHints{.gap = gap, .cpu = cpu}.Flags();
}

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
        : offersMemory(limits.spinCap.count() != 0),
          server({}, {.ownUser = ::geteuid(), .group = {}}, Timeless(limits)),
          early_(server.Context()) {
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

    const bool offersMemory;
    Endpoint endpoint;
    Server server;

private:
    /// A machine that stands still for some seconds changes nothing.
    static zam_platform::ServerLimits Timeless(zam_platform::ServerLimits limits) {
        limits.frameTimeout = limits.memoryKept = std::chrono::hours(24);
        return limits;
    }

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
        : world_(world),
          number_(number),
          isExact_(isExact),
          model_(Endpoints(), world.offersMemory) {
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
        CheckMemory();
    }

    /// The number of the next call that may come through memory.
    std::uint64_t NextNumber() const noexcept { return model_.Last() + 1; }

    /// What its side of the memory is; null without memory.
    zam_platform::RequestPages* Requests() const noexcept { return memory_.requests.operator->(); }

    /// The service looks at the memory as it does while it polls.
    void BeLookedAt() {
        if (model_.HasMemory() && !IsOver() && RequestNumber() != memoryNumber_) {
            FollowRequest();
        }
        OnLoop([](ServerConnection& connection) {
            if (connection.HasRequest()) {
                connection.ServeFromMemory();
            }
        });
    }

    /// The service lets go of the memory.
    void LoseMemory() {
        const auto connection = connection_.lock();
        if (!memory_.answers || connection == nullptr || !connection->IsOpen() ||
            memory_.answers->polling.load() == zam_platform::kGivenUp) {
            return;
        }
        if (!IsOver() && RequestNumber() != memoryNumber_) {
            FollowRequest();
        }
        model_.GiveUp();
        OnLoop([](ServerConnection& given) { given.GiveUpMemory(); });
        Check(!connection->IsOpen() || memory_.answers->polling.load() == zam_platform::kGivenUp,
              "a client is told that its memory is given up");
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
            const ssize_t got = ReadSome(buffer.data(), buffer.size());
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
        CheckMemory();
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

    /// Takes the files that come with a grant.
    ssize_t ReadSome(unsigned char* buffer, std::size_t bytes) {
        constexpr std::size_t kFiles = 2;
        alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(kFiles * sizeof(int))> control{};
        iovec part{.iov_base = buffer, .iov_len = bytes};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t got = ::recvmsg(socket_.Get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        const cmsghdr* const rights = got > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
        if (rights != nullptr) {
            Check(rights->cmsg_type == SCM_RIGHTS && rights->cmsg_len == CMSG_LEN(2 * sizeof(int)),
                  "two files come with memory");
            std::array<int, kFiles> files{};
            std::memcpy(files.data(), CMSG_DATA(rights), sizeof(files));
            const zam_platform::UniqueFd requests(files[0]);
            const zam_platform::UniqueFd answers(files[1]);
            memory_ = zam_platform::MapClientMemory(requests, answers);
            isGrantUnread_ = false;
        }
        return got;
    }

    template <typename Function>
    void OnLoop(Function function) {
        world_.endpoint.sender = number_;
        if (const auto connection = connection_.lock()) {
            asio::post(world_.server.Context(), [&function, connection] { function(*connection); });
            world_.RunLoop();
        }
        CheckMemory();
    }

    std::uint64_t RequestNumber() const noexcept {
        return memory_.requests && !isGrantUnread_ ? memory_.requests->request.load() : 0;
    }

    /// What the service has written into memory. Its side stays as it is when the connection ends.
    void CheckMemory() const {
        if (!isExact_ || !memory_.answers || isGrantUnread_) {
            return;
        }
        const zam_platform::AnswerPages& pages = *memory_.answers.operator->();
        const std::uint64_t polling = pages.polling.load();
        Check(polling <= zam_platform::kGivenUp, "polling is one of three");
        Check(IsOver() || (polling == zam_platform::kGivenUp) != model_.HasMemory(),
              "memory is given up once");
        Check(pages.taken.load() == taken_, "what is taken is told");
        Check(pages.answer.load() == answered_, "what is answered is told");
        WireBytes slot(answer_.size());
        zam_platform::ReadSlot(pages.slot.data(), 0, slot.data(), slot.size());
        Check(slot == answer_, "an answer in memory is what the model says");
    }

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
                    Refuse(step.status);
                    break;
                case WireConnection::Event::LooksUp:
                    Expect(model_.LookupAnswer(step));
                    break;
                case WireConnection::Event::Called:
                    FollowCall(step, false);
                    break;
                case WireConnection::Event::AsksForMemory:
                    FollowMemoryRequest(step);
                    break;
                case WireConnection::Event::SaysLook:
                    FollowLook(step.callNumber);
                    break;
            }
        }
    }

    void Refuse(std::int32_t status) {
        End();
        Expect(zam_test::WireFrame({.kind = 6, .status = status}));
    }

    void FollowMemoryRequest(const WireConnection::Step& step) {
        const auto cpu = zam_platform::CallHints::Of(step.flags).cpu;
        if (cpu == 0) {
            return Expect(zam_test::WireFrame(
                {.kind = 8, .callNumber = step.callNumber, .status = zam_platform::kStatusQuota}));
        }
        // What finds no room in the socket gets no memory.
        isExact_ = isExact_ && cpu >= kMostCpus && expected_.size() - received_ <= kAlwaysTaken;
        WireBytes grant(sizeof(zam_platform::MemoryGrant));
        constexpr zam_platform::MemoryGrant kGrant{
            .requestSlotBytes = zam_platform::kRequestSlotBytes,
            .answerSlotBytes = zam_platform::kAnswerSlotBytes};
        std::memcpy(grant.data(), &kGrant, sizeof(kGrant));
        Expect(zam_test::WireFrame({.kind = 8, .callNumber = step.callNumber}, grant));
        model_.Grant();
        isGrantUnread_ = true;
        memoryNumber_ = taken_ = answered_ = 0;
        answer_.clear();
    }

    void FollowLook(std::uint64_t number) {
        if (number <= model_.Last()) {
            return;
        }
        const bool isNext = number == model_.Last() + 1;
        if (!model_.HasMemory() && isNext) {
            Expect(zam_test::WireFrame({.kind = 9, .callNumber = number}));
        } else if (!isNext || RequestNumber() != number) {
            Refuse(zam_test::kWireBadRequest);
        } else {
            FollowRequest();
        }
    }

    /// The service serves what stands in memory.
    void FollowRequest() {
        const std::uint64_t number = RequestNumber();
        if (number == model_.Last() + 1) {
            taken_ = memoryNumber_ = number;
        }
        WireBytes slot(zam_platform::kRequestSlotBytes);
        if (!isGrantUnread_) {
            zam_platform::ReadSlot(memory_.requests->slot.data(), 0, slot.data(), slot.size());
        }
        const WireConnection::Step step = model_.Requested(number, slot);
        if (step.event == WireConnection::Event::Called) {
            FollowCall(step, true);
        } else {
            Refuse(step.status);
        }
    }

    void ExpectAnswer(bool byMemory, zam_test::WireHead head, const WireBytes& fixed = {},
                      const WireBytes& arena = {}) {
        model_.Answered();
        if (!byMemory) {
            return Expect(zam_test::WireFrame(head, fixed, arena));
        }
        // Its parts stand on multiples of 8, as the sizes of all are.
        answer_ = zam_test::WireFrame(head, fixed, arena);
        answered_ = head.callNumber;
        if (!isGrantUnread_ && memory_.requests->waiting.load() < head.callNumber) {
            Expect(zam_test::WireFrame({.kind = 9, .callNumber = head.callNumber}));
        }
    }

    void FollowCall(const WireConnection::Step& step, bool byMemory) {
        std::uint64_t value = 0;
        std::uint64_t other = 0;
        std::memcpy(&value, step.fixed.data() + offsetof(Message, value), sizeof(value));
        std::memcpy(&other, step.fixed.data() + offsetof(Message, other), sizeof(other));
        const zam_test::WireHead head{.kind = 5, .callNumber = step.callNumber};
        switch (step.operation) {
            case kHold:
                heldNumber_ = step.callNumber;
                return;  // not answered yet
            case kDrop:
                return End();
            case kEcho:
                return ExpectAnswer(byMemory && (value & 1U) == 0, head,
                                    MessageOf(kEcho, value, other), step.arena);
            case kLarge:
                return ExpectAnswer(byMemory, head, MessageOf(kLarge, value, other),
                                    WireBytes(LargeBytes(value), kFilling));
            default:
                return ExpectAnswer(byMemory, {.kind = 5,
                                               .callNumber = step.callNumber,
                                               .status = step.operation == kFail
                                                             ? FailureOf(value)
                                                             : zam_platform::kStatusUnanswered});
        }
    }

    World& world_;
    const std::size_t number_;
    bool isExact_;  ///< the model knows what comes
    zam_platform::UniqueFd socket_;
    std::weak_ptr<ServerConnection> connection_;
    zam_platform::SessionToken token_{};
    WireConnection model_;
    WireBytes expected_;
    std::size_t received_ = 0;
    bool isOver_ = false;  ///< a rule was broken, or it has left
    bool maySufferLoss_ = false;
    std::uint64_t heldNumber_ = 0;

    zam_platform::ClientMemory memory_;  ///< the last that it was granted
    bool isGrantUnread_ = false;
    std::uint64_t memoryNumber_ = 0;  ///< of the last request that the service has served
    std::uint64_t taken_ = 0;
    std::uint64_t answered_ = 0;
    WireBytes answer_;  ///< in memory
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

    /// Of memory.
    enum MemoryCommand { kAsk, kLook, kPut, kWord, kSpoil, kBeLookedAt, kLose, kHintedCall };

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
        if ((command & 0x80U) != 0) {
            ActOnMemory(client, command & 7U, isOther);
            if (!hasUnread) {
                client.Read();
                client.CheckState();
            }
            return;
        }
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

    void ActOnMemory(Client& client, unsigned command, bool isOther) {
        switch (command) {
            case kAsk: {
                const std::uint32_t flags = HintsOf(input_.Byte(), isOther ? 0 : kElsewhere);
                return client.Lay(zam_test::WireFrame(
                    {.kind = 7, .callNumber = client.NextNumber() - 1, .flags = flags}));
            }
            case kLook:
                return client.Lay(
                    zam_test::WireFrame({.kind = 9, .callNumber = NumberNear(client)}));
            case kPut:
                return Put(client, isOther);
            case kWord: {
                const std::uint64_t number = isOther ? input_.Byte() : NumberNear(client);
                if (auto* const pages = client.Requests()) {
                    ((input_.Byte() & 1U) != 0 ? pages->waiting : pages->request).store(number);
                }
                return;
            }
            case kSpoil: {
                const std::size_t at = input_.Word();
                const std::uint64_t bits = input_.Byte();
                if (auto* const pages = client.Requests()) {
                    pages->slot[at / 8 % pages->slot.size()] ^= bits << at % 8 * 8;
                }
                return;
            }
            case kBeLookedAt:
                return client.BeLookedAt();
            case kLose:
                return client.LoseMemory();
            default:
                return client.Lay(CallOf(client.NextNumber(), HintsOf(input_.Byte(), kElsewhere)));
        }
    }

    /// The next number, but for what the input adds to it.
    std::uint64_t NumberNear(const Client& client) {
        return client.NextNumber() +
               static_cast<std::uint64_t>(static_cast<std::int8_t>(input_.Byte()));
    }

    /// Writes a call into memory; tells of it or leaves that to other commands.
    void Put(Client& client, bool isTold) {
        const std::uint64_t number = NumberNear(client);
        // All parts of it are multiples of 8.
        const WireBytes frame = CallOf(number, HintsOf(0, kElsewhere));
        if (auto* const pages = client.Requests()) {
            zam_platform::WriteSlot(pages->slot.data(), 0, frame.data(), frame.size());
            if (isTold) {
                pages->waiting.store(number);
                pages->request.store(number);
            }
        }
    }

    void LayLookup(Client& client) {
        const std::size_t length = input_.Byte();
        const std::string name = length == 0 ? std::string(kName) : std::string(length, 'x');
        client.Lay(zam_test::WireFrame({.kind = 2, .callNumber = ++callNumber_},
                                       WireBytes(name.begin(), name.end())));
    }

    void LayCall(Client& client) { client.Lay(CallOf(++callNumber_, 0)); }

    WireBytes CallOf(std::uint64_t number, std::uint32_t flags) {
        const auto operation = static_cast<std::uint16_t>(input_.Byte() % kOperations);
        std::uint64_t value = input_.Byte();
        if (operation == kLarge && ++large_ > kMostLarge) {
            value = 0;
        }
        const std::size_t arenaBytes = std::size_t{input_.Byte()} * 8;
        return zam_test::WireFrame({.kind = 4, .callNumber = number, .flags = flags},
                                   MessageOf(operation, value, number),
                                   WireBytes(arenaBytes, static_cast<unsigned char>(value)));
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

/// The poller itself never runs: clients say when it looks.
zam_platform::ServerLimits WithMemory(zam_platform::ServerLimits limits) {
    limits.spinCap = std::chrono::microseconds(50);
    return limits;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const zam_test::QuietLogger logger;
    // Limits that are reached soon; the model does not know them.
    constexpr zam_platform::ServerLimits kNarrow{.bufferedBytesPerUser = 3000,
                                                 .queuedBytesPerUser = 4000};
    static World roomy({});
    static World narrow(kNarrow);
    static World roomyWithMemory(WithMemory({}));
    static World narrowWithMemory(WithMemory(kNarrow));
    Input input(data, size);
    const std::uint8_t form = input.Byte();
    const bool isExact = (form & 1U) == 0;
    const bool hasMemory = (form & 2U) != 0;
    World& whole = hasMemory ? roomyWithMemory : roomy;
    Play(isExact ? whole : hasMemory ? narrowWithMemory : narrow, input, isExact).Run();
    return 0;
}
