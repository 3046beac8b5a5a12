#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "qel/export.h"
#include "vd/arena.h"

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

/// A zero-filled arena on the heap, for calls whose messages are too large for a stack. Its pages
/// come from the system as they are touched, so a large arena that stays almost empty costs little.
class ZAM_API HeapArena {
public:
    /// Throws `std::bad_alloc`.
    explicit HeapArena(std::uint32_t capacity);
    HeapArena(const HeapArena&) = delete;
    HeapArena& operator=(const HeapArena&) = delete;
    ~HeapArena() = default;

    vd_arena* Get() noexcept { return &arena_; }

private:
    struct Free {
        void operator()(void* bytes) const noexcept;
    };

    std::unique_ptr<void, Free> bytes_;
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

    /// Copies the elements, which stand 4-byte aligned. Throws as `PutText`.
    template <typename Element>
    vd_bytes PutSequence(const std::vector<Element>& elements, const char* field) {
        static_assert(std::is_trivially_copyable_v<Element>);
        return PutElements(elements.data(), elements.size() * sizeof(Element), field);
    }

    /// A sequence of texts. Throws as `PutText`.
    vd_bytes PutTexts(const std::vector<std::string_view>& texts, const char* field);

    /// Takes room for `size` bytes, not 0, which the caller fills. Throws as `PutText`.
    std::pair<vd_bytes, unsigned char*> Reserve(std::size_t size, const char* field,
                                                std::uint32_t align = 1);

private:
    vd_bytes PutElements(const void* elements, std::size_t size, const char* field);

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

    /// The elements of a sequence. Throws as `Text`, and `std::invalid_argument` when the stretch
    /// is no whole number of elements.
    template <typename Element>
    std::vector<Element> Sequence(vd_bytes stretch, const char* field) const {
        static_assert(std::is_trivially_copyable_v<Element>);
        const std::string_view bytes = Text(stretch, field);
        CheckWhole(bytes.size(), sizeof(Element), field);
        std::vector<Element> elements(bytes.size() / sizeof(Element));
        if (!bytes.empty()) {
            std::memcpy(elements.data(), bytes.data(), bytes.size());
        }
        return elements;
    }

    /// A sequence of texts. Throws as `Sequence`.
    std::vector<std::string> Texts(vd_bytes stretch, const char* field) const;

private:
    static void CheckWhole(std::size_t size, std::size_t element, const char* field);

    vd_arena arena_;
};

}  // namespace zam_connector::common
