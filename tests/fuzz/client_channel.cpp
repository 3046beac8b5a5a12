#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "check.h"
#include "client/socket_channel.h"
#include "client_memory.h"
#include "fuzz_input.h"
#include "support/quiet_logger.h"
#include "support/wire_model.h"
#include "zam_platform/posix_error.h"

/// An input is what a service answers to the calls of one channel, in the cuts in which it comes:
/// the first byte chooses the form, then come commands, see `Service::Act`. What the channel makes
/// of it is held against the model of the wire. One form has shared memory as well, and its own
/// commands: `client_memory.cpp`.

namespace {

using zam_fuzz::Check;
using zam_fuzz::Input;
using zam_platform::FrameKind;
using zam_test::WireBytes;

constexpr std::uint32_t kFixedBytes = 40;
constexpr std::uint32_t kRoom = 600;
constexpr unsigned char kUntouched = 0xEE;
constexpr std::uint32_t kLookupBytes = 8;
constexpr int kMostCalls = 4;

/// What lies ready for the channel, in the pieces in which its reads get it. A stream gives as much
/// as there is room for; packets are cut where they end, and lose what there is no room for.
class Service {
public:
    Service(Input input, bool inPackets) : input_(input), inPackets_(inPackets) {
        while (!input_.IsAtEnd()) {
            Act(input_.Byte());
        }
        Cut(0);
    }

    void SendTo(int socket) const {
        for (const WireBytes& piece : pieces_) {
            Check(::send(socket, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
                      static_cast<ssize_t>(piece.size()),
                  "there is room for all that the service says");
        }
        ::shutdown(socket, SHUT_WR);
    }

    /// What a read with so much room gets; empty at the end.
    WireBytes Read(std::size_t room) {
        WireBytes got;
        while (next_ != pieces_.size() && got.size() < room) {
            WireBytes& piece = pieces_[next_];
            const std::size_t taken = std::min(room - got.size(), piece.size());
            const auto end = piece.begin() + static_cast<std::ptrdiff_t>(taken);
            got.insert(got.end(), piece.begin(), end);
            piece.erase(piece.begin(), end);
            if (piece.empty() || inPackets_) {
                ++next_;
            }
            if (inPackets_) {
                break;
            }
        }
        return got;
    }

private:
    enum Command { kAnswer, kFailed, kRefusal, kLookupAnswer, kRaw, kDamage, kCut, kAgain };

    static constexpr std::size_t kMostBytes = 20'000;
    static constexpr std::size_t kMostPieces = 60;

    void Act(std::uint8_t command) {
        const auto status = static_cast<std::int32_t>(command >> 3U) - 4;
        switch (command & 7U) {
            case kAnswer:
                ++number_;
                return Lay(zam_test::WireFrame(
                    {.kind = 5, .callNumber = number_},
                    zam_test::WireMessage(7, static_cast<std::uint16_t>(command >> 3U),
                                          kFixedBytes),
                    WireBytes(std::size_t{input_.Byte()} * 3, 0x5A)));
            case kFailed:
                return Lay(
                    zam_test::WireFrame({.kind = 5, .callNumber = ++number_, .status = status}));
            case kRefusal:
                return Lay(zam_test::WireFrame({.kind = 6, .status = status}));
            case kLookupAnswer:
                return Lay(zam_test::WireFrame({.kind = 3, .callNumber = ++number_},
                                               WireBytes(kLookupBytes, input_.Byte())));
            case kRaw:
                return Lay(input_.Bytes(input_.Byte()));
            case kDamage: {
                const std::size_t at = input_.Word();
                const std::uint8_t bits = input_.Byte();
                if (!line_.empty()) {
                    line_[at % line_.size()] ^= bits;
                }
                return;
            }
            case kCut:
                return Cut(input_.Byte());
            default:
                --number_;
                return;
        }
    }

    void Lay(const WireBytes& bytes) {
        if (line_.size() + laid_ + bytes.size() <= kMostBytes) {
            line_.insert(line_.end(), bytes.begin(), bytes.end());
        }
    }

    /// Ends a piece behind so many bytes of what is laid, 0 for all.
    void Cut(std::size_t count) {
        count = count == 0 ? line_.size() : std::min(count, line_.size());
        if (count == 0 || (pieces_.size() >= kMostPieces && count != line_.size())) {
            return;
        }
        const auto end = line_.begin() + static_cast<std::ptrdiff_t>(count);
        pieces_.emplace_back(line_.begin(), end);
        line_.erase(line_.begin(), end);
        laid_ += count;
    }

    Input input_;
    const bool inPackets_;
    WireBytes line_;
    std::size_t laid_ = 0;
    std::uint64_t number_ = 0;
    std::vector<WireBytes> pieces_;
    std::size_t next_ = 0;
};

/// What has to come of one call.
struct Expected {
    std::int32_t status = 0;
    bool isAnswered = false;  ///< with that status; otherwise it failed with it
    WireBytes body;           ///< what was read behind the prelude
};

Expected Expect(Service& service, const zam_test::WireAwaited& awaited, bool hasArena) {
    constexpr std::size_t kHeadBytes = 32;
    const std::size_t room = kHeadBytes + awaited.fixedBytes + (hasArena ? awaited.arenaRoom : 0);
    WireBytes got;
    std::size_t wanted = kHeadBytes;
    Expected expected;
    bool isHeadKnown = false;
    const auto fail = [&](std::int32_t status) {
        expected.status = status;
        expected.body.assign(
            got.begin() + static_cast<std::ptrdiff_t>(std::min(got.size(), kHeadBytes)), got.end());
        return expected;
    };
    while (got.size() < wanted) {
        const WireBytes more = service.Read(room - got.size());
        if (more.empty()) {
            return fail(zam_test::kWireBroken);
        }
        got.insert(got.end(), more.begin(), more.end());
        if (!isHeadKnown && got.size() >= kHeadBytes) {
            isHeadKnown = true;
            if (const auto fault = zam_test::WireFaultOf(got.data(), awaited)) {
                return fail(*fault);
            }
            const zam_test::WireHead head = zam_test::WireHeadAt(got.data());
            wanted = kHeadBytes + head.fixedBytes + head.arenaBytes;
        }
    }
    if (got.size() > wanted) {
        return fail(zam_test::kWireProtocol);
    }
    expected.isAnswered = true;
    return fail(zam_test::WireHeadAt(got.data()).status);
}

/// One call over the channel, in room that shows what was written.
class Call {
public:
    Call(FrameKind kind, bool hasArena)
        : kind_(kind),
          isLookup_(kind == FrameKind::LookupAnswer),
          hasArena_(hasArena && !isLookup_),
          fixed_(isLookup_ ? kLookupBytes : kFixedBytes, kUntouched),
          room_(kRoom, kUntouched) {
        vd_arena_init(&arena_, room_.data(), kRoom);
    }

