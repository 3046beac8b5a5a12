#include "common/raw_zam_param_casts.h"

#include <fmt/format.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "common/arena.h"
#include "zuv/value.h"

namespace zam_connector::common {
namespace {

static_assert(std::endian::native == std::endian::little, "index words are read as they stand");

constexpr unsigned char kVersion = 0x01;

/// Tags below are the index word of the value block, which is then left out.
constexpr unsigned char kVerbatimTag = 0x10;
static_assert(kVerbatimTag == zuv::kKindCount);

constexpr std::size_t kIndexWordBytes = 8;

/// Largest length that its 7-bit groups hold.
constexpr std::size_t kMaxLengthBytes = 3;
constexpr std::size_t kMaxLength = (std::size_t{1} << (7 * kMaxLengthBytes)) - 1;

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

/// Reads a stream record by record and refuses whatever `PutRecord` does not write.
class PieceReader {
public:
    explicit PieceReader(std::string_view bytes) : bytes_(bytes) {}

    bool AtEnd() const noexcept { return at_ == bytes_.size(); }

    /// An empty list has no version either.
    void ReadVersion() {
        const unsigned char version = Byte();
        if (version != kVersion) {
            Refuse(fmt::format("version {}, only {} is known", version, kVersion));
        }
        if (AtEnd()) {
            Refuse("no record");
        }
    }

    void ReadRecord(RawZamParam& record) {
        const unsigned char tag = Byte();
        if (tag > kVerbatimTag) {
            Refuse(fmt::format("tag {}, at most {} is known", tag, kVerbatimTag));
        }
        const std::size_t valueBytes = Length();
        const std::size_t pathBytes = Length();
        const std::string_view value = Take(valueBytes);
        const std::string_view path = Take(pathBytes);
        record.value.reserve(Elided(tag) + value.size());
        if (tag != kVerbatimTag) {
            record.value.resize(kIndexWordBytes);
            record.value.front() = tag;
        }
        record.value.insert(record.value.end(), value.begin(), value.end());
        if (TagOf(record.value) != tag) {
            Refuse("a value in full that has a shorter form");
        }
        record.path = path;
    }

private:
    [[noreturn]] void Refuse(std::string_view what) const {
        throw std::invalid_argument(fmt::format("piece of raw parameters, before byte {} of {}: {}",
                                                at_, bytes_.size(), what));
    }

    std::string_view Take(std::size_t size) {
        if (size > bytes_.size() - at_) {
            Refuse(fmt::format("{} bytes are announced, {} are left", size, bytes_.size() - at_));
        }
        const std::string_view taken = bytes_.substr(at_, size);
        at_ += size;
        return taken;
    }

    unsigned char Byte() { return static_cast<unsigned char>(Take(1).front()); }

    std::size_t Length() {
        std::size_t length = 0;
        for (std::size_t group = 0; group < kMaxLengthBytes; ++group) {
            const unsigned char byte = Byte();
            length |= std::size_t{byte & 0x7FU} << (7 * group);
            if ((byte & 0x80U) == 0) {
                if (byte == 0 && group > 0) {
                    Refuse("a length that has a shorter form");
                }
                return length;
            }
        }
        Refuse(fmt::format("a length of more than {} bytes", kMaxLengthBytes));
    }

    std::string_view bytes_;
    std::size_t at_ = 0;
};

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
            reader.ReadRecord(out.emplace_back());
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

}  // namespace zam_connector::common
