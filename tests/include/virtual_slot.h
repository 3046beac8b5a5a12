#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace zam_connector {

/// The slot of a virtual member in its class's table. In the C++ ABI of our platforms a pointer to
/// a virtual member holds the slot's offset in bytes, marked in its lowest bit: with 1 added to it
/// on x86-64, in the adjustment word behind it on AArch64.
template <typename Member>
std::intptr_t SlotOf(Member member) {
    static_assert(sizeof(member) == 2 * sizeof(std::intptr_t));
    std::intptr_t words[2];
    std::memcpy(words, &member, sizeof(words));
#if defined(__aarch64__)
    EXPECT_EQ(words[1] & 1, 1) << "not virtual";
    return words[0] / static_cast<std::intptr_t>(sizeof(void*));
#else
    EXPECT_EQ(words[0] % static_cast<std::intptr_t>(sizeof(void*)), 1) << "not virtual";
    return (words[0] - 1) / static_cast<std::intptr_t>(sizeof(void*));
#endif
}

}  // namespace zam_connector
