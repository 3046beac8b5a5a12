#include "value_block.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/raw_zam_param.h"
#include "qel/result_code.h"
#include "zuv/error.h"

namespace zam_connector::common {
namespace {

static_assert(std::endian::native == std::endian::little, "words are copied as they stand");

constexpr std::size_t kWordBytes = 8;
static_assert(kValueHeaderBytes == 2 * kWordBytes);

/// Sums of a length word and the header exceed 64 bits.
__extension__ using WideSize = unsigned __int128;

std::vector<unsigned char> MakeBlock(std::uint64_t index, std::uint64_t payload,
                                     const void* data = nullptr, std::size_t size = 0) {
    const std::array<std::uint64_t, 2> header{index, payload};
    static_assert(sizeof header == kValueHeaderBytes);
    std::vector<unsigned char> block(sizeof header + size);
    std::memcpy(block.data(), header.data(), sizeof header);
    if (size != 0) {
        std::memcpy(block.data() + sizeof header, data, size);
    }
    return block;
}

/// A scalar stands in the low bytes of the payload word, without sign extension.
template <typename Scalar>
std::vector<unsigned char> ScalarBlock(const zuv::TValue& value) {
    static_assert(sizeof(Scalar) <= kWordBytes);
    std::uint64_t payload = 0;
    std::memcpy(&payload, value.GetIf<Scalar>(), sizeof(Scalar));
    return MakeBlock(value.Index(), payload);
}

std::uint64_t WordAt(std::string_view bytes, std::size_t offset) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + offset, kWordBytes);
    return word;
}

[[noreturn]] void ThrowInsufficient(std::size_t fact, WideSize plan) {
    throw zuv::Error(
        qel::kInvalidSize,
        fmt::format("[RawZamParams] Insufficient raw data size: fact/plan = {}/{}", fact, plan));
}

/// The first `length` of the bytes behind the header.
std::string_view DataOf(std::string_view data, std::uint64_t length) {
    if (data.size() < length) {
        ThrowInsufficient(kValueHeaderBytes + data.size(), WideSize{kValueHeaderBytes} + length);
    }
    return data.substr(0, length);
}

std::string DecodeString(std::string_view behindHeader, std::uint64_t length) {
    const std::string_view data = DataOf(behindHeader, length);
    if (data.empty()) {
        throw std::length_error("a string's length word is 0, at least 1 is needed for its end");
    }
    return std::string(data.substr(0, data.size() - 1));
}

zuv::Blob DecodeBlob(std::string_view behindHeader, std::uint64_t length) {
    const std::string_view data = DataOf(behindHeader, length);
    const auto* const begin = reinterpret_cast<const unsigned char*>(data.data());
    return {begin, begin + data.size()};
}

zuv::Vector DecodeVector(std::uint64_t elements, std::size_t& reservable) {
    if (elements > kMaxAnnouncedElements) {
        throw std::length_error(
            fmt::format("a vector announces {} elements, at most {} are allowed", elements,
                        kMaxAnnouncedElements));
    }
    zuv::Vector vector;
    const std::size_t room = std::min<std::size_t>(elements, reservable);
    vector.reserve(room);
    reservable -= room;
    return vector;
}

template <typename Scalar>
Scalar LowBytes(std::uint64_t word) {
    Scalar scalar{};
    std::memcpy(&scalar, &word, sizeof scalar);
    return scalar;
}

}  // namespace

