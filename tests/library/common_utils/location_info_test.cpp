#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "thrown.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_locale_info.h"

namespace zam_connector::zam_locale {
namespace {

std::unique_ptr<IZamLocationInfo> Locations() {
    return MicrosoftZamLocaleFactory().CreateZamLocationInfo();
}

std::string RefusalOf(LocaleIdType id) {
    return "void zam_connector::zam_locale::MicrosoftLocationInfo::CheckLocationId("
           "zam_connector::LocaleIdType) const: localeId is out of range: value is [" +
           std::to_string(id) +
           "] but value is expected to be in range [0x01 - 0xFFFF] and the last 2 bytes should "
           "not be 0";
}

TEST(LocationInfo, TakesEveryIdentifierOfSixteenBitsApart) {
    const auto locations = Locations();
    for (LocaleIdType id = 1; id <= 0xFFFF; ++id) {
        if (id % 0x100 == 0) {
            continue;
        }
        ASSERT_EQ(locations->HasLocationInfo(id), id >= 0x100) << id;
        ASSERT_EQ(locations->RemoveLocationInfo(id), id % 0x100) << id;
    }
}

TEST(LocationInfo, ReducesKnownIdentifiers) {
    const auto locations = Locations();
    EXPECT_EQ(locations->RemoveLocationInfo(1033), 9U);
    EXPECT_EQ(locations->RemoveLocationInfo(3082), 10U);
    EXPECT_TRUE(locations->HasLocationInfo(1033));
    EXPECT_FALSE(locations->HasLocationInfo(9));
}

TEST(LocationInfo, RefusesIdentifiersWithoutLanguageAndThoseTooLarge) {
    testing::RecordingLogger logger;
    const auto locations = Locations();
    for (const LocaleIdType id : {0U, 0x0100U, 0x0400U, 0xFF00U, 0x10000U, 0x10001U, 0x10409U,
                                  0x8000'0409U, 0xFFFF'FFFFU}) {
        EXPECT_EQ(ThrownBy([&] { locations->HasLocationInfo(id); }), RefusalOf(id));
        EXPECT_EQ(ThrownBy([&] { locations->RemoveLocationInfo(id); }), RefusalOf(id));
    }
    EXPECT_TRUE(logger.Records().empty());
}

TEST(LocationInfo, TakesTheEndsOfTheRange) {
    const auto locations = Locations();
    EXPECT_EQ(locations->RemoveLocationInfo(0x0001), 0x01U);
    EXPECT_EQ(locations->RemoveLocationInfo(0x00FF), 0xFFU);
    EXPECT_EQ(locations->RemoveLocationInfo(0x0101), 0x01U);
    EXPECT_EQ(locations->RemoveLocationInfo(0xFFFF), 0xFFU);
}

}  // namespace
}  // namespace zam_connector::zam_locale
