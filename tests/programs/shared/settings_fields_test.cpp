#include "vocabulary/settings_fields.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>

namespace zam_vocabulary {
namespace {

using zam_connector::ZamConnectorSettings;
using zam_connector::ZamSeconds;

/// Settings of which every member has a value of its own.
ZamConnectorSettings Everything() {
    ZamConnectorSettings settings;
    settings.syncPeriod = ZamSeconds(1);
    settings.heartbeatPeriod = ZamSeconds(2);
    settings.reconnectDelayMin = ZamSeconds(3);
    settings.reconnectDelayMax = ZamSeconds(4);
    settings.uploadLimitBytesPerSecond = 5;
    settings.downloadLimitBytesPerSecond = 6;
    settings.maxFileSizeBytes = 7;
    settings.eventQueueLimit = 8;
    settings.compressTraffic = false;
    settings.allowMeteredNetwork = true;
    settings.sendDiagnostics = true;
    return settings;
}

TEST(SettingsFields, ReachEveryMember) {
    ZamConnectorSettings copy;
    std::set<std::string> names;
    for (const SettingsField& field : SettingsFields()) {
        field.set(copy, field.get(Everything()));
        names.insert(field.name);
    }
    EXPECT_EQ(copy, Everything());
    EXPECT_EQ(names.size(), SettingsFields().size());
}

TEST(SettingsFields, StandInTheOrderOfTheMembers) {
    std::uint64_t number = 0;
    for (const SettingsField& field : SettingsFields()) {
        if (!IsFlag(field)) {
            EXPECT_EQ(field.get(Everything()), SettingsValue(++number)) << field.name;
        }
    }
    EXPECT_EQ(number, 8U);
}

TEST(SettingsFields, HoldTheirLargestNumberAndNoLargerOne) {
    for (const SettingsField& field : SettingsFields()) {
        if (IsFlag(field)) {
            continue;
        }
        ZamConnectorSettings settings;
        field.set(settings, field.most);
        EXPECT_EQ(field.get(settings), SettingsValue(field.most)) << field.name;
        if (field.most != std::numeric_limits<std::uint64_t>::max()) {
            field.set(settings, field.most + 1);
            EXPECT_EQ(field.get(settings), SettingsValue(std::uint64_t{0})) << field.name;
        }
    }
}

}  // namespace
}  // namespace zam_vocabulary
