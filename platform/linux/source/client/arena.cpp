#include "vd/arena.h"

void vd_arena_init(vd_arena* arena, void* base, uint32_t capacity) {
    arena->base = static_cast<unsigned char*>(base);
    arena->capacity = capacity;
    arena->used = 0;
}

void vd_arena_reset(vd_arena* arena) {
    arena->used = 0;
}

void* vd_arena_alloc(vd_arena* arena, uint32_t size, uint32_t align) {
    const uint32_t step = align == 0 ? 1 : align;
    if ((step & (step - 1)) != 0) {
        return nullptr;
    }
    const uint64_t offset = (uint64_t{arena->used} + step - 1) & ~(uint64_t{step} - 1);
    if (size == 0) {
        return arena->base + arena->used;
    }
    if (offset > arena->capacity || size > arena->capacity - offset) {
        return nullptr;
    }
    arena->used = static_cast<uint32_t>(offset + size);
    return arena->base + offset;
}
