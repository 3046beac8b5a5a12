#include "support/test_server.h"

#include <unistd.h>

#include <asio/post.hpp>
#include <utility>

#include "client/socket_channel.h"

namespace zam_platform::testing {
namespace {

Bytes ArenaOf(const Request& request) {
    return {request.arena.base, request.arena.base + request.arena.used};
}

void Answer(Responder& responder, std::uint64_t value, const Bytes& arena) {
    TestMessage message{};
    message.value = value;
    responder.Answer(message, arena.data(), static_cast<std::uint32_t>(arena.size()));
}

}  // namespace

EndpointRule TestEndpoint::Rule() {
    EndpointRule rule{.name = kTestEndpoint, .riid = kTestRiid, .operations = {}, .handler = this};
    for (const char* const name : {"Echo", "Hold", "Fail", "Drop", "Forget", "Fill", "Custom"}) {
        rule.operations.push_back({.name = name,
                                   .requestBytes = sizeof(TestMessage),
                                   .responseBytes = sizeof(TestMessage),
                                   .requestArenaBytes = kTestArenaBytes,
                                   .responseArenaBytes = kTestArenaBytes});
    }
    rule.operations[kDrop].requestArenaBytes = kSmallArenaBytes;
    rule.operations[kDrop].responseArenaBytes = kSmallArenaBytes;
    return rule;
}

void TestEndpoint::Custom(Function function) {
    const std::lock_guard lock(mutex_);
    custom_ = std::move(function);
}

void TestEndpoint::OnCall(const Request& request, Responder responder) {
    const auto& message = request.As<TestMessage>();
    Function custom;
    {
        const std::lock_guard lock(mutex_);
        calls_.push_back(message);
        clients_.push_back(request.client);
        if (request.operation == kHold) {
            held_.push_back({message, std::move(responder)});
            return;
        }
        custom = custom_;
    }
    switch (request.operation) {
        case kEcho:
            return Answer(responder, message.value, ArenaOf(request));
        case kFail:
            return responder.Fail(static_cast<std::int32_t>(message.value));
        case kDrop:
            return responder.Drop();
        case kFill:
            return Answer(responder, message.value, Pattern(message.value));
        case kCustom:
            return custom(request, std::move(responder));
        default:
            return;
    }
}

std::vector<TestMessage> TestEndpoint::Calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::vector<ClientIdentity> TestEndpoint::Clients() const {
    const std::lock_guard lock(mutex_);
    return clients_;
}

void TestEndpoint::AwaitHeld(std::size_t count) const {
    Await("calls that wait", [this, count] {
        const std::lock_guard lock(mutex_);
        return held_.size() >= count;
    });
}

Responder TestEndpoint::TakeHeld() {
    const std::lock_guard lock(mutex_);
    Responder responder = std::move(held_.front().responder);
    held_.pop_front();
    return responder;
}

void TestEndpoint::ReleaseAll() {
    std::deque<Held> held;
    {
        const std::lock_guard lock(mutex_);
        held.swap(held_);
    }
    for (Held& call : held) {
        Answer(call.responder, call.request.value, {});
    }
}

TestServer::TestServer(ServerLimits limits, AdmissionPolicy admission,
                       std::optional<std::string> directory) {
    if (!directory) {
        directory = own_.emplace().Path();
    }
    directory_ = std::make_unique<RuntimeDirectory>(*directory);
    socket_ = std::make_unique<ListeningSocket>(*directory_, kTestService, false);
    server_ = std::make_unique<Server>(std::vector{endpoint_.Rule()}, admission, limits);
    server_->OnSessionEnd([this](const SessionToken& token) {
        const std::lock_guard lock(mutex_);
        ended_.push_back(token);
    });
    server_->OnConnectionBroken([this](const SessionToken& token, const LostCall& lost) {
        const std::lock_guard lock(mutex_);
        broken_.push_back(token);
        lost_.push_back(lost);
    });
    server_->Accept(socket_->Release());
    thread_ = std::make_unique<Background>([this] { server_->Run(); });
}

TestServer::~TestServer() {
    Destroy();
}

AdmissionPolicy TestServer::OwnUser() {
    return {.ownUser = ::geteuid(), .group = {}};
}

std::string TestServer::SocketPath() const {
    return Directory() + '/' + SocketName(kTestService);
}

RawSocket TestServer::Greet(unsigned char tokenByte) const {
    RawSocket socket = Connect();
    socket.Send(HelloFrame(tokenByte));
    return socket;
}

std::vector<LostCall> TestServer::LostCalls() const {
    const std::lock_guard lock(mutex_);
    return lost_;
}

std::vector<SessionToken> TestServer::EndedSessions() const {
    const std::lock_guard lock(mutex_);
    return ended_;
}

std::vector<SessionToken> TestServer::BrokenSessions() const {
    const std::lock_guard lock(mutex_);
    return broken_;
}

void TestServer::Stop() {
    if (thread_ != nullptr) {
        server_->Stop();
        thread_->Join();
    }
}

void TestServer::Destroy() {
    Stop();
    endpoint_.ReleaseAll();
    thread_.reset();
    server_.reset();
    socket_.reset();
}

void TestServer::Post(std::function<void()> job) {
    asio::post(server_->Context(), std::move(job));
}

std::unique_ptr<ServiceLink> LinkTo(const TestServer& server) {
    return std::make_unique<ServiceLink>(
        [path = server.SocketPath()](const SessionToken& token, const Deadline&) {
            return std::make_unique<zam_platform::SocketChannel>(ConnectRaw(path).Release(), token);
        });
}

}  // namespace zam_platform::testing
