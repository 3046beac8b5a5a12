#include <gtest/gtest.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "checksums/crc32.h"
#include "checksums/sha256.h"

namespace zam_checksums {
namespace {

std::vector<std::byte> RandomBytes(std::size_t size) {
    std::mt19937 random(7);
    std::vector<std::byte> bytes(size);
    for (std::byte& byte : bytes) {
        byte = static_cast<std::byte>(random());
    }
    return bytes;
}

std::uint32_t ZlibCrc32(std::span<const std::byte> bytes) {
    return static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

std::span<const std::byte> BytesOf(const std::string& text) {
    return std::as_bytes(std::span(text));
}

TEST(Crc32, IsThatOfZlibForEveryLengthAndAlignment) {
    constexpr std::size_t kLengths = 300;
    constexpr std::size_t kOffsets = 17;
    const auto bytes = RandomBytes(kLengths + kOffsets);
    for (std::size_t offset = 0; offset < kOffsets; ++offset) {
        for (std::size_t size = 0; size < kLengths; ++size) {
            const auto part = std::span(bytes).subspan(offset, size);
            ASSERT_EQ(Crc32(part), ZlibCrc32(part)) << size << " bytes at " << offset;
        }
    }
    const auto large = RandomBytes(65537);
    EXPECT_EQ(Crc32(std::span(large).first(65536)), ZlibCrc32(std::span(large).first(65536)));
    EXPECT_EQ(Crc32(std::span(large).last(65536)), ZlibCrc32(std::span(large).last(65536)));
    EXPECT_EQ(Crc32(BytesOf("123456789")), 0xCBF43926U);
    EXPECT_EQ(Crc32({}), 0U);
}

TEST(Sha256, IsThatOfTheStandardsExamples) {
    const std::pair<std::string, const char*> rows[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1'000'000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& [text, digest] : rows) {
        Sha256 hash;
        hash.Add(BytesOf(text));
        EXPECT_EQ(hash.Digest(), digest) << text.size() << " bytes";
    }
}

TEST(Sha256, IsTheSameInPieces) {
    const std::string text = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        Sha256 hash;
        hash.Add(BytesOf(text).first(cut));
        hash.Add(BytesOf(text).subspan(cut));
        EXPECT_EQ(hash.Digest(), "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1")
            << cut;
    }
}

}  // namespace
}  // namespace zam_checksums
