#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Frames as they stand on a connection; `docs/wire.md` describes them. No I/O here. Thread-safe.

namespace zam_platform {

static_assert(std::endian::native == std::endian::little,
              "frames are little-endian and are read where they lie");

inline constexpr std::uint32_t kFrameMagic = 0x464D415AU;  ///< the bytes "ZAMF"
inline constexpr std::uint16_t kFrameVersion = 1;
inline constexpr std::size_t kPreludeBytes = 32;
/// Largest fixed part. The largest message has 224 bytes.
inline constexpr std::uint32_t kMaxFixedBytes = 4096;
/// Largest arena. The largest operation's has 676000 bytes.
inline constexpr std::uint32_t kMaxArenaBytes = 1U << 20U;
/// Bytes of the token that names a client process and handle.
inline constexpr std::size_t kTokenBytes = 16;
/// Longest endpoint name in a lookup.
inline constexpr std::uint32_t kMaxEndpointNameBytes = 256;

/// Looked up for what the service offers: no endpoint is called so.
inline constexpr std::string_view kNoEndpoint = "?";

using SessionToken = std::array<unsigned char, kTokenBytes>;

enum class FrameKind : std::uint16_t {
    Hello = 1,          ///< client, first on a connection: the session token; not answered
    Lookup = 2,         ///< client: an endpoint name
    LookupAnswer = 3,   ///< server: `LookupResult`
    Call = 4,           ///< client: a request message and its arena
    Answer = 5,         ///< server: a response message and its arena, or only a transport status
    Refusal = 6,        ///< server: a transport status; the connection is closed behind it
    MemoryRequest = 7,  ///< client: no body; to a service that offers shared memory
    MemoryAnswer = 8,   ///< server: `MemoryGrant` and two files, or only a transport status
    Look = 9,           ///< either: the frame of this number stands in shared memory; not answered
};

/// What a service understands beyond the first version, told in each `LookupAnswer`. A client sends
/// it to no service that has not offered it: others refuse it.
enum Offer : std::uint16_t {
    kOfferFailedTransfer = 1,  ///< calls with `kFlagFailedTransfer`
    kOfferSharedMemory = 2,    ///< `MemoryRequest`
};

/// The fixed part of a `LookupAnswer`.
struct LookupResult {
    std::uint16_t riid;    ///< 0xFFFF: unknown
    std::uint16_t offers;  ///< of `Offer`; clients ignore what they do not know
    std::uint16_t reserved[2];
};
static_assert(sizeof(LookupResult) == 8);

/// The fixed part of a `MemoryAnswer`.
struct MemoryGrant {
    std::uint32_t requestSlotBytes;
    std::uint32_t answerSlotBytes;
};
static_assert(sizeof(MemoryGrant) == 8);

/// Flags of a call.
enum CallFlag : std::uint32_t {
    /// This closes a channel whose transfer failed at the client: nothing is to be kept of it.
    kFlagFailedTransfer = 1,
    /// What a client says of itself, see `CallHints`. In a `MemoryRequest`, and from then on in the
    /// connection's calls.
    kHintFlags = 0xFFFFFF00U,
};

/// What tells a service whether looking for a client's next call is worth it.
struct CallHints {
    std::uint8_t gap = 0;   ///< usual time between two calls, as `EncodeGap` writes it
    std::uint16_t cpu = 0;  ///< the client's CPU plus 1; 0: unknown

    static constexpr CallHints Of(std::uint32_t flags) noexcept {
        return {.gap = static_cast<std::uint8_t>(flags >> 8U),
                .cpu = static_cast<std::uint16_t>(flags >> 16U)};
    }
    constexpr std::uint32_t Flags() const noexcept {
        return std::uint32_t{gap} << 8U | std::uint32_t{cpu} << 16U;
    }
};

/// The head of a frame; the fixed part and then the arena bytes follow it.
struct Prelude {
    FrameKind kind = FrameKind::Hello;
    std::uint64_t callNumber = 0;
    std::uint32_t fixedBytes = 0;
    std::uint32_t arenaBytes = 0;
    std::int32_t status = 0;
    std::uint32_t flags = 0;  ///< of `CallFlag`; 0 but in calls and memory requests

    std::size_t FrameBytes() const noexcept {
        return kPreludeBytes + std::size_t{fixedBytes} + arenaBytes;
    }
};

/// Why a prelude is not acceptable.
enum class FrameFault {
    None,
    Magic,
    Version,
    Kind,
    FixedBytes,
    ArenaBytes,
    Flags,
};

/// Writes the `kPreludeBytes` bytes of `prelude` to `out`.
void EncodePrelude(const Prelude& prelude, unsigned char* out) noexcept;

/// Reads `kPreludeBytes` bytes. `prelude` is written only when the result is `None`; the lengths
/// are then within the caps.
FrameFault DecodePrelude(const unsigned char* in, Prelude& prelude) noexcept;

/// What is wrong with the prelude at `in`, with the value seen and the value or limit wanted.
std::string DescribeFault(FrameFault fault, const unsigned char* in);

}  // namespace zam_platform
