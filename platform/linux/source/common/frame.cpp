#include "zam_platform/frame.h"

#include <fmt/format.h>

#include <cstring>

namespace zam_platform {
namespace {

/// The prelude's layout. Read and written as a whole: the host is little-endian.
struct WirePrelude {
    std::uint32_t magic;
    std::uint16_t version;
    std::uint16_t kind;
    std::uint64_t callNumber;
    std::uint32_t fixedBytes;
    std::uint32_t arenaBytes;
    std::int32_t status;
    std::uint32_t flags;
};
static_assert(sizeof(WirePrelude) == kPreludeBytes);
static_assert(offsetof(WirePrelude, version) == 4);
static_assert(offsetof(WirePrelude, kind) == 6);
static_assert(offsetof(WirePrelude, callNumber) == 8);
static_assert(offsetof(WirePrelude, fixedBytes) == 16);
static_assert(offsetof(WirePrelude, arenaBytes) == 20);
static_assert(offsetof(WirePrelude, status) == 24);
static_assert(offsetof(WirePrelude, flags) == 28);

constexpr auto kFirstKind = static_cast<std::uint16_t>(FrameKind::Hello);
constexpr auto kLastKind = static_cast<std::uint16_t>(FrameKind::Look);

/// The flags that a frame of this kind may have.
constexpr std::uint32_t FlagsOf(std::uint16_t kind) noexcept {
    switch (static_cast<FrameKind>(kind)) {
        case FrameKind::Call:
            return kFlagFailedTransfer | kHintFlags;
        case FrameKind::MemoryRequest:
            return kHintFlags;
        default:
            return 0;
    }
}

}  // namespace

void EncodePrelude(const Prelude& prelude, unsigned char* out) noexcept {
    const WirePrelude wire{
        .magic = kFrameMagic,
        .version = kFrameVersion,
        .kind = static_cast<std::uint16_t>(prelude.kind),
        .callNumber = prelude.callNumber,
        .fixedBytes = prelude.fixedBytes,
        .arenaBytes = prelude.arenaBytes,
        .status = prelude.status,
        .flags = prelude.flags,
    };
    std::memcpy(out, &wire, sizeof(wire));
}

FrameFault DecodePrelude(const unsigned char* in, Prelude& prelude) noexcept {
    WirePrelude wire;
    std::memcpy(&wire, in, sizeof(wire));
    if (wire.magic != kFrameMagic) {
        return FrameFault::Magic;
    }
    if (wire.version != kFrameVersion) {
        return FrameFault::Version;
    }
    if (wire.kind < kFirstKind || wire.kind > kLastKind) {
        return FrameFault::Kind;
    }
    if (wire.fixedBytes > kMaxFixedBytes) {
        return FrameFault::FixedBytes;
    }
    if (wire.arenaBytes > kMaxArenaBytes) {
        return FrameFault::ArenaBytes;
    }
    if ((wire.flags & ~FlagsOf(wire.kind)) != 0) {
        return FrameFault::Flags;
    }
    prelude = {
        .kind = static_cast<FrameKind>(wire.kind),
        .callNumber = wire.callNumber,
        .fixedBytes = wire.fixedBytes,
        .arenaBytes = wire.arenaBytes,
        .status = wire.status,
        .flags = wire.flags,
    };
    return FrameFault::None;
}

std::string DescribeFault(FrameFault fault, const unsigned char* in) {
    WirePrelude wire;
    std::memcpy(&wire, in, sizeof(wire));
    switch (fault) {
        case FrameFault::None:
            break;
        case FrameFault::Magic:
            return fmt::format("frame magic is {:#010x}, not {:#010x}", wire.magic, kFrameMagic);
        case FrameFault::Version:
            return fmt::format("frame version is {}, not {}", wire.version, kFrameVersion);
        case FrameFault::Kind:
            return fmt::format("frame kind is {}, not {} to {}", wire.kind, kFirstKind, kLastKind);
        case FrameFault::FixedBytes:
            return fmt::format("fixed part of {} bytes exceeds {}", wire.fixedBytes,
                               kMaxFixedBytes);
        case FrameFault::ArenaBytes:
            return fmt::format("arena of {} bytes exceeds {}", wire.arenaBytes, kMaxArenaBytes);
        case FrameFault::Flags:
            return fmt::format("unknown flags {:#x} of the frame",
                               wire.flags & ~FlagsOf(wire.kind));
    }
    return "frame is in order";
}

}  // namespace zam_platform
