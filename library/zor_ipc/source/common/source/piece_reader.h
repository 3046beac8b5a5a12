#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "value_block.h"

/// The bytes of a piece of raw parameters.

namespace zam_connector::common {

inline constexpr unsigned char kVersion = 0x01;

inline constexpr std::size_t kIndexWordBytes = 8;

/// Largest length that its 7-bit groups hold.
inline constexpr std::size_t kMaxLengthBytes = 3;
inline constexpr std::size_t kMaxLength = (std::size_t{1} << (7 * kMaxLengthBytes)) - 1;

/// A record where it lies.
struct PieceRecord {
    BlockView block;
    std::string_view path;
};

/// Reads a stream record by record and refuses whatever `CastToVd` does not write.
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

    /// What lies in the piece stays there.
    PieceRecord ReadRecord() {
        const unsigned char tag = Byte();
        if (tag > kVerbatimTag) {
            Refuse(fmt::format("tag {}, at most {} is known", tag, kVerbatimTag));
        }
        const std::size_t valueBytes = Length();
        const std::size_t pathBytes = Length();
        const std::string_view value = Take(valueBytes);
        const std::string_view path = Take(pathBytes);
        if (tag == kVerbatimTag && value.size() >= kIndexWordBytes) {
            std::uint64_t index = 0;
            std::memcpy(&index, value.data(), sizeof index);
            if (index < kVerbatimTag) {
                Refuse("a value in full that has a shorter form");
            }
        }
        return {.block = {.tag = tag, .bytes = value}, .path = path};
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

}  // namespace zam_connector::common
