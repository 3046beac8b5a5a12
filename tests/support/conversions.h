#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include "vd/arena.h"

/// What tests of conversions to and from messages share.
namespace zam_test {

using Bytes = std::vector<unsigned char>;

/// The text of the exception of type `Exception`, and none derived from it, that `act` throws.
template <typename Exception>
std::string TextOf(const std::function<void()>& act) {
    try {
        act();
    } catch (const Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(Exception));
        return exception.what();
    }
    return "nothing was thrown";
}

/// A record as it stands in memory.
template <typename Record>
Bytes BytesOf(const Record& record) {
    Bytes bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

template <typename Record>
Record RecordOf(const Bytes& bytes) {
    Record record{};
    EXPECT_EQ(bytes.size(), sizeof record);
    std::memcpy(&record, bytes.data(), sizeof record);
    return record;
}

/// The bytes in use.
inline Bytes UsedOf(const vd_arena* arena) {
    return {arena->base, arena->base + arena->used};
}

}  // namespace zam_test
