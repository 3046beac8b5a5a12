#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/socket_channel.h"
#include "qx/operation_info.h"
#include "server/server_connection.h"
#include "support/raw_socket.h"
#include "support/wire_model.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/posix_error.h"

// Golden frames of every operation, with each bit flipped and cut at each length, for both sides.
// What has to come of it is the model's to say.

namespace zam_platform::testing {
namespace {

using zam_test::WireConnection;

constexpr std::uint64_t kCallNumber = 0x0102030405060708;
constexpr std::uint32_t kMostArena = 4;
constexpr std::size_t kStubBytes = 8;

struct GoldenOperation {
    std::string name;
    std::uint16_t riid;
    std::uint16_t operation;
    Bytes call;
    Bytes answer;
    zam_test::WireAwaited awaited;
};

Bytes GoldenMessage(std::uint16_t riid, const qx::OperationInfo& operation, std::uint32_t size) {
    Bytes message = zam_test::WireMessage(riid, operation.number, size);
    const Bytes fields = Pattern(size - sizeof(vd_message_header), riid);
    std::copy(fields.begin(), fields.end(), message.begin() + sizeof(vd_message_header));
    return message;
}

std::vector<GoldenOperation> GoldenOperations() {
    std::vector<GoldenOperation> golden;
    std::uint16_t riid = 0;
    for (const qx::InterfaceInfo& interface : qx::kInterfaces) {
        ++riid;
        for (const qx::OperationInfo& operation : interface.operations) {
            const std::uint32_t room = std::min(operation.responseArena, kMostArena);
            golden.push_back(
                {.name = std::string(interface.name) + "." + std::string(operation.name),
                 .riid = riid,
                 .operation = operation.number,
                 .call = zam_test::WireFrame({.kind = 4, .callNumber = kCallNumber},
                                             GoldenMessage(riid, operation, operation.requestSize),
                                             Pattern(std::min(operation.requestArena, kMostArena))),
                 .answer = zam_test::WireFrame(
                     {.kind = 5, .callNumber = kCallNumber},
                     GoldenMessage(riid, operation, operation.responseSize), Pattern(room)),
                 .awaited = {.kind = 5,
                             .callNumber = kCallNumber,
                             .fixedBytes = operation.responseSize,
                             .arenaRoom = operation.responseArena == 0 ? 0 : 2 * kMostArena}});
        }
    }
    return golden;
}

/// Calls `check` with `golden`, with every way of it with one bit flipped, and with every part that
/// it begins with.
void MangleFrame(const Bytes& golden, const std::function<void(const Bytes&)>& check) {
    check(golden);
    Bytes mangled = golden;
    for (std::size_t bit = 0; bit < golden.size() * 8; ++bit) {
        const auto mask = static_cast<unsigned char>(1U << bit % 8);
        mangled[bit / 8] ^= mask;
        SCOPED_TRACE(bit);
        check(mangled);
        mangled[bit / 8] ^= mask;
    }
    for (std::size_t length = 0; length < golden.size(); ++length) {
        SCOPED_TRACE(length);
        check(Head(golden, length));
    }
}

/// Answers with the call's own bytes behind the header, cut or filled up to the response's size.
class MirrorEndpoint final : public EndpointHandler {
public:
    void OnCall(const Request& request, Responder responder) override {
        alignas(8) std::array<unsigned char, kMaxFixedBytes> answer{};
        std::memcpy(answer.data(), request.message, request.rule->requestBytes);
        responder.AnswerBytes(reinterpret_cast<vd_message_header*>(answer.data()),
                              request.rule->responseBytes, nullptr, 0);
    }
};

/// A server with every endpoint of the library, whose loop runs when the test says so.
class MirrorServer {
public:
    MirrorServer() : server_({}, {.ownUser = ::geteuid(), .group = {}}, {}) {
        std::uint16_t riid = 0;
        for (const qx::InterfaceInfo& interface : qx::kInterfaces) {
            EndpointRule rule{.name = std::string(interface.name),
                              .riid = ++riid,
                              .operations = {},
                              .handler = &endpoint_};
            zam_test::WireEndpoint& model = endpoints_.emplace_back();
            model.name = rule.name;
            model.riid = riid;
            for (const qx::OperationInfo& operation : interface.operations) {
                rule.operations.push_back({.name = std::string(operation.name),
                                           .requestBytes = operation.requestSize,
                                           .responseBytes = operation.responseSize,
                                           .requestArenaBytes = operation.requestArena,
                                           .responseArenaBytes = operation.responseArena});
                model.operations.push_back({operation.requestSize, operation.requestArena});
                responseBytes_[{riid, operation.number}] = operation.responseSize;
            }
            server_.Serve(std::move(rule));
        }
    }

