#include "common/arena.h"

#include <fmt/format.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace zam_connector::common {
namespace {

constexpr std::uint32_t kSequenceAlignment = 4;

}  // namespace

HeapArena::HeapArena(std::uint32_t capacity) : bytes_(std::calloc(capacity, 1)) {
    if (bytes_ == nullptr) {
        throw std::bad_alloc();
    }
    vd_arena_init(&arena_, bytes_.get(), capacity);
}

void HeapArena::Free::operator()(void* bytes) const noexcept {
    std::free(bytes);
}

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

vd_bytes ArenaWriter::PutElements(const void* elements, std::size_t size, const char* field) {
    if (size == 0) {
        return {0, 0};
    }
    const auto [stretch, room] = Reserve(size, field, kSequenceAlignment);
    std::memcpy(room, elements, size);
    return stretch;
}

vd_bytes ArenaWriter::PutTexts(const std::vector<std::string_view>& texts, const char* field) {
    std::vector<vd_bytes> stretches;
    stretches.reserve(texts.size());
    for (const std::string_view text : texts) {
        stretches.push_back(PutText(text, field));
    }
    return PutSequence(stretches, field);
}

std::pair<vd_bytes, unsigned char*> ArenaWriter::Reserve(std::size_t size, const char* field,
                                                         std::uint32_t align) {
    void* room = nullptr;
    if (size <= std::numeric_limits<std::uint32_t>::max()) {
        room = vd_arena_alloc(arena_, static_cast<std::uint32_t>(size), align);
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

void ArenaReader::CheckWhole(std::size_t size, std::size_t element, const char* field) {
    if (size % element != 0) {
        throw std::invalid_argument(fmt::format(
            "{}: {} bytes are no whole number of elements of {} bytes", field, size, element));
    }
}

std::vector<std::string> ArenaReader::Texts(vd_bytes stretch, const char* field) const {
    std::vector<std::string> texts;
    const auto stretches = Sequence<vd_bytes>(stretch, field);
    texts.reserve(stretches.size());
    for (const vd_bytes& text : stretches) {
        texts.emplace_back(Text(text, field));
    }
    return texts;
}

}  // namespace zam_connector::common
