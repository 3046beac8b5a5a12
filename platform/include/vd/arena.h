#pragma once

#include <stddef.h>
#include <stdint.h>

#include "qel/export.h"

/// Message arenas and headers of the IDL runtime. Plain records without hidden state: one thread
/// at a time may use an arena, and none of these functions allocates, blocks or fails otherwise
/// than stated.

extern "C" {

/// A fixed buffer that holds the variable-length parts of one message. The caller owns the buffer
/// and zero-fills it before first use.
struct vd_arena {
    unsigned char* base;
    uint32_t capacity;  ///< bytes at `base`
    /// Bytes in use. Covers every byte ever written since the last reset, a partly received answer
    /// included, so zeroing `[0, used)` and resetting restores an all-zero buffer.
    uint32_t used;
};

/// A stretch of the message's arena: how strings, blobs and sequences stand in a fixed part.
/// Untrusted until checked against the arena's `used`.
struct vd_bytes {
    uint32_t offset;
    uint32_t length;
};

/// The head of every message. The operation stub writes the first three fields; the rest belongs
/// to the transport.
struct vd_message_header {
    uint16_t riid;       ///< interface id of the endpoint
    uint16_t operation;  ///< index in the endpoint's operation table
    uint32_t fixedSize;  ///< bytes of the message's fixed part, this header included
    uint64_t reserved[2];
};

/// Makes an empty arena of `capacity` bytes at `base`.
ZAM_API void vd_arena_init(struct vd_arena* arena, void* base, uint32_t capacity);

/// Makes the arena empty (`used` = 0); the bytes stay as they are.
ZAM_API void vd_arena_reset(struct vd_arena* arena);

/// Takes `size` bytes at an offset that is a multiple of `align` (a power of two; 0 counts as 1).
/// Returns null, with the arena unchanged, when they do not fit or when `align` is no power of
/// two. Zero bytes always fit.
ZAM_API void* vd_arena_alloc(struct vd_arena* arena, uint32_t size, uint32_t align);

}  // extern "C"

static_assert(sizeof(vd_bytes) == 8);
static_assert(sizeof(vd_message_header) == 24);
static_assert(offsetof(vd_message_header, riid) == 0);
static_assert(offsetof(vd_message_header, operation) == 2);
static_assert(offsetof(vd_message_header, fixedSize) == 4);
static_assert(offsetof(vd_message_header, reserved) == 8);
