#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "converter_fixture.h"
#include "support/allocations.h"

namespace zam_connector::test {
namespace {

using namespace zam_converter;
using zam_test::g_allocationsLeft;
using zam_test::g_failed;
using zam_test::g_keepFailing;

/// Keeps the first text in room of its own.
class FirstTextLogger final : public zor::logger::ZORLogger {
public:
    FirstTextLogger() { InstallRootLogger(this); }
    ~FirstTextLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int /*level*/) const override { return true; }
    void LogImpl(int /*level*/, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view text) override {
        if (length_ == 0) {
            length_ = text.copy(text_, sizeof text_);
        }
    }
    std::string Text() const { return {text_, length_}; }

private:
    char text_[1000] = {};
    std::size_t length_ = 0;
};

/// A conversion that succeeds while there is memory.
struct Conversion {
    const char* name;  ///< in a record of its own
    std::function<bool()> succeeds;
};

const std::vector<Conversion>& Conversions() {
    static const UpdateInfo update = [] {
        UpdateInfo info = SampleUpdate();
        info.name.assign(100, 'n');
        info.targetProduct = std::string(100, 'p');
        return info;
    }();
    static const zuv::TValue updateTree = ConvertUpdateInfo(update).value();
    static const UpdateStatusInfo status = [] {
        UpdateStatusInfo info = SampleStatus();
        info.installErrorText.assign(100, 'e');
        return info;
    }();
    static const zuv::TValue statusTree = ConvertUpdateStatusInfo(status).value();
    static const AppUpdates updates{{update, update}, {status, status}};
    static const zuv::TValue updatesTree = ConvertAppUpdates(updates).value();
    static const std::unordered_map<unsigned long, const UpdateInfo> updateMap{{~0UL, update}};
    static const std::unordered_map<unsigned long, const UpdateStatusInfo> statusMap{{1, status}};
    static const AppEula eula{MakeId(1), {}, std::string(100, 't'), 2};
    static const std::vector<AppEula> eulas{eula, eula};
    static const zuv::TValue eulaTree = ConvertEulaData(eula, 40).value();
    static const zuv::TValue eulaTrees = ConvertEulas(eulas, 40).value();
    static const zuv::TValue text = eula.text;
    static const std::vector<Conversion> conversions{
        {"ConvertZamHashToBase64", [] { return ConvertZamHashToBase64(~0UL).has_value(); }},
        {"ConvertZamHashToHex", [] { return ConvertZamHashToHex(~0UL).has_value(); }},
        {"ConvertZamIdTypeToBlob", [] { return ConvertZamIdTypeToBlob({}).has_value(); }},
        {"ConvertUpdateInfo", [] { return ConvertUpdateInfo(update).has_value(); }},
        {"ParseUpdateInfo", [] { return ParseUpdateInfo(updateTree).has_value(); }},
        {"ConvertUpdateIdentityInfo", [] { return ConvertUpdateIdentityInfo(update).has_value(); }},
        {"ConvertUpdateStatusInfo", [] { return ConvertUpdateStatusInfo(status).has_value(); }},
        {"ParseUpdateStatusInfo", [] { return ParseUpdateStatusInfo(statusTree).has_value(); }},
        {"ConvertUpdateStatusIdentityInfo",
         [] { return ConvertUpdateStatusIdentityInfo(status).has_value(); }},
        {"ConvertAppUpdates", [] { return ConvertAppUpdates(updates).has_value(); }},
        {"ParseAppUpdates", [] { return ParseAppUpdates(updatesTree).has_value(); }},
        {"ConvertUpdatesIdentityInfo",
         [] { return ConvertAppUpdatesIdentityInfo(updateMap, statusMap).has_value(); }},
        {"ConvertEulaData", [] { return ConvertEulaData(eula, 40).has_value(); }},
        {"ConvertEulaIdentityInfo", [] { return ConvertEulaIdentityInfo(eula).has_value(); }},
        {"ConvertEulas", [] { return ConvertEulas(eulas, 40).has_value(); }},
        // Takes memory for the text only.
        {"ParseStringFromZamParams", [] { return ParseEula(eulaTree).has_value(); }},
        {"ParseEulas", [] { return ParseEulas(eulaTrees).has_value(); }},
        {"ConvertStringToZamParams",
         [] { return ConvertStringToZamParams(eula.text, 40).has_value(); }},
        {"ParseStringFromZamParams", [] { return ParseStringFromZamParams(text).has_value(); }},
    };
    return conversions;
}

constexpr char kNoMemoryText[] =
    " failed with exception [Unspecified error : std::exception: std::bad_alloc]";

/// Calls `convert` with every one of its allocations failing in turn. Gives the first texts of the
/// failures, each of them once.
std::vector<std::string> FailEveryAllocation(const Conversion& conversion) {
    std::vector<std::string> texts;
    for (int allowed = 0;; ++allowed) {
        const FirstTextLogger logger;
        g_failed = false;
        g_allocationsLeft = allowed;
        const bool succeeded = conversion.succeeds();
        g_allocationsLeft = -1;
        EXPECT_NE(succeeded, g_failed) << conversion.name << " " << allowed;
        if (succeeded) {
            return texts;
        }
        if (!::testing::Value(texts, ::testing::Contains(logger.Text()))) {
            texts.push_back(logger.Text());
        }
    }
}

class WantOfMemory : public ::testing::TestWithParam<bool> {
protected:
    WantOfMemory() { g_keepFailing = GetParam(); }
};

TEST_P(WantOfMemory, MakesEveryConversionFailWithARecord) {
    for (const Conversion& conversion : Conversions()) {
        const std::vector<std::string> texts = FailEveryAllocation(conversion);
        EXPECT_THAT(texts, ::testing::Each(::testing::EndsWith(kNoMemoryText)));
        EXPECT_THAT(texts, ::testing::Contains(std::string(conversion.name) + kNoMemoryText));
    }
}

INSTANTIATE_TEST_SUITE_P(Once, WantOfMemory, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(FromThenOn, WantOfMemory, ::testing::Values(true));

/// What is known of a failure needs no memory to be told, where it fits.
TEST(FailureRecord, TellsTheFailureWithoutMemoryForItsText) {
    const FirstTextLogger logger;
    const zuv::TValue map = zuv::Map();
    g_keepFailing = true;
    g_allocationsLeft = 0;
    const bool succeeded = ZamParamsListSize(map).has_value();
    g_allocationsLeft = -1;
    EXPECT_FALSE(succeeded);
    EXPECT_EQ(logger.Text(),
              "ZamParamsListSize failed with exception [Unspecified error : std::exception: the "
              "value is of kind map, not vector]");
}

}  // namespace
}  // namespace zam_connector::test
