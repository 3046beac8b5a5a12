#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "check.h"
#include "common/raw_zam_param.h"
#include "zuv/error.h"

/// An input is one value block.

namespace {

using zam_connector::common::RawZamParam;
using zam_fuzz::Check;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kHeaderBytes = zam_connector::common::kValueHeaderBytes;

enum class Fate { Decoded, TooShort, UnknownIndex, BadLength };

std::uint64_t WordAt(const Bytes& block, std::size_t offset) {
    std::uint64_t word = 0;
    for (std::size_t byte = 8; byte-- > 0;) {
        word = word << 8U | block[offset + byte];
    }
    return word;
}

/// What ought to become of a block, by the rules as they are documented.
Fate ExpectedFate(const Bytes& block) {
    if (block.size() < kHeaderBytes) {
        return Fate::TooShort;
    }
    const std::uint64_t index = WordAt(block, 0);
    const std::uint64_t payload = WordAt(block, 8);
    if (index >= zuv::kKindCount) {
        return Fate::UnknownIndex;
    }
    const auto kind = static_cast<zuv::Kind>(index);
    if ((kind == zuv::Kind::String || kind == zuv::Kind::Blob) &&
        payload > block.size() - kHeaderBytes) {
        return Fate::TooShort;
    }
    if ((kind == zuv::Kind::String && payload == 0) ||
        (kind == zuv::Kind::Vector && payload > zam_connector::common::kMaxAnnouncedElements)) {
        return Fate::BadLength;
    }
    return Fate::Decoded;
}

Fate Decode(const RawZamParam& record, zuv::TValue& value) {
    try {
        record.DeserializeValue(value);
        return Fate::Decoded;
    } catch (const zuv::Error& error) {
        const auto code = static_cast<unsigned>(error.code);
        Check(code == 0x8000005CU || code == 0x8000005EU, "a bad block has one of two codes");
        Check(error.what()[0] != '\0', "an error says what is wrong");
        return code == 0x8000005CU ? Fate::TooShort : Fate::UnknownIndex;
    } catch (const std::length_error&) {
        return Fate::BadLength;
    }
}

/// Bytes of the value's own block that are those of the block which it was decoded from.
std::size_t KeptBytes(const zuv::TValue& value) {
    switch (value.Kind()) {
        case zuv::Kind::Int64:
        case zuv::Kind::Double:
        case zuv::Kind::Timestamp:
        case zuv::Kind::UInt64:
            return kHeaderBytes;
        case zuv::Kind::String:
            return kHeaderBytes + value.Get<std::string>().size();
        case zuv::Kind::Blob:
            return kHeaderBytes + value.Get<zuv::Blob>().size();
        default:
            return sizeof(std::uint64_t);
    }
}

void CheckEncoded(const zuv::TValue& value, const Bytes& block) {
    std::vector<RawZamParam> list;
    const auto [code, text] = zam_connector::common::Serialize<zuv::Path>(zuv::Root, value, list);
    Check(code == 0 && text.empty(), "a value that was decoded can be flattened");
    Check(list.size() == 1 && list.front().path.empty(), "a value without children is one record");
    const Bytes& own = list.front().value;
    Check(own.size() <= block.size(), "a value's own block is the shortest");
    Check(std::equal(own.begin(), own.begin() + static_cast<std::ptrdiff_t>(KeptBytes(value)),
                     block.begin()),
          "index, whole words and data are written as they were read");
    zuv::TValue again;
    Check(Decode(list.front(), again) == Fate::Decoded, "a value's own block is decoded");
    Check(again.IsIdenticalTo(value), "a value's own block holds the identical value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const RawZamParam record{Bytes(data, data + size), {}};
    const zuv::TValue before = std::string("before");
    zuv::TValue value = before;
    const Fate fate = Decode(record, value);
    Check(fate == ExpectedFate(record.value), "a block is refused for what is wrong with it");
    if (fate != Fate::Decoded) {
        Check(value == before, "a block that is refused changes nothing");
        return 0;
    }
    Check(value.Index() == WordAt(record.value, 0), "the value is of the kind announced");
    Check(!value.HasChildren(), "one block holds no children");
    if (const auto* vector = value.GetIf<zuv::Vector>()) {
        Check(vector->capacity() <= zam_connector::common::kMaxReservedElements,
              "little room is reserved on a block's word");
    }
    CheckEncoded(value, record.value);
    return 0;
}
