#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "vd/arena.h"
#include "zam_connector/export.h"

/// Message arenas as the conversions use them. One thread at a time may use an arena.

namespace zam_connector::common {

/// A zero-filled arena of `kCapacity` bytes inside the object, for the stack of one call.
template <std::uint32_t kCapacity>
class StackArena {
public:
    StackArena() noexcept { vd_arena_init(&arena_, bytes_.data(), kCapacity); }
    StackArena(const StackArena&) = delete;
    StackArena& operator=(const StackArena&) = delete;

    vd_arena* Get() noexcept { return &arena_; }

private:
    alignas(std::max_align_t) std::array<unsigned char, kCapacity> bytes_{};
    vd_arena arena_{};
};

/// Makes the arena empty and all its bytes zero, by touching only those that were in use.
inline void ClearArena(vd_arena* arena) noexcept {
    if (arena->used == 0) {
        return;  // there may be no buffer at all
    }
    std::memset(arena->base, 0, arena->used);
    vd_arena_reset(arena);
}

/// Puts texts into an arena. `field` names the value in errors and must be a C string literal.
class ZAM_API ArenaWriter {
public:
    /// Throws `std::invalid_argument` when `arena` is null. The arena is not owned.
    explicit ArenaWriter(vd_arena* arena);

    /// Copies the bytes of `text`, without a terminator, behind what the arena holds. An empty
    /// text takes no room and gives {0, 0}. Throws `std::length_error`, with the arena unchanged,
    /// when the bytes do not fit.
    vd_bytes PutText(std::string_view text, const char* field);

    /// Takes room for `size` bytes, not 0, which the caller fills. Throws as `PutText`.
    std::pair<vd_bytes, unsigned char*> Reserve(std::size_t size, const char* field);

private:
    vd_arena* arena_;
};

/// Reads what a message's fixed part says of its arena. Everything that comes over the wire goes
/// through here: a stretch is checked against the bytes in use before it is touched.
class ZAM_API ArenaReader {
public:
    /// A null arena counts as an empty one. The arena is not owned and must outlive what is read.
    explicit ArenaReader(const vd_arena* arena) noexcept
        : arena_(arena != nullptr ? *arena : vd_arena{}) {}

    /// The bytes of a stretch, as they stand in the arena. Throws `std::out_of_range` when the
    /// stretch does not lie within the bytes in use.
    std::string_view Text(vd_bytes stretch, const char* field) const;

private:
    vd_arena arena_;
};

}  // namespace zam_connector::common
