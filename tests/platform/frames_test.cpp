#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "support/raw_socket.h"
#include "zam_platform/frame.h"

namespace zam_platform::testing {
namespace {

struct GoldenPrelude {
    Prelude prelude;
    const char* bytes;
};

bool operator==(const Prelude& left, const Prelude& right) {
    return left.kind == right.kind && left.callNumber == right.callNumber &&
           left.fixedBytes == right.fixedBytes && left.arenaBytes == right.arenaBytes &&
           left.status == right.status && left.flags == right.flags;
}

std::vector<GoldenPrelude> GoldenPreludes() {
    return {
        {{.kind = FrameKind::Hello, .fixedBytes = 16},
         "5A 41 4D 46 01 00 01 00 00 00 00 00 00 00 00 00 "
         "10 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::Lookup, .callNumber = 1, .fixedBytes = 256},
         "5A 41 4D 46 01 00 02 00 01 00 00 00 00 00 00 00 "
         "00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::LookupAnswer, .callNumber = 1, .fixedBytes = 8},
         "5A 41 4D 46 01 00 03 00 01 00 00 00 00 00 00 00 "
         "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::Call,
          .callNumber = 0x0123456789ABCDEF,
          .fixedBytes = 224,
          .arenaBytes = 21216},
         "5A 41 4D 46 01 00 04 00 EF CD AB 89 67 45 23 01 "
         "E0 00 00 00 E0 52 00 00 00 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::Answer, .callNumber = 2, .fixedBytes = 40, .arenaBytes = 676000},
         "5A 41 4D 46 01 00 05 00 02 00 00 00 00 00 00 00 "
         "28 00 00 00 A0 50 0A 00 00 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::Answer, .callNumber = 3, .status = -2},
         "5A 41 4D 46 01 00 05 00 03 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 FE FF FF FF 00 00 00 00"},
        {{.kind = FrameKind::Refusal, .status = 19},
         "5A 41 4D 46 01 00 06 00 00 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 13 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::MemoryRequest,
          .callNumber = 17,
          .fixedBytes = 8,
          .flags = CallHints{.gap = 0x2A, .cpu = 3}.Flags()},
         "5A 41 4D 46 01 00 07 00 11 00 00 00 00 00 00 00 "
         "08 00 00 00 00 00 00 00 00 00 00 00 00 2A 03 00"},
        {{.kind = FrameKind::MemoryAnswer, .callNumber = 17, .fixedBytes = 8},
         "5A 41 4D 46 01 00 08 00 11 00 00 00 00 00 00 00 "
         "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
        {{.kind = FrameKind::Look, .callNumber = 18},
         "5A 41 4D 46 01 00 09 00 12 00 00 00 00 00 00 00 "
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
    };
}

Bytes Encoded(const Prelude& prelude) {
    Bytes bytes(kPreludeBytes);
    EncodePrelude(prelude, bytes.data());
    return bytes;
}

/// A sound prelude with some bytes replaced.
Bytes SoundWith(std::size_t offset, const Bytes& replacement) {
    Bytes bytes = Encoded({.kind = FrameKind::Call, .callNumber = 7, .fixedBytes = 32});
    std::copy(replacement.begin(), replacement.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    return bytes;
}

TEST(Frame, PreludeOfEachKindHasTheseBytes) {
    for (const GoldenPrelude& golden : GoldenPreludes()) {
        SCOPED_TRACE(golden.bytes);
        const Bytes bytes = FromHex(golden.bytes);
        EXPECT_EQ(ToHex(Encoded(golden.prelude)), ToHex(bytes));
        Prelude decoded;
        EXPECT_EQ(DecodePrelude(bytes.data(), decoded), FrameFault::None);
        EXPECT_TRUE(decoded == golden.prelude);
    }
}

TEST(Frame, EachByteOfAFieldStandsInItsPlace) {
    const Bytes zero = Encoded({.kind = FrameKind::Call});
    const auto expectOnly = [&zero](const Prelude& prelude, std::size_t offset) {
        Bytes expected = zero;
        expected[offset] = 0xA5;
        EXPECT_EQ(ToHex(Encoded(prelude)), ToHex(expected));
    };
    for (std::size_t byte = 0; byte < 8; ++byte) {
        expectOnly({.kind = FrameKind::Call, .callNumber = std::uint64_t{0xA5} << 8 * byte},
                   8 + byte);
    }
    for (std::size_t byte = 0; byte < 4; ++byte) {
        const std::uint32_t value = 0xA5U << 8 * byte;
        expectOnly({.kind = FrameKind::Call, .fixedBytes = value}, 16 + byte);
        expectOnly({.kind = FrameKind::Call, .arenaBytes = value}, 20 + byte);
        expectOnly({.kind = FrameKind::Call, .status = static_cast<std::int32_t>(value)},
                   24 + byte);
        expectOnly({.kind = FrameKind::Call, .flags = value}, 28 + byte);
    }
    expectOnly({.kind = static_cast<FrameKind>(0xA5)}, 6);
}

TEST(Frame, HasOneFlagInCallsAndHintsInCallsAndMemoryRequests) {
    constexpr int kFirstHint = 8;
    for (std::uint16_t kind = 1; kind <= 9; ++kind) {
        for (int bit = 0; bit < 32; ++bit) {
            const std::uint32_t flags = 1U << bit;
            const Bytes bytes = Encoded({.kind = static_cast<FrameKind>(kind), .flags = flags});
            const bool known =
                (kind == 4 && bit == 0) || ((kind == 4 || kind == 7) && bit >= kFirstHint);
            Prelude decoded;
            EXPECT_EQ(DecodePrelude(bytes.data(), decoded),
                      known ? FrameFault::None : FrameFault::Flags)
                << kind << ' ' << bit;
            EXPECT_EQ(decoded.flags, known ? flags : 0U);
        }
    }
}

TEST(Frame, HintsStandInTheirPlacesInTheFlags) {
    EXPECT_EQ((CallHints{.gap = 0xAB, .cpu = 0x1234}.Flags()), 0x1234AB00U);
    const CallHints read = CallHints::Of(0x1234ABFFU);
    EXPECT_EQ(read.gap, 0xAB);
    EXPECT_EQ(read.cpu, 0x1234);
}

TEST(Frame, CountsThePreludeAndBothParts) {
    EXPECT_EQ(Prelude{}.FrameBytes(), 32U);
    const Prelude largest{.fixedBytes = kMaxFixedBytes, .arenaBytes = kMaxArenaBytes};
    EXPECT_EQ(largest.FrameBytes(), 32U + 4096U + 1048576U);
    const Prelude beyond{.fixedBytes = 0xFFFFFFFF, .arenaBytes = 0xFFFFFFFF};
    EXPECT_EQ(beyond.FrameBytes(), 32U + 2 * std::size_t{0xFFFFFFFF});
}

struct WrongPrelude {
    std::size_t offset;
    Bytes bytes;
    FrameFault fault;
    const char* text;
};

TEST(Frame, NamesWhatIsWrongWithAPrelude) {
    const WrongPrelude rows[] = {
        {0, FromHex("5B"), FrameFault::Magic, "frame magic is 0x464d415b, not 0x464d415a"},
        {0, FromHex("00 00 00 00"), FrameFault::Magic, "frame magic is 0x00000000, not 0x464d415a"},
        {3, FromHex("5A"), FrameFault::Magic, "frame magic is 0x5a4d415a, not 0x464d415a"},
        {4, FromHex("00 00"), FrameFault::Version, "frame version is 0, not 1"},
        {4, FromHex("02 00"), FrameFault::Version, "frame version is 2, not 1"},
        {4, FromHex("01 01"), FrameFault::Version, "frame version is 257, not 1"},
        {6, FromHex("00 00"), FrameFault::Kind, "frame kind is 0, not 1 to 9"},
        {6, FromHex("0A 00"), FrameFault::Kind, "frame kind is 10, not 1 to 9"},
        {6, FromHex("04 80"), FrameFault::Kind, "frame kind is 32772, not 1 to 9"},
        {16, FromHex("01 10 00 00"), FrameFault::FixedBytes,
         "fixed part of 4097 bytes exceeds 4096"},
        {16, FromHex("FF FF FF FF"), FrameFault::FixedBytes,
         "fixed part of 4294967295 bytes exceeds 4096"},
        {20, FromHex("01 00 10 00"), FrameFault::ArenaBytes,
         "arena of 1048577 bytes exceeds 1048576"},
        {20, FromHex("FF FF FF FF"), FrameFault::ArenaBytes,
         "arena of 4294967295 bytes exceeds 1048576"},
        {28, FromHex("03"), FrameFault::Flags, "unknown flags 0x2 of the frame"},
        {28, FromHex("80"), FrameFault::Flags, "unknown flags 0x80 of the frame"},
    };
    for (const WrongPrelude& row : rows) {
        SCOPED_TRACE(row.text);
        const Bytes bytes = SoundWith(row.offset, row.bytes);
        Prelude prelude{.kind = FrameKind::Refusal, .callNumber = 99, .status = 5};
        const Prelude before = prelude;
        EXPECT_EQ(DecodePrelude(bytes.data(), prelude), row.fault);
        EXPECT_TRUE(prelude == before) << "written in spite of the fault";
        EXPECT_EQ(DescribeFault(row.fault, bytes.data()), row.text);
    }
    const Bytes sound = SoundWith(0, {});
    EXPECT_EQ(DescribeFault(FrameFault::None, sound.data()), "frame is in order");
}

TEST(Frame, NamesTheFirstFaultOfSeveral) {
    Bytes bytes(kPreludeBytes, 0xFF);
    const Bytes sound = SoundWith(0, {});
    const std::pair<std::size_t, FrameFault> rows[] = {
        {0, FrameFault::Magic},       {4, FrameFault::Version},     {6, FrameFault::Kind},
        {16, FrameFault::FixedBytes}, {20, FrameFault::ArenaBytes}, {28, FrameFault::Flags},
        {32, FrameFault::None},
    };
    for (const auto& [soundBytes, fault] : rows) {
        std::copy_n(sound.begin(), soundBytes, bytes.begin());
        Prelude prelude;
        EXPECT_EQ(DecodePrelude(bytes.data(), prelude), fault) << soundBytes;
    }
}

TEST(Frame, AcceptsLengthsUpToTheCaps) {
    const auto faultOf = [](std::uint32_t fixedBytes, std::uint32_t arenaBytes) {
        const Bytes bytes =
            Encoded({.kind = FrameKind::Call, .fixedBytes = fixedBytes, .arenaBytes = arenaBytes});
        Prelude prelude;
        return DecodePrelude(bytes.data(), prelude);
    };
    EXPECT_EQ(faultOf(4095, 0), FrameFault::None);
    EXPECT_EQ(faultOf(4096, 0), FrameFault::None);
    EXPECT_EQ(faultOf(4097, 0), FrameFault::FixedBytes);
    EXPECT_EQ(faultOf(0, 1048575), FrameFault::None);
    EXPECT_EQ(faultOf(0, 1048576), FrameFault::None);
    EXPECT_EQ(faultOf(0, 1048577), FrameFault::ArenaBytes);
    EXPECT_EQ(faultOf(4096, 1048576), FrameFault::None);
    EXPECT_EQ(faultOf(4097, 1048577), FrameFault::FixedBytes);
}

TEST(Frame, TurnsEveryFlippedBitIntoAFaultOrAnotherSoundPrelude) {
    for (const GoldenPrelude& golden : GoldenPreludes()) {
        const Bytes bytes = FromHex(golden.bytes);
        for (std::size_t bit = 0; bit < kPreludeBytes * 8; ++bit) {
            Bytes flipped = bytes;
            flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ (1U << bit % 8));
            Prelude prelude;
            if (DecodePrelude(flipped.data(), prelude) != FrameFault::None) {
                continue;
            }
            EXPECT_FALSE(prelude == golden.prelude) << golden.bytes << " bit " << bit;
            EXPECT_EQ(ToHex(Encoded(prelude)), ToHex(flipped)) << golden.bytes << " bit " << bit;
            EXPECT_LE(prelude.fixedBytes, kMaxFixedBytes);
            EXPECT_LE(prelude.arenaBytes, kMaxArenaBytes);
        }
    }
}

TEST(Frame, ReadsAPreludeAtAnyAddress) {
    const Bytes bytes = FromHex(GoldenPreludes()[3].bytes);
    for (std::size_t shift = 0; shift < 8; ++shift) {
        Bytes room(shift + kPreludeBytes);
        EncodePrelude(GoldenPreludes()[3].prelude, room.data() + shift);
        EXPECT_EQ(std::memcmp(room.data() + shift, bytes.data(), kPreludeBytes), 0) << shift;
        Prelude prelude;
        EXPECT_EQ(DecodePrelude(room.data() + shift, prelude), FrameFault::None);
        EXPECT_TRUE(prelude == GoldenPreludes()[3].prelude);
    }
}

}  // namespace
}  // namespace zam_platform::testing
