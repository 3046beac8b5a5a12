#include "support/test_call.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "client/socket_channel.h"
#include "zam_platform/posix_error.h"

namespace zam_platform::testing {
namespace {

constexpr std::size_t kGuardBytes = 64;
constexpr unsigned char kGuard = 0xEE;

}  // namespace

TestMessage MakeMessage(std::uint16_t operation, std::uint64_t value, std::uint16_t riid) {
    TestMessage message{};
    message.header.riid = riid;
    message.header.operation = operation;
    message.header.fixedSize = sizeof(TestMessage);
    message.value = value;
    return message;
}

Bytes MessageBytes(const TestMessage& message) {
    Bytes bytes(sizeof(message));
    std::memcpy(bytes.data(), &message, sizeof(message));
    return bytes;
}

TestMessage MessageIn(const Bytes& fixed) {
    if (fixed.size() != sizeof(TestMessage)) {
        throw std::runtime_error("no test message");
    }
    TestMessage message;
    std::memcpy(&message, fixed.data(), sizeof(message));
    return message;
}

Bytes CallFrame(std::uint64_t callNumber, std::uint16_t operation, std::uint64_t value,
                const Bytes& arena) {
    return FrameOf({.kind = FrameKind::Call, .callNumber = callNumber},
                   MessageBytes(MakeMessage(operation, value)), arena);
}

Bytes AnswerFrame(std::uint64_t callNumber, std::uint64_t value, const Bytes& arena,
                  std::uint16_t operation) {
    return FrameOf({.kind = FrameKind::Answer, .callNumber = callNumber},
                   MessageBytes(MakeMessage(operation, value)), arena);
}

Bytes StatusFrame(FrameKind kind, std::uint64_t callNumber, std::int32_t status) {
    return FrameOf({.kind = kind, .callNumber = callNumber, .status = status});
}

Bytes ChangedAnswer(std::size_t offset, const Bytes& replacement) {
    Bytes answer = AnswerFrame(1, 5, BytesOf("abc"));
    std::copy(replacement.begin(), replacement.end(),
              answer.begin() + static_cast<std::ptrdiff_t>(offset));
    return answer;
}

Bytes EchoOf(const Frame& call) {
    return FrameOf({.kind = FrameKind::Answer, .callNumber = call.prelude.callNumber}, call.fixed,
                   call.arena);
}

TestCall::TestCall(std::uint16_t operation, std::uint64_t value)
    : request(MakeMessage(operation, value)), response(MakeMessage(operation, 0)) {}

TestCall& TestCall::RequestArena(const Bytes& bytes) {
    requestBytes_ = bytes;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    vd_arena_init(&requestArena_, requestBytes_.data(), size);
    requestArena_.used = size;
    return *this;
}

TestCall& TestCall::ResponseArena(std::uint32_t capacity) {
    room_.assign(capacity, 0);
    room_.insert(room_.end(), kGuardBytes, kGuard);
    vd_arena_init(&responseArena, room_.data(), capacity);
    return *this;
}

TestCall& TestCall::Timeout(std::chrono::milliseconds timeout) {
    timeout_ = timeout;
    return *this;
}

TestCall& TestCall::Farewell() {
    farewell_ = true;
    return *this;
}

TestCall& TestCall::Bounds(VdCallBounds& bounds) {
    bounds_ = &bounds;
    return *this;
}

void TestCall::FillStub() {
    response.header.riid = request.header.riid;
    response.header.operation = request.header.operation;
    response.header.fixedSize = sizeof(TestMessage);
}

std::int32_t TestCall::On(ServiceLink& link) {
    FillStub();
    return link.Call({.request = &request.header,
                      .requestArena = requestArena_.base == nullptr ? nullptr : &requestArena_,
                      .response = &response.header,
                      .responseArena = responseArena.base == nullptr ? nullptr : &responseArena,
                      .timeout = timeout_,
                      .farewell = farewell_,
                      .bounds = bounds_});
}

std::int32_t TestCall::On(VdZorTransport& transport) {
    FillStub();
    return transport.ops->call(
        &transport, &request.header, requestArena_.base == nullptr ? nullptr : &requestArena_,
        &response.header, responseArena.base == nullptr ? nullptr : &responseArena);
}

Bytes TestCall::Answered() const {
    return Head(room_, responseArena.used);
}

bool TestCall::OnlyUsedIsWritten() const {
    const auto at = [this](std::size_t offset) {
        return room_.begin() + static_cast<std::ptrdiff_t>(offset);
    };
    const std::size_t capacity = responseArena.capacity;
    return responseArena.used <= capacity &&
           std::all_of(at(responseArena.used), at(capacity),
                       [](unsigned char byte) { return byte == 0; }) &&
           std::all_of(at(capacity), room_.end(),
                       [](unsigned char byte) { return byte == kGuard; });
}

namespace {

class ChannelWithoutMemory final : public Channel {
public:
    bool Send(const OutgoingFrame& /*frame*/, const Deadline& /*deadline*/) override {
        throw std::bad_alloc();
    }
    bool Receive(IncomingFrame& /*frame*/, const Deadline& /*deadline*/) override {
        throw std::bad_alloc();
    }
    void Interrupt() noexcept override {}
    void Abandon() noexcept override {}
};

}  // namespace

PairedLink::PairedLink(std::chrono::milliseconds frameTimeout)
    : frameTimeout_(frameTimeout),
      link_([this](const SessionToken& token, const Deadline&) { return Connect(token); }) {}

RawSocket PairedLink::Next() {
    std::unique_lock lock(mutex_);
    if (!made_.wait_for(lock, kBound, [this] { return !peers_.empty(); })) {
        throw std::runtime_error("no connection was made within the bound");
    }
    RawSocket peer = std::move(peers_.front());
    peers_.pop_front();
    return peer;
}

void PairedLink::Prepare(const Bytes& answer, Then then) {
    const std::lock_guard lock(mutex_);
    prepared_.push_back({answer, then});
}

void PairedLink::UseTinyBuffers() {
    const std::lock_guard lock(mutex_);
    tinyBuffers_ = true;
}

void PairedLink::FailToConnect(std::int32_t status) {
    const std::lock_guard lock(mutex_);
    failure_ = status;
}

void PairedLink::RunOutOfMemoryInTheNextSend() {
    const std::lock_guard lock(mutex_);
    noMemoryInNextSend_ = true;
}

void PairedLink::RunOutOfMemoryInConnects(bool out) {
    const std::lock_guard lock(mutex_);
    noMemoryInConnects_ = out;
}

std::vector<SessionToken> PairedLink::Tokens() const {
    const std::lock_guard lock(mutex_);
    return tokens_;
}

std::size_t PairedLink::Attempts() const {
    const std::lock_guard lock(mutex_);
    return attempts_;
}

std::unique_ptr<Channel> PairedLink::Connect(const SessionToken& token) {
    const std::lock_guard lock(mutex_);
    ++attempts_;
    if (failure_ != 0) {
        throw PlatformError(static_cast<TransportStatus>(failure_),
                            "connecting fails in this test");
    }
    if (noMemoryInConnects_) {
        throw std::bad_alloc();
    }
    auto [mine, peer] = MakePair();
    if (tinyBuffers_) {
        mine.ShrinkBuffers();
        peer.ShrinkBuffers();
    }
    if (!prepared_.empty()) {
        const Prepared prepared = std::move(prepared_.front());
        prepared_.pop_front();
        peer.Send(prepared.answer);
        if (prepared.then == Then::EndSending) {
            peer.EndSending();
        } else if (prepared.then == Then::Close) {
            peer.Close();
        }
    }
    peers_.push_back(std::move(peer));
    tokens_.push_back(token);
    made_.notify_all();
    if (std::exchange(noMemoryInNextSend_, false)) {
        return std::make_unique<ChannelWithoutMemory>();
    }
    return std::make_unique<zam_platform::SocketChannel>(mine.Release(), token, frameTimeout_);
}

}  // namespace zam_platform::testing
