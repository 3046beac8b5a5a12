#include "common/product_data_casts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/arena.h"
#include "support/conversions.h"

namespace zam_connector::common {
namespace {

using zam_test::Bytes;
using zam_test::BytesOf;
using zam_test::TextOf;
using zam_test::UsedOf;
using IdlAppInfo = qx_zam_connector_ZamTypes_AppInfo;
using IdlDynamic = qx_zam_connector_ZamTypes_DynamicAppInfo;

/// The texts in the order of the wire: each stands 8 bytes behind the one before.
struct TextField {
    const char* name;
    std::string AppInfo::*text;
};

constexpr TextField kTexts[] = {
    {"productId", &AppInfo::productId},
    {"productName", &AppInfo::productName},
    {"productVersion", &AppInfo::productVersion},
    {"buildNumber", &AppInfo::buildNumber},
    {"vendorName", &AppInfo::vendorName},
    {"installationId", &AppInfo::installationId},
    {"installPath", &AppInfo::installPath},
    {"licenseId", &AppInfo::licenseId},
    {"updateChannel", &AppInfo::updateChannel},
    {"deviceModel", &AppInfo::deviceModel},
    {"deviceSerial", &AppInfo::deviceSerial},
    {"osName", &AppInfo::osName},
    {"osVersion", &AppInfo::osVersion},
    {"architecture", &AppInfo::architecture},
    {"hostName", &AppInfo::hostName},
    {"supportUrl", &AppInfo::supportUrl},
};

constexpr std::size_t kSequencesAt = 8 * std::size(kTexts);

AppInfo FullInfo() {
    AppInfo info;
    for (const TextField& field : kTexts) {
        info.*field.text = field.name;
    }
    info.components = {{"kernel", "1.2"}, {"", "3"}, {"shell", ""}};
    info.capabilities = {"files", "", "updates"};
    info.installTime = qor::types::Timestamp(1);
    info.lastUpdateTime = qor::types::Timestamp(INT64_MIN);
    info.licenseExpiry = qor::types::Timestamp(INT64_MAX);
    info.maxFileSizeBytes = UINT64_MAX;
    info.localeId = UINT32_MAX;
    info.protocolVersion = 7;
    return info;
}

TEST(AppInfoCast, PutsEachTextInItsPlace) {
    for (std::size_t index = 0; index < std::size(kTexts); ++index) {
        SCOPED_TRACE(kTexts[index].name);
        AppInfo info;
        info.*kTexts[index].text = "xyz";
        HeapArena arena(4);
        vd_arena_alloc(arena.Get(), 1, 1);
        const IdlAppInfo wire = CastToVd(info, arena.Get());
        Bytes expected(200);
        expected[8 * index] = 1;
        expected[8 * index + 4] = 3;
        EXPECT_EQ(BytesOf(wire), expected);
        EXPECT_EQ(UsedOf(arena.Get()), (Bytes{0, 'x', 'y', 'z'}));
        EXPECT_EQ(CastFromVd(wire, arena.Get()), info);
    }
}

TEST(AppInfoCast, PutsTheTextsInOrder) {
    AppInfo info;
    char letter = 'a';
    for (const TextField& field : kTexts) {
        info.*field.text = std::string(1, letter++);
    }
    HeapArena arena(16);
    CastToVd(info, arena.Get());
    const Bytes used = UsedOf(arena.Get());
    EXPECT_EQ(std::string(used.begin(), used.end()), "abcdefghijklmnop");
}

TEST(AppInfoCast, HasTheseNumbers) {
    AppInfo info;
    info.installTime = qor::types::Timestamp(0x0102030405060708);
    info.lastUpdateTime = qor::types::Timestamp(-2);
    info.licenseExpiry = qor::types::Timestamp(0x1112131415161718);
    info.maxFileSizeBytes = 0xF1F2F3F4F5F6F7F8;
    info.localeId = 0xE1E2E3E4;
    info.protocolVersion = 0x21222324;
    HeapArena arena(1);
    const Bytes wire = BytesOf(CastToVd(info, arena.Get()));
    EXPECT_EQ(Bytes(wire.begin(), wire.begin() + 152), Bytes(152));
    EXPECT_EQ(Bytes(wire.begin() + 152, wire.end()),
              (Bytes{8,    7,    6,    5,    4,    3,    2,    1,     // installTime
                     0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // lastUpdateTime
                     0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11,  // licenseExpiry
                     0xF8, 0xF7, 0xF6, 0xF5, 0xF4, 0xF3, 0xF2, 0xF1,  // maxFileSizeBytes
                     0xE4, 0xE3, 0xE2, 0xE1,                          // localeId
                     0x24, 0x23, 0x22, 0x21,                          // protocolVersion
                     0,    0,    0,    0,    0,    0,    0,    0}));  // reserved
    IdlAppInfo record{};
    std::memcpy(&record, wire.data(), wire.size());
    EXPECT_EQ(CastFromVd(record, nullptr), info);
}

TEST(AppInfoCast, HasTheseSequences) {
    AppInfo info;
    info.components = {{"n", "v1"}};
    info.capabilities = {"cap"};
    HeapArena arena(36);
    const IdlAppInfo wire = CastToVd(info, arena.Get());
    const Bytes bytes = BytesOf(wire);
    EXPECT_EQ(Bytes(bytes.begin() + kSequencesAt, bytes.begin() + kSequencesAt + 24),
              (Bytes{4,  0, 0, 0, 8, 0, 0, 0,     // componentNames
                     16, 0, 0, 0, 8, 0, 0, 0,     // componentVersions
                     28, 0, 0, 0, 8, 0, 0, 0}));  // capabilities
    EXPECT_EQ(UsedOf(arena.Get()), (Bytes{'n', 0,   0,   0, 0,  0, 0, 0, 1, 0, 0, 0,  //
                                          'v', '1', 0,   0, 12, 0, 0, 0, 2, 0, 0, 0,  //
                                          'c', 'a', 'p', 0, 24, 0, 0, 0, 3, 0, 0, 0}));
    EXPECT_EQ(CastFromVd(wire, arena.Get()), info);
}

TEST(AppInfoCast, RoundTrips) {
    HeapArena arena(21'216);
    EXPECT_EQ(CastFromVd(CastToVd(FullInfo(), arena.Get()), arena.Get()), FullInfo());
    EXPECT_EQ(BytesOf(CastToVd(AppInfo(), arena.Get())), Bytes(200));
    EXPECT_EQ(CastFromVd(IdlAppInfo{}, nullptr), AppInfo());
}

TEST(AppInfoCast, TakesWhatTheArenaHolds) {
    HeapArena large(21'216);
    CastToVd(FullInfo(), large.Get());
    const std::uint32_t needed = large.Get()->used;
    HeapArena exact(needed);
    EXPECT_NO_THROW(CastToVd(FullInfo(), exact.Get()));
    HeapArena small(needed - 1);
    EXPECT_THROW(CastToVd(FullInfo(), small.Get()), std::length_error);
    EXPECT_THROW(CastToVd(FullInfo(), nullptr), std::invalid_argument);
    for (const TextField& field : kTexts) {
        AppInfo info;
        info.*field.text = "12345";
        HeapArena arena(4);
        EXPECT_EQ(TextOf<std::length_error>([&] { CastToVd(info, arena.Get()); }),
                  std::string(field.name) +
                      ": 5 bytes do not fit, 4 of the arena's 4 bytes are "
                      "free");
    }
}

/// A record whose stretch at `offset` is `stretch`.
IdlAppInfo RecordWith(std::size_t offset, vd_bytes stretch) {
    IdlAppInfo record{};
    std::memcpy(reinterpret_cast<unsigned char*>(&record) + offset, &stretch, sizeof stretch);
    return record;
}

TEST(AppInfoCast, RefusesStretchesOutsideTheBytesInUse) {
    HeapArena arena(32);
    vd_arena_alloc(arena.Get(), 16, 1);
    std::vector<std::string> names;
    for (const TextField& field : kTexts) {
        names.emplace_back(field.name);
    }
    names.insert(names.end(), {"components", "components", "capabilities"});
    for (std::size_t index = 0; index < names.size(); ++index) {
        for (const vd_bytes hostile :
             {vd_bytes{16, 8}, vd_bytes{17, 0}, vd_bytes{0, 24}, vd_bytes{0xFFFFFFF8, 8},
              vd_bytes{8, 0xFFFFFFF8}, vd_bytes{0xFFFFFFFF, 0xFFFFFFFF}}) {
            const IdlAppInfo record = RecordWith(8 * index, hostile);
            EXPECT_EQ(TextOf<std::out_of_range>([&] { CastFromVd(record, arena.Get()); }),
                      names[index] + ": offset " + std::to_string(hostile.offset) + " and length " +
                          std::to_string(hostile.length) +
                          " exceed the 16 bytes in use of the arena");
            EXPECT_THROW(CastFromVd(record, nullptr), std::out_of_range);
        }
    }
}

TEST(AppInfoCast, RefusesSequencesThatAreNotWholeOrPointOutside) {
    HeapArena arena(32);
    // One stretch, {0, 17}.
    auto* const bytes = static_cast<unsigned char*>(vd_arena_alloc(arena.Get(), 16, 1));
    bytes[4] = 17;
    for (std::size_t index = 0; index < 3; ++index) {
        const char* const name = index < 2 ? "components" : "capabilities";
        const std::size_t offset = kSequencesAt + 8 * index;
        EXPECT_EQ(TextOf<std::invalid_argument>([&] {
                      CastFromVd(RecordWith(offset, {0, 7}), arena.Get());
                  }),
                  std::string(name) + ": 7 bytes are no whole number of elements of 8 bytes");
        EXPECT_EQ(
            TextOf<std::out_of_range>([&] {
                CastFromVd(RecordWith(offset, {0, 8}), arena.Get());
            }),
            std::string(name) + ": offset 0 and length 17 exceed the 16 bytes in use of the arena");
    }
}

TEST(AppInfoCast, RefusesNamesWithoutVersions) {
    HeapArena arena(32);
    vd_arena_alloc(arena.Get(), 16, 1);
    IdlAppInfo record = RecordWith(kSequencesAt, {0, 16});
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { CastFromVd(record, arena.Get()); }),
              "components: 2 names and 0 versions");
    record.componentVersions = {0, 8};
    EXPECT_EQ(TextOf<std::invalid_argument>([&] { CastFromVd(record, arena.Get()); }),
              "components: 2 names and 1 versions");
    record.componentVersions = {0, 16};
    EXPECT_EQ(CastFromVd(record, arena.Get()).components.size(), 2U);
}

TEST(AppInfoEquality, LooksAtEveryField) {
    std::vector<std::function<void(AppInfo&)>> changes{
        [](AppInfo& info) { info.components.pop_back(); },
        [](AppInfo& info) { info.components[0].name += 'x'; },
        [](AppInfo& info) { info.components[0].version += 'x'; },
        [](AppInfo& info) { info.capabilities.pop_back(); },
        [](AppInfo& info) { info.installTime = qor::types::Timestamp(9); },
        [](AppInfo& info) { info.lastUpdateTime = qor::types::Timestamp(9); },
        [](AppInfo& info) { info.licenseExpiry = qor::types::Timestamp(9); },
        [](AppInfo& info) { --info.maxFileSizeBytes; },
        [](AppInfo& info) { --info.localeId; },
        [](AppInfo& info) { --info.protocolVersion; },
    };
    for (const TextField& field : kTexts) {
        changes.emplace_back([&field](AppInfo& info) { info.*field.text += 'x'; });
    }
    for (const auto& change : changes) {
        AppInfo changed = FullInfo();
        change(changed);
        EXPECT_TRUE(changed != FullInfo());
        EXPECT_FALSE(changed == FullInfo());
    }
}

TEST(DynamicInfoCast, HasTheseBytesBothWays) {
    DynamicAppInfo info;
    info.uptime = std::chrono::duration<std::uint32_t>(0xF1020304);
    info.health = AppHealth::Failed;
    info.restartRequired = true;
    info.updateInProgress = true;
    const IdlDynamic wire = CastToVd(info);
    EXPECT_EQ(BytesOf(wire), (Bytes{4, 3, 2, 0xF1, 3, 5, 0, 0}));
    EXPECT_EQ(CastFromVd(wire), info);
    EXPECT_EQ(BytesOf(CastToVd(DynamicAppInfo())), Bytes(8));
    EXPECT_EQ(CastFromVd(IdlDynamic{}), DynamicAppInfo());
}

TEST(DynamicInfoCast, HasEachFlagInItsBitAndIgnoresTheOthers) {
    struct {
        bool DynamicAppInfo::*flag;
        std::uint8_t bit;
    } const rows[] = {
        {&DynamicAppInfo::restartRequired, 1},
        {&DynamicAppInfo::rebootRequired, 2},
        {&DynamicAppInfo::updateInProgress, 4},
    };
    for (const auto& row : rows) {
        DynamicAppInfo info;
        info.*row.flag = true;
        EXPECT_TRUE(info != DynamicAppInfo());
        EXPECT_EQ(CastToVd(info).flags, row.bit);
        IdlDynamic wire{};
        wire.flags = row.bit;
        EXPECT_EQ(CastFromVd(wire), info);
    }
    IdlDynamic wire{};
    wire.flags = 0xF8;
    wire.reserved = 0xFFFF;
    EXPECT_EQ(CastFromVd(wire), DynamicAppInfo());
}

TEST(DynamicInfoCast, KnowsFourHealthsBothWays) {
    for (unsigned health = 0; health <= 0xFF; ++health) {
        DynamicAppInfo info;
        info.health = static_cast<AppHealth>(health);
        IdlDynamic wire{};
        wire.health = static_cast<std::uint8_t>(health);
        if (health < 4) {
            EXPECT_EQ(CastToVd(info).health, health);
            EXPECT_EQ(CastFromVd(wire), info);
        } else {
            const std::string text = "health: " + std::to_string(health) + " is unknown";
            EXPECT_EQ(TextOf<std::out_of_range>([&] { CastToVd(info); }), text);
            EXPECT_EQ(TextOf<std::out_of_range>([&] { CastFromVd(wire); }), text);
        }
    }
}

}  // namespace
}  // namespace zam_connector::common
