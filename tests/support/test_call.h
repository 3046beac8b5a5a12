#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/service_link.h"
#include "support/raw_socket.h"
#include "vd/zor_transport.h"
#include "zam_platform/transport_status.h"

namespace zam_platform::testing {

inline constexpr std::uint16_t kTestRiid = 0x0102;

/// Request and response of every operation in these tests.
struct TestMessage {
    vd_message_header header;
    std::uint64_t value;
};
static_assert(sizeof(TestMessage) == 32);

TestMessage MakeMessage(std::uint16_t operation, std::uint64_t value,
                        std::uint16_t riid = kTestRiid);
Bytes MessageBytes(const TestMessage& message);
TestMessage MessageIn(const Bytes& fixed);

Bytes CallFrame(std::uint64_t callNumber, std::uint16_t operation, std::uint64_t value,
                const Bytes& arena = {});
Bytes AnswerFrame(std::uint64_t callNumber, std::uint64_t value, const Bytes& arena = {},
                  std::uint16_t operation = 0);
Bytes StatusFrame(FrameKind kind, std::uint64_t callNumber, std::int32_t status);

/// A sound answer to call 1 with some bytes replaced.
Bytes ChangedAnswer(std::size_t offset, const Bytes& replacement);

/// An answer that a client must not take, and what it makes of it.
struct BrokenAnswer {
    const char* name;
    Bytes answer;
    std::int32_t status;
    std::string text;
};

/// The answer that repeats a call's value and arena.
Bytes EchoOf(const Frame& call);

/// One call with the messages and arenas that it needs. May be made more than once.
class TestCall {
public:
    explicit TestCall(std::uint16_t operation = 0, std::uint64_t value = 0);
    TestCall(const TestCall&) = delete;
    TestCall& operator=(const TestCall&) = delete;

    TestCall& RequestArena(const Bytes& bytes);
    TestCall& ResponseArena(std::uint32_t capacity);
    TestCall& Timeout(std::chrono::milliseconds timeout);
    TestCall& Farewell();
    TestCall& Bounds(VdCallBounds& bounds);

    std::int32_t On(ServiceLink& link);
    std::int32_t On(VdZorTransport& transport);

    std::uint64_t Value() const noexcept { return response.value; }

    /// The response arena's bytes in use.
    Bytes Answered() const;

    /// True when all bytes of the response arena behind `used` are 0 and what lies behind its
    /// capacity is as it was.
    bool OnlyUsedIsWritten() const;

    TestMessage request;
    TestMessage response;
    vd_arena responseArena{};

private:
    /// What an operation stub writes to the response before each call.
    void FillStub();

    vd_arena requestArena_{};
    Bytes requestBytes_;
    Bytes room_;
    std::chrono::milliseconds timeout_{0};
    bool farewell_ = false;
    VdCallBounds* bounds_ = nullptr;
};

/// A link whose connections end in the test, without a file system. Thread-safe.
class PairedLink {
public:
    explicit PairedLink(std::chrono::milliseconds frameTimeout = kFrameTimeout);

    ServiceLink& operator*() noexcept { return link_; }

    /// The test's end of the next connection, in the order in which they are made; waits for it.
    RawSocket Next();

    /// What the peer of a prepared connection does behind its answer.
    enum class Then {
        Stay,
        EndSending,  ///< sends nothing more; still takes what comes
        Close,       ///< is gone before the first byte is sent to it
    };

    /// The next connection that is made finds `answer` waiting, so that a call and its peer need
    /// no second thread.
    void Prepare(const Bytes& answer, Then then = Then::Stay);

    /// Makes the buffers of connections to come as small as can be.
    void UseTinyBuffers();

    /// Makes connecting fail from now on; 0 lets it succeed again.
    void FailToConnect(std::int32_t status);

    /// Makes the next connection one whose send throws `std::bad_alloc`.
    void RunOutOfMemoryInTheNextSend();

    /// Whether connecting throws `std::bad_alloc` from now on.
    void RunOutOfMemoryInConnects(bool out);

    /// Tokens of the connections so far.
    std::vector<SessionToken> Tokens() const;
    std::size_t Connections() const { return Tokens().size(); }

    /// Attempts to connect so far, failed ones included.
    std::size_t Attempts() const;

private:
    struct Prepared {
        Bytes answer;
        Then then = Then::Stay;
    };

    std::unique_ptr<Channel> Connect(const SessionToken& token);

    const std::chrono::milliseconds frameTimeout_;
    mutable std::mutex mutex_;  // guards what follows but the link
    std::condition_variable made_;
    std::deque<RawSocket> peers_;
    std::deque<Prepared> prepared_;
    std::vector<SessionToken> tokens_;
    std::size_t attempts_ = 0;
    std::int32_t failure_ = 0;
    bool tinyBuffers_ = false;
    bool noMemoryInConnects_ = false;
    bool noMemoryInNextSend_ = false;
    ServiceLink link_;
};

}  // namespace zam_platform::testing
