#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "common/arena.h"
#include "common/product_data_casts.h"
#include "common/server_data_casts.h"

// Sound messages with one bit flipped, or with the end of their arena cut off. Whatever comes of
// it, nothing outside the arena is read, which stands in room of exactly its size.

namespace zam_connector::common {
namespace {

using Bytes = std::vector<unsigned char>;

/// How many mangled messages were read and how many refused.
struct Outcome {
    int read = 0;
    int refused = 0;
};

template <typename Record>
void Read(const Record& record, Bytes bytes, Outcome& outcome) {
    bytes.shrink_to_fit();
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    arena.used = arena.capacity;
    try {
        CastFromVd(record, &arena);
        ++outcome.read;
    } catch (const std::out_of_range&) {
        ++outcome.refused;
    } catch (const std::invalid_argument&) {
        ++outcome.refused;
    }
}

void Flip(void* bytes, std::size_t bit) {
    static_cast<unsigned char*>(bytes)[bit / 8] ^= static_cast<unsigned char>(1U << (bit % 8));
}

template <typename Value>
Outcome ReadMangled(const Value& value) {
    HeapArena arena(1000);
    const auto record = CastToVd(value, arena.Get());
    const Bytes bytes(arena.Get()->base, arena.Get()->base + arena.Get()->used);
    Outcome outcome;
    Read(record, bytes, outcome);
    EXPECT_EQ(outcome.read, 1) << "the sound message";
    for (std::size_t bit = 0; bit < 8 * sizeof record; ++bit) {
        auto mangled = record;
        Flip(&mangled, bit);
        Read(mangled, bytes, outcome);
    }
    for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
        Bytes mangled = bytes;
        Flip(mangled.data(), bit);
        Read(record, mangled, outcome);
    }
    const int refusedBefore = outcome.refused;
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        Read(record, {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)}, outcome);
    }
    EXPECT_EQ(outcome.refused - refusedBefore, static_cast<int>(bytes.size()))
        << "a cut arena lacks something at every length";
    return outcome;
}

TEST(MangledSubscriptions, AreReadOrRefused) {
    std::pair<unsigned long, ZamSubscriptions> subscriptions{7, {}};
    subscriptions.second.events["login"] = {3, std::chrono::duration<std::uint32_t>(60)};
    subscriptions.second.events["logout"] = {4, std::chrono::duration<std::uint32_t>(61)};
    const Outcome outcome = ReadMangled(subscriptions);
    EXPECT_GT(outcome.read, 100);
    EXPECT_GT(outcome.refused, 100);
}

TEST(MangledAppInfo, IsReadOrRefused) {
    AppInfo info;
    info.productId = "product";
    info.supportUrl = "https://support";
    info.components = {{"kernel", "1.2"}, {"shell", "3"}};
    info.capabilities = {"files", "updates"};
    const Outcome outcome = ReadMangled(info);
    EXPECT_GT(outcome.read, 100);
    EXPECT_GT(outcome.refused, 100);
}

TEST(MangledIdentifiers, AreReadOrRefused) {
    const Outcome outcome = ReadMangled(std::vector<ZamId>(3));
    EXPECT_GT(outcome.read, 100);
    EXPECT_GT(outcome.refused, 40);
}

}  // namespace
}  // namespace zam_connector::common
