#include "common/arena.h"

#include <fmt/format.h>

#include <cstring>
#include <limits>
#include <stdexcept>

namespace zam_connector::common {

ArenaWriter::ArenaWriter(vd_arena* arena) : arena_(arena) {
    if (arena == nullptr) {
        throw std::invalid_argument("the message has no arena to write to");
    }
}

vd_bytes ArenaWriter::PutText(std::string_view text, const char* field) {
    if (text.empty()) {
        return {0, 0};
    }
    const auto [stretch, room] = Reserve(text.size(), field);
    std::memcpy(room, text.data(), text.size());
    return stretch;
}

std::pair<vd_bytes, unsigned char*> ArenaWriter::Reserve(std::size_t size, const char* field) {
    void* room = nullptr;
    if (size <= std::numeric_limits<std::uint32_t>::max()) {
        room = vd_arena_alloc(arena_, static_cast<std::uint32_t>(size), 1);
    }
    if (room == nullptr) {
        throw std::length_error(
            fmt::format("{}: {} bytes do not fit, {} of the arena's {} bytes are free", field, size,
                        arena_->capacity - arena_->used, arena_->capacity));
    }
    auto* bytes = static_cast<unsigned char*>(room);
    const auto offset = static_cast<std::uint32_t>(bytes - arena_->base);
    return {{offset, static_cast<std::uint32_t>(size)}, bytes};
}

std::string_view ArenaReader::Text(vd_bytes stretch, const char* field) const {
    const std::uint64_t end = std::uint64_t{stretch.offset} + stretch.length;
    if (end > arena_.used) {
        throw std::out_of_range(
            fmt::format("{}: offset {} and length {} exceed the {} bytes in use of the arena",
                        field, stretch.offset, stretch.length, arena_.used));
    }
    if (stretch.length == 0) {
        return {};
    }
    return {reinterpret_cast<const char*>(arena_.base) + stretch.offset, stretch.length};
}

}  // namespace zam_connector::common