    /// False when the channel is of no more use.
    bool Make(zam_platform::SocketChannel& channel, std::uint64_t number, Service& service) {
        zam_platform::IncomingFrame answer{.kind = kind_,
                                           .callNumber = number,
                                           .fixed = fixed_.data(),
                                           .fixedBytes = static_cast<std::uint32_t>(fixed_.size()),
                                           .arena = hasArena_ ? &arena_ : nullptr};
        const zam_platform::OutgoingFrame request{
            .prelude = {.kind = isLookup_ ? FrameKind::Lookup : FrameKind::Call,
                        .callNumber = number,
                        .fixedBytes = static_cast<std::uint32_t>(fixed_.size())},
            .fixed = fixed_.data()};
        const Expected expected = Expect(service,
                                         {.kind = static_cast<std::uint16_t>(kind_),
                                          .callNumber = number,
                                          .fixedBytes = answer.fixedBytes,
                                          .arenaRoom = hasArena_ ? kRoom : 0},
                                         hasArena_);
        Check(channel.Send(request, {}), "the service takes every request");
        bool isAnswered = false;
        std::int32_t status = 0;
        try {
            channel.Receive(answer, {});
            isAnswered = true;
            status = answer.status;
        } catch (const zam_platform::PlatformError& error) {
            status = error.Status();
            Check(error.what()[0] != '\0', "an error says what is wrong");
        }
        Check(isAnswered == expected.isAnswered, "what is no answer fails the call");
        Check(status == expected.status, "a call ends as the model says");
        CheckWritten(expected.body);
        return isAnswered;
    }

private:
    /// What came stands where it belongs, and nothing else was written.
    void CheckWritten(const WireBytes& body) const {
        const std::size_t inFixed = std::min(body.size(), fixed_.size());
        const std::size_t inArena = body.size() - inFixed;
        Check(std::equal(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(inFixed),
                         fixed_.begin()),
              "the fixed part is what came");
        Check(arena_.used == inArena, "the arena's bytes in use are those that came");
        Check(std::equal(body.end() - static_cast<std::ptrdiff_t>(inArena), body.end(),
                         room_.begin()),
              "the arena is what came");
        Check(std::all_of(room_.begin() + static_cast<std::ptrdiff_t>(inArena), room_.end(),
                          [](unsigned char byte) { return byte == kUntouched; }),
              "nothing is written behind what came");
    }

    const FrameKind kind_;
    const bool isLookup_;
    const bool hasArena_;
    WireBytes fixed_;
    WireBytes room_;
    vd_arena arena_{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static const zam_test::QuietLogger logger;
    Input input(data, size);
    const std::uint8_t form = input.Byte();
    if ((form & 8U) != 0) {
        zam_fuzz::PlayClientMemory(input);
        return 0;
    }
    const bool inPackets = (form & 1U) != 0;
    const auto kind = (form & 2U) != 0 ? FrameKind::LookupAnswer : FrameKind::Answer;
    Service service(input, inPackets);
    int sockets[2];
    Check(::socketpair(AF_UNIX, (inPackets ? SOCK_SEQPACKET : SOCK_STREAM) | SOCK_CLOEXEC, 0,
                       sockets) == 0,
          "there are descriptors for a channel");
    const zam_platform::UniqueFd peer(sockets[1]);
    zam_platform::UniqueFd own(sockets[0]);
    zam_platform::SocketChannel channel(std::move(own), {});
    service.SendTo(peer.Get());
    for (int number = 1; number <= kMostCalls; ++number) {
        Call call(kind, (form & 4U) != 0);
        if (!call.Make(channel, static_cast<std::uint64_t>(number), service)) {
            break;
        }
    }
    return 0;
}