std::vector<unsigned char> EncodeValue(const zuv::TValue& value) {
    switch (value.Kind()) {
        case zuv::Kind::None:
        case zuv::Kind::Map:
            return MakeBlock(value.Index(), 0);
        case zuv::Kind::Vector:
            return MakeBlock(value.Index(), value.GetIf<zuv::Vector>()->size());
        case zuv::Kind::String: {
            // The closing zero counts as part of the text.
            const std::string& text = *value.GetIf<std::string>();
            return MakeBlock(value.Index(), text.size() + 1, text.c_str(), text.size() + 1);
        }
        case zuv::Kind::Blob: {
            const zuv::Blob& blob = *value.GetIf<zuv::Blob>();
            return MakeBlock(value.Index(), blob.size(), blob.data(), blob.size());
        }
        case zuv::Kind::Bool:
            return ScalarBlock<bool>(value);
        case zuv::Kind::Int8:
            return ScalarBlock<signed char>(value);
        case zuv::Kind::Int16:
            return ScalarBlock<short>(value);
        case zuv::Kind::Int32:
            return ScalarBlock<int>(value);
        case zuv::Kind::Int64:
            return ScalarBlock<long>(value);
        case zuv::Kind::Double:
            return ScalarBlock<double>(value);
        case zuv::Kind::Timestamp:
            return ScalarBlock<qor::types::Timestamp>(value);
        case zuv::Kind::UInt8:
            return ScalarBlock<unsigned char>(value);
        case zuv::Kind::UInt16:
            return ScalarBlock<unsigned short>(value);
        case zuv::Kind::UInt32:
            return ScalarBlock<unsigned int>(value);
        case zuv::Kind::UInt64:
            return ScalarBlock<unsigned long>(value);
        case zuv::Kind::Valueless:
            break;
    }
    throw zuv::Error(qel::FromBits(0x8000006AU), "[RawZamParams] Invalid value state");
}

zuv::TValue DecodeValue(const std::vector<unsigned char>& block, std::size_t& reservable) {
    return DecodeValue(
        BlockView{.tag = kVerbatimTag,
                  .bytes = {reinterpret_cast<const char*>(block.data()), block.size()}},
        reservable);
}

zuv::TValue DecodeValue(const BlockView& block, std::size_t& reservable) {
    const std::size_t elided = block.tag == kVerbatimTag ? 0 : kWordBytes;
    if (block.bytes.size() + elided < kValueHeaderBytes) {
        ThrowInsufficient(block.bytes.size() + elided, kValueHeaderBytes);
    }
    const std::uint64_t index = elided == 0 ? WordAt(block.bytes, 0) : block.tag;
    const std::uint64_t payload = WordAt(block.bytes, kWordBytes - elided);
    const std::string_view data = block.bytes.substr(kValueHeaderBytes - elided);
    if (index >= zuv::kKindCount) {
        throw zuv::Error(qel::kInvalidIndex,
                         fmt::format("[RawZamParams] Invalid value index: {}", index));
    }
    switch (static_cast<zuv::Kind>(index)) {
        case zuv::Kind::Vector:
            return DecodeVector(payload, reservable);
        case zuv::Kind::Map:
            return zuv::Map();
        case zuv::Kind::Bool:
            return LowBytes<unsigned char>(payload) != 0;
        case zuv::Kind::Int8:
            return LowBytes<signed char>(payload);
        case zuv::Kind::Int16:
            return LowBytes<short>(payload);
        case zuv::Kind::Int32:
            return LowBytes<int>(payload);
        case zuv::Kind::Int64:
            return LowBytes<long>(payload);
        case zuv::Kind::Double:
            return LowBytes<double>(payload);
        case zuv::Kind::Timestamp:
            return qor::types::Timestamp(LowBytes<std::int64_t>(payload));
        case zuv::Kind::String:
            return DecodeString(data, payload);
        case zuv::Kind::Blob:
            return DecodeBlob(data, payload);
        case zuv::Kind::UInt8:
            return LowBytes<unsigned char>(payload);
        case zuv::Kind::UInt16:
            return LowBytes<unsigned short>(payload);
        case zuv::Kind::UInt32:
            return LowBytes<unsigned int>(payload);
        case zuv::Kind::UInt64:
            return LowBytes<unsigned long>(payload);
        case zuv::Kind::None:
        default:
            return {};
    }
}

void RawZamParam::DeserializeValue(zuv::TValue& out) const {
    std::size_t reservable = kMaxReservedElements;
    out = DecodeValue(value, reservable);
}

}  // namespace zam_connector::common