    /// What comes back to a client that sends `bytes` and ends its sending.
    Bytes AnswerTo(const Bytes& bytes) {
        auto [client, service] = MakePair();
        ServerConnection::Socket accepted(server_.Context(), asio::local::stream_protocol(),
                                          service.Release().Release());
        accepted.non_blocking(true);
        const auto connection =
            std::make_shared<ServerConnection>(server_, std::move(accepted), ::geteuid());
        connection->Start();
        client.Send(bytes);
        client.EndSending();
        server_.Context().restart();
        server_.Context().poll();
        EXPECT_FALSE(connection->IsOpen());
        return client.ReadToEnd();
    }

    /// The same by the model.
    Bytes ModelsAnswerTo(const Bytes& bytes) const {
        WireConnection model(endpoints_);
        model.Feed(bytes.data(), bytes.size());
        Bytes answers;
        for (;;) {
            const WireConnection::Step step = model.Next();
            switch (step.event) {
                case WireConnection::Event::Waits:
                    return answers;
                case WireConnection::Event::Refuses:
                    return answers + zam_test::WireFrame({.kind = 6, .status = step.status});
                case WireConnection::Event::Greeted:
                    break;
                case WireConnection::Event::LooksUp:
                    answers = answers + model.LookupAnswer(step);
                    break;
                case WireConnection::Event::Called:
                    answers = answers + Mirrored(step);
                    model.Answered();
                    break;
                case WireConnection::Event::AsksForMemory:
                case WireConnection::Event::SaysLook:
                    break;  // refused, as it is not offered
            }
        }
    }

private:
    Bytes Mirrored(const WireConnection::Step& step) const {
        const std::uint32_t size = responseBytes_.at({step.riid, step.operation});
        Bytes message = step.fixed;
        message.resize(size);
        const Bytes stub = zam_test::WireMessage(step.riid, step.operation, size);
        std::copy(stub.begin(), stub.begin() + kStubBytes, message.begin());
        return zam_test::WireFrame({.kind = 5, .callNumber = step.callNumber}, message);
    }

