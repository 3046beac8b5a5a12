#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "thrown.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_locale_info.h"

namespace zam_connector::zam_locale {
namespace {

using ::testing::IsEmpty;
using Locales = std::vector<ZamLocale>;

static_assert(!std::is_copy_constructible_v<ZamLocaleInfo>);
static_assert(!std::is_move_constructible_v<ZamLocaleInfo>);
static_assert(!std::is_copy_assignable_v<ZamLocaleInfo>);

struct Row {
    const char* name;
    LocaleIdType decimal;
    LocaleIdType hexadecimal;
    bool isDefault;
    const char* language;  ///< the neutral locale of the same language
};

constexpr Row kTable[] = {
    {"en", 9, 0x0009, false, "en"},
    {"en-AU", 3081, 0x0C09, false, "en"},
    {"en-CA", 4105, 0x1009, false, "en"},
    {"en-HK", 15369, 0x3C09, false, "en"},
    {"en-IN", 16393, 0x4009, false, "en"},
    {"en-AE", 19465, 0x4C09, false, "en"},
    {"en-GB", 2057, 0x0809, false, "en"},
    {"en-US", 1033, 0x0409, true, "en"},
    {"ru", 25, 0x0019, false, "ru"},
    {"ru-RU", 1049, 0x0419, false, "ru"},
    {"es", 10, 0x000A, false, "es"},
    {"es-AR", 11274, 0x2C0A, false, "es"},
    {"es-CO", 9226, 0x240A, false, "es"},
    {"es-MX", 2058, 0x080A, false, "es"},
    {"es-419", 22538, 0x580A, false, "es"},
    {"es-ES", 3082, 0x0C0A, false, "es"},
    {"es-ES_tradnl", 1034, 0x040A, false, "es"},
    {"es-US", 21514, 0x540A, false, "es"},
    {"de", 7, 0x0007, false, "de"},
    {"de-AT", 3079, 0x0C07, false, "de"},
    {"de-DE", 1031, 0x0407, false, "de"},
    {"de-CH", 2055, 0x0807, false, "de"},
};
static_assert(std::size(kTable) == 22);

std::unique_ptr<IZamLocaleInfo> Table() {
    return MicrosoftZamLocaleFactory().CreateZamLocaleInfo();
}

ZamLocale Make(const std::string& name, LocaleIdType id, bool isDefault = false) {
    return {name, id, isDefault, false};
}

TEST(LocaleTable, HoldsTheTwentyTwoLocalesInOrder) {
    Locales expected;
    for (const Row& row : kTable) {
        EXPECT_EQ(row.decimal, row.hexadecimal) << row.name;
        expected.push_back(Make(row.name, row.decimal, row.isDefault));
    }
    EXPECT_EQ(Table()->LocaleContainer(), expected);
}

TEST(LocaleTable, FindsEachLocaleByItsName) {
    const auto table = Table();
    for (const Row& row : kTable) {
        EXPECT_EQ(table->Locale(row.name), Make(row.name, row.decimal, row.isDefault)) << row.name;
    }
}

TEST(LocaleTable, FindsExactNamesOnlyAndLogsNothing) {
    testing::RecordingLogger logger;
    const auto table = Table();
    for (const char* const name : {"en-us", "EN", "en_US", "en-", "en-US ", " en-US", "", "fr"}) {
        EXPECT_EQ(table->Locale(name), std::nullopt) << name;
    }
    EXPECT_EQ(table->Locale(std::string_view("en-US\0", 6)), std::nullopt);
    EXPECT_EQ(table->Locale(std::string_view("en-USA").substr(0, 5)), Make("en-US", 1033, true));
    EXPECT_THAT(logger.Records(), IsEmpty());
}

TEST(LocaleTable, HasAmericanEnglishAsItsDefault) {
    testing::RecordingLogger logger;
    EXPECT_EQ(Table()->DefaultLocale(), Make("en-US", 1033, true));
    EXPECT_THAT(logger.Records(), IsEmpty());
}

TEST(LocaleTable, HasTheNeutralLocaleThatEachLocaleReducesTo) {
    const auto table = Table();
    const auto locations = MicrosoftZamLocaleFactory().CreateZamLocationInfo();
    for (const Row& row : kTable) {
        SCOPED_TRACE(row.name);
        const auto neutral = table->Locale(row.language);
        ASSERT_TRUE(neutral);
        EXPECT_EQ(locations->RemoveLocationInfo(row.decimal), neutral->id);
        EXPECT_EQ(locations->HasLocationInfo(row.decimal), row.decimal != neutral->id);
    }
}

TEST(LocaleTable, IsMadeAnewEachTime) {
    const MicrosoftZamLocaleFactory factory;
    EXPECT_NE(factory.CreateZamLocaleInfo(), factory.CreateZamLocaleInfo());
    EXPECT_NE(factory.CreateZamLocationInfo(), factory.CreateZamLocationInfo());
}

TEST(LocaleTable, MayBeReadByManyThreads) {
    const auto table = Table();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&table] {
            for (int round = 0; round < 100; ++round) {
                EXPECT_EQ(table->Locale("de-CH")->id, 2055U);
                EXPECT_EQ(table->DefaultLocale()->id, 1033U);
                EXPECT_EQ(table->LocaleContainer().size(), 22U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(LocaleInfo, GivesCopies) {
    const auto table = Table();
    table->LocaleContainer().front().name = "changed";
    table->DefaultLocale()->name = "changed";
    table->Locale("en")->name = "changed";
    EXPECT_EQ(table->LocaleContainer().front().name, "en");
    EXPECT_EQ(table->DefaultLocale()->name, "en-US");
    EXPECT_EQ(table->Locale("en")->name, "en");
}

TEST(LocaleInfo, KeepsEveryMemberOfALocale) {
    ZamLocale locale = Make("ar-SA", 0x0401, true);
    locale.isRightToLeft = true;
    const ZamLocaleInfo info(Locales{locale});
    EXPECT_EQ(info.Locale("ar-SA"), locale);
    EXPECT_EQ(info.DefaultLocale(), locale);
    EXPECT_EQ(info.LocaleContainer(), Locales{locale});
    EXPECT_NE(locale, Make("ar-SA", 0x0401, true));
    EXPECT_NE(Make("a", 1), Make("b", 1));
    EXPECT_NE(Make("a", 1), Make("a", 2));
    EXPECT_NE(Make("a", 1), Make("a", 1, true));
}

// Short names stand inside their strings, where a move of the strings would take them along.
TEST(LocaleInfo, FindsShortAndLongNamesAmongMany) {
    Locales locales;
    for (LocaleIdType id = 1; id <= 200; ++id) {
        locales.push_back(Make(std::string(id, 'x'), id));
    }
    const ZamLocaleInfo info(std::move(locales));
    for (LocaleIdType id = 1; id <= 200; ++id) {
        EXPECT_EQ(info.Locale(std::string(id, 'x')), Make(std::string(id, 'x'), id));
    }
}

TEST(LocaleInfo, LogsThatItHasNoDefault) {
    testing::RecordingLogger logger;
    const ZamLocaleInfo info(Locales{Make("en", 9)});
    EXPECT_THAT(logger.Records(), IsEmpty());
    EXPECT_EQ(info.DefaultLocale(), std::nullopt);
    const auto records = logger.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 4);
    EXPECT_EQ(records[0].file, "zam_locale_info");
    EXPECT_EQ(records[0].function, "DefaultLocale");
    EXPECT_EQ(records[0].text,
              "ZamLocaleManager::DefaultLocalName: LocalManager hasn't default locale");
}

TEST(LocaleInfo, MayBeEmpty) {
    const ZamLocaleInfo info(Locales{});
    EXPECT_THAT(info.LocaleContainer(), IsEmpty());
    EXPECT_EQ(info.Locale(""), std::nullopt);
}

TEST(LocaleInfo, RefusesTheFirstNameThatComesTwice) {
    EXPECT_EQ(ThrownBy([] {
                  const ZamLocaleInfo info(Locales{Make("en", 9), Make("en-US", 1033, true),
                                                   Make("de", 7), Make("en-US", 1), Make("de", 7)});
              }),
              "ZamLocaleInfo: Cannot inserts a locale info: en-US");
}

TEST(LocaleInfo, RefusesTheSecondDefault) {
    EXPECT_EQ(ThrownBy([] {
                  const ZamLocaleInfo info(Locales{Make("en", 9), Make("en-US", 1033, true),
                                                   Make("de", 7, true), Make("ru", 25, true)});
              }),
              "ZamLocaleInfo: Cannot inserts a locale info: de is default but en-US is already "
              "default");
}

TEST(LocaleInfo, LooksAtEachLocaleAsAWhole) {
    EXPECT_EQ(ThrownBy([] {
                  const ZamLocaleInfo info(
                      Locales{Make("en-US", 1033, true), Make("de", 7, true), Make("en-US", 1033)});
              }),
              "ZamLocaleInfo: Cannot inserts a locale info: de is default but en-US is already "
              "default");
}

TEST(LocaleInfo, LooksAtTheNameBeforeTheDefault) {
    EXPECT_EQ(
        ThrownBy([] {
            const ZamLocaleInfo info(Locales{Make("en-US", 1033, true), Make("en-US", 1033, true)});
        }),
        "ZamLocaleInfo: Cannot inserts a locale info: en-US");
}

}  // namespace
}  // namespace zam_connector::zam_locale
