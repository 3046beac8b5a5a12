#include "data_rig.h"
#include "zam_connector/zam_converter.h"

// The converters of this executable take the place of the library's, which give no tree only for
// want of memory.

namespace zam_connector {
namespace zam_converter {

namespace {
int g_pieceSize = 0;
}  // namespace

std::optional<zuv::TValue> ConvertEulas(const std::vector<AppEula>& /*eulas*/,
                                        int pieceSize) noexcept {
    g_pieceSize = pieceSize;
    return std::nullopt;
}

std::optional<zuv::TValue> ConvertAppUpdates(const AppUpdates& /*updates*/) noexcept {
    return std::nullopt;
}

}  // namespace zam_converter

namespace {

using test::HolderLine;
using test::HolderRig;
using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(ConverterWithoutATree, FailsTheAgreementsAndLeavesTheirChannelOpen) {
    HolderRig rig;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetAppEulas({}, hash), test::kUnspecified);
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(rig.TakeLines(),
              Lines{HolderLine("SetAppEulas", "SetAppUpdates: set error appUpdates")});
    EXPECT_THAT(rig.Operations(), ElementsAre(test::kOpenAppEulasChannel));
    EXPECT_EQ(zam_converter::g_pieceSize, 32'768);
}

TEST(ConverterWithoutATree, FailsTheUpdatesAndLeavesTheirChannelOpen) {
    HolderRig rig;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetAppUpdates({}, hash), test::kUnspecified);
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(rig.TakeLines(),
              Lines{HolderLine("SetAppUpdates", "SetAppUpdates: set error appUpdates")});
    EXPECT_THAT(rig.Operations(), ElementsAre(test::kOpenAppUpdatesChannel));
}

TEST(ConverterWithoutATree, FailsAllTheSameWithTheLevelOff) {
    HolderRig rig;
    rig.logger.SetThreshold(5);
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetAppEulas({}, hash), test::kUnspecified);
    EXPECT_EQ(rig.proxy.SetAppUpdates({}, hash), test::kUnspecified);
    EXPECT_EQ(hash, 5U);
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
    EXPECT_THAT(rig.Operations(),
                ElementsAre(test::kOpenAppEulasChannel, test::kOpenAppUpdatesChannel));
}

TEST(ConverterWithoutATree, IsNotAskedWhenTheChannelDoesNotOpen) {
    HolderRig rig;
    zam_converter::g_pieceSize = 0;
    rig.Fail(test::kOpenAppEulasChannel, {.session = -2});
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetAppEulas({}, hash), test::kInvalidResult);
    EXPECT_EQ(zam_converter::g_pieceSize, 0);
}

TEST(ConverterWithoutATree, DoesNotConcernTheSettings) {
    HolderRig rig;
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({zuv::TValue(1)}, hash), 0);
    EXPECT_EQ(hash, rig.hash);
}

}  // namespace
}  // namespace zam_connector