    MirrorEndpoint endpoint_;
    std::vector<zam_test::WireEndpoint> endpoints_;
    std::map<std::pair<std::uint16_t, std::uint16_t>, std::uint32_t> responseBytes_;
    Server server_;
};

class MangledFrames : public ::testing::Test {
protected:
    zam_connector::testing::RecordingLogger logger_{zor::logger::kLevelError + 1};
};

TEST_F(MangledFrames, OfEveryCallAreAnsweredOrRefusedAsTheModelSays) {
    MirrorServer server;
    for (const GoldenOperation& golden : GoldenOperations()) {
        SCOPED_TRACE(golden.name);
        int answered = 0;
        int refused = 0;
        MangleFrame(golden.call, [&](const Bytes& call) {
            const Bytes sent = HelloFrame() + call;
            const Bytes answer = server.AnswerTo(sent);
            ASSERT_EQ(ToHex(answer), ToHex(server.ModelsAnswerTo(sent)));
            const bool isFrame = answer.size() >= kPreludeBytes;
            answered += isFrame && answer[6] == 5 ? 1 : 0;
            refused += isFrame && answer[6] == 6 ? 1 : 0;
        });
        // What was sent is an answer's right to be: the call's number, what the transport leaves
        // alone, the fields and the arena. All else is refused, but for what still comes of a
        // frame that says that it is longer than it is.
        const std::size_t free = golden.call.size() - kPreludeBytes - kStubBytes + 8;
        EXPECT_GE(answered, static_cast<int>(8 * free));
        EXPECT_GE(refused, 8 * 16);
    }
}

TEST_F(MangledFrames, OfGreetingsAndLookupsAreAnsweredOrRefusedAsTheModelSays) {
    MirrorServer server;
    MangleFrame(
        HelloFrame() + LookupFrame("ConnController", kCallNumber) + GoldenOperations().front().call,
        [&](const Bytes& sent) {
            ASSERT_EQ(ToHex(server.AnswerTo(sent)), ToHex(server.ModelsAnswerTo(sent)));
        });
}

/// How a call over a channel ended whose service said `bytes` and no more: its status, and whether
/// it was answered with that.
std::pair<bool, std::int32_t> StatusOfAnswer(const Bytes& bytes,
                                             const zam_test::WireAwaited& awaited) {
    auto [client, service] = MakePair();
    service.Send(bytes);
    service.EndSending();
    zam_platform::SocketChannel channel(client.Release(), {});
    std::vector<std::uint64_t> fixed(awaited.fixedBytes / 8 + 1);
    Bytes room(awaited.arenaRoom);
    vd_arena arena{};
    vd_arena_init(&arena, room.data(), awaited.arenaRoom);
    IncomingFrame answer{.kind = static_cast<FrameKind>(awaited.kind),
                         .callNumber = awaited.callNumber,
                         .fixed = fixed.data(),
                         .fixedBytes = awaited.fixedBytes,
                         .arena = awaited.arenaRoom == 0 ? nullptr : &arena};
    try {
        channel.Receive(answer, {});
    } catch (const PlatformError& error) {
        return {false, error.Status()};
    }
    if (answer.status == kStatusOk) {
        const auto* const first = reinterpret_cast<const unsigned char*>(fixed.data());
        EXPECT_EQ(ToHex(Bytes(first, first + awaited.fixedBytes) + Head(room, arena.used)),
                  ToHex(Tail(bytes, kPreludeBytes)));
    }
    return {true, answer.status};
}

/// The same by the model.
std::pair<bool, std::int32_t> ModelsStatusOfAnswer(const Bytes& bytes,
                                                   const zam_test::WireAwaited& awaited) {
    if (bytes.size() < kPreludeBytes) {
        return {false, zam_test::kWireBroken};
    }
    if (const auto fault = zam_test::WireFaultOf(bytes.data(), awaited)) {
        return {false, *fault};
    }
    const zam_test::WireHead head = zam_test::WireHeadAt(bytes.data());
    const std::size_t wanted = kPreludeBytes + head.fixedBytes + head.arenaBytes;
    if (bytes.size() != wanted) {
        return {false, bytes.size() < wanted ? zam_test::kWireBroken : zam_test::kWireProtocol};
    }
    return {true, head.status};
}

TEST_F(MangledFrames, OfEveryAnswerGiveTheStatusThatTheModelSays) {
    for (const GoldenOperation& golden : GoldenOperations()) {
        SCOPED_TRACE(golden.name);
        int good = 0;
        MangleFrame(golden.answer, [&](const Bytes& answer) {
            const auto status = StatusOfAnswer(answer, golden.awaited);
            ASSERT_EQ(status, ModelsStatusOfAnswer(answer, golden.awaited));
            good += status == std::pair(true, 0) ? 1 : 0;
        });
        // No bit of the prelude may be other than it is; the header is the pool's to check.
        EXPECT_EQ(good, 1 + static_cast<int>(8 * (golden.answer.size() - kPreludeBytes)));
    }
}

TEST_F(MangledFrames, OfALookupAnswerGiveTheStatusThatTheModelSays) {
    const zam_test::WireAwaited awaited{
        .kind = 3, .callNumber = kCallNumber, .fixedBytes = 8, .arenaRoom = 0};
    MangleFrame(zam_test::WireFrame({.kind = 3, .callNumber = kCallNumber}, Bytes(8)),
                [&](const Bytes& answer) {
                    ASSERT_EQ(StatusOfAnswer(answer, awaited),
                              ModelsStatusOfAnswer(answer, awaited));
                });
}

}  // namespace
}  // namespace zam_platform::testing
