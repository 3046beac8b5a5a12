#include "common/raw_zam_param_casts.h"

#include <fmt/format.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "common/arena.h"
#include "common/raw_zam_pieces.h"
#include "piece_reader.h"
#include "zuv/value.h"

namespace zam_connector::common {
namespace {

static_assert(std::endian::native == std::endian::little, "index words are read as they stand");

unsigned char TagOf(const std::vector<unsigned char>& value) noexcept {
    std::uint64_t index = kVerbatimTag;
    if (value.size() >= kIndexWordBytes) {
        std::memcpy(&index, value.data(), sizeof index);
    }
    return index < kVerbatimTag ? static_cast<unsigned char>(index) : kVerbatimTag;
}

/// Bytes of the value block that a tag stands for.
constexpr std::size_t Elided(unsigned char tag) noexcept {
    return tag == kVerbatimTag ? 0 : kIndexWordBytes;
}

constexpr std::size_t LengthBytes(std::size_t length) noexcept {
    return length < 0x80 ? 1 : length < 0x4000 ? 2 : 3;
}

std::size_t RecordBytes(const RawZamParam& record) {
    const std::size_t value = record.value.size() - Elided(TagOf(record.value));
    const std::size_t path = record.path.size();
    if (value > kMaxLength || path > kMaxLength) {
        throw std::length_error(
            fmt::format("a raw parameter has {} bytes of value and {} of path, at most {} can be "
                        "sent of each",
                        value, path, kMaxLength));
    }
    return 1 + LengthBytes(value) + LengthBytes(path) + value + path;
}

unsigned char* PutLength(unsigned char* to, std::size_t length) noexcept {
    for (; length >= 0x80; length >>= 7U) {
        *to++ = static_cast<unsigned char>(length | 0x80U);
    }
    *to++ = static_cast<unsigned char>(length);
    return to;
}

unsigned char* PutBytes(unsigned char* to, const void* from, std::size_t size) noexcept {
    if (size != 0) {
        std::memcpy(to, from, size);
    }
    return to + size;
}

unsigned char* PutRecord(unsigned char* to, const RawZamParam& record) noexcept {
    const unsigned char tag = TagOf(record.value);
    const std::size_t elided = Elided(tag);
    *to++ = tag;
    to = PutLength(to, record.value.size() - elided);
    to = PutLength(to, record.path.size());
    to = PutBytes(to, record.value.data() + elided, record.value.size() - elided);
    return PutBytes(to, record.path.data(), record.path.size());
}

void ToRecord(const PieceRecord& from, RawZamParam& record) {
    record.value.reserve(Elided(from.block.tag) + from.block.bytes.size());
    if (from.block.tag != kVerbatimTag) {
        record.value.resize(kIndexWordBytes);
        record.value.front() = from.block.tag;
    }
    record.value.insert(record.value.end(), from.block.bytes.begin(), from.block.bytes.end());
    record.path = from.path;
}

}  // namespace

qx_zam_connector_ZamTypes_ZamParams CastToVd(std::span<const RawZamParam> records,
                                             vd_arena* arena) {
    ArenaWriter writer(arena);
    if (records.empty()) {
        return {};
    }
    std::size_t size = 1;
    for (const RawZamParam& record : records) {
        size += RecordBytes(record);
    }
    const auto [stretch, room] = writer.Reserve(size, "raw parameters");
    unsigned char* to = room;
    *to++ = kVersion;
    for (const RawZamParam& record : records) {
        to = PutRecord(to, record);
    }
    return {stretch};
}

void AppendFromVd(const qx_zam_connector_ZamTypes_ZamParams& piece, const vd_arena* arena,
                  std::vector<RawZamParam>& out) {
    PieceReader reader(ArenaReader(arena).Text(piece.records, "raw parameters"));
    if (reader.AtEnd()) {
        return;
    }
    const std::size_t before = out.size();
    try {
        reader.ReadVersion();
        while (!reader.AtEnd()) {
            ToRecord(reader.ReadRecord(), out.emplace_back());
        }
    } catch (...) {
        out.resize(before);
        throw;
    }
}

std::vector<RawZamParam> CastFromVd(const qx_zam_connector_ZamTypes_ZamParams& piece,
                                    const vd_arena* arena) {
    std::vector<RawZamParam> records;
    AppendFromVd(piece, arena, records);
    return records;
}

void RawZamPieces::Append(const qx_zam_connector_ZamTypes_ZamParams& piece, const vd_arena* arena) {
    const std::string_view bytes = ArenaReader(arena).Text(piece.records, "raw parameters");
    PieceReader reader(bytes);
    if (reader.AtEnd()) {
        return;
    }
    reader.ReadVersion();
    std::size_t count = 0;
    for (; !reader.AtEnd(); ++count) {
        reader.ReadRecord();
    }
    pieces_.emplace_back(bytes);
    count_ += count;
}

}  // namespace zam_connector::common
