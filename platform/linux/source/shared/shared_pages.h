#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "zam_platform/frame.h"

/// The memory that a client and a service share for the calls of one connection, as both map it;
/// `docs/wire.md` describes it. Two files, each written by one side only. What stands in the other
/// side's may change at any time, and is copied once, by atomic words, before it is looked at.

namespace zam_platform {

/// Bytes of the two slots, each of which holds one frame. A chunk of a file fits the answers';
/// larger ones, the pieces of a policy, gain nothing: copying them outweighs two wake-ups.
inline constexpr std::size_t kRequestSlotBytes = std::size_t{16} << 10U;
inline constexpr std::size_t kAnswerSlotBytes = std::size_t{128} << 10U;

using SharedWord = std::atomic<std::uint64_t>;
static_assert(SharedWord::is_always_lock_free && sizeof(SharedWord) == sizeof(std::uint64_t));

/// A frame: prelude, fixed part and arena, each on a multiple of 8 bytes.
template <std::size_t kBytes>
using SharedSlot = std::array<SharedWord, kBytes / sizeof(SharedWord)>;

/// What side of a connection one writes is a cache line of its own, so that neither side's stores
/// take a line from the other that it is about to read.
inline constexpr std::size_t kSharedLine = 64;

/// Whether the service looks for requests.
enum Polling : std::uint64_t {
    kAsleep = 0,   ///< no: a request needs a look frame on the socket
    kPolling = 1,  ///< yes
    kGivenUp = 2,  ///< never again: the service has let go of the memory
};

/// Written by the client. Both numbers are those of frames.
struct RequestPages {
    alignas(kSharedLine) SharedWord request;  ///< the call whose frame the slot holds
    SharedWord waiting;                       ///< the call whose answer is looked for; 0: none is
    alignas(kSharedLine) SharedSlot<kRequestSlotBytes> slot;
};

/// Written by the service.
struct AnswerPages {
    alignas(kSharedLine) SharedWord polling;  ///< of `Polling`
    alignas(kSharedLine) SharedWord taken;    ///< the last call of which a byte was read
    alignas(kSharedLine) SharedWord answer;   ///< the call whose answer the slot holds
    alignas(kSharedLine) SharedSlot<kAnswerSlotBytes> slot;
};

static_assert(offsetof(RequestPages, waiting) == 8 && offsetof(RequestPages, slot) == 64);
static_assert(offsetof(AnswerPages, taken) == 64 && offsetof(AnswerPages, answer) == 128 &&
              offsetof(AnswerPages, slot) == 192);

/// Sizes of the two files: whole pages.
inline constexpr std::size_t kSharedPage = 4096;
inline constexpr std::size_t kRequestFileBytes =
    (sizeof(RequestPages) + kSharedPage - 1) / kSharedPage * kSharedPage;
inline constexpr std::size_t kAnswerFileBytes =
    (sizeof(AnswerPages) + kSharedPage - 1) / kSharedPage * kSharedPage;
static_assert(kRequestFileBytes == 20480 && kAnswerFileBytes == 135168);

/// What `bytes` take in a slot.
constexpr std::size_t SlotRoom(std::size_t bytes) noexcept {
    return (bytes + sizeof(SharedWord) - 1) / sizeof(SharedWord) * sizeof(SharedWord);
}

/// What a frame takes in a slot.
constexpr std::size_t SlotRoom(const Prelude& prelude) noexcept {
    return kPreludeBytes + SlotRoom(prelude.fixedBytes) + SlotRoom(prelude.arenaBytes);
}

/// Copies bytes into a slot at `offset`, a multiple of 8; the last word is filled up with zeros.
/// They must fit. Gives the offset behind them.
std::size_t WriteSlot(SharedWord* slot, std::size_t offset, const void* from,
                      std::size_t bytes) noexcept;

/// Copies bytes out of a slot at `offset`, a multiple of 8. They must lie in it. Gives the offset
/// behind them.
std::size_t ReadSlot(const SharedWord* slot, std::size_t offset, void* to,
                     std::size_t bytes) noexcept;

}  // namespace zam_platform
