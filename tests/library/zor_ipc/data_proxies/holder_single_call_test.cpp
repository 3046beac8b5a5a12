#include <csignal>

#include "data_rig.h"

namespace zam_connector {
namespace {

using test::HolderLine;
using test::HolderRig;
using test::Lines;
using ::testing::IsEmpty;

AppInfo SmallInfo() {
    AppInfo info;
    info.productId = "id";
    info.supportUrl = "url";
    info.protocolVersion = 0x01020304;
    return info;
}

TEST(SetAppInfo, SendsTheRecordWithItsArena) {
    HolderRig rig;
    EXPECT_EQ(rig.proxy.SetAppInfo(SmallInfo()), 0);
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.operation, test::kSetAppInfo);
    testing::Bytes wire(200, 0);
    wire[4] = 2;    // productId: {0, 2}
    wire[120] = 2;  // supportUrl: {2, 3}
    wire[124] = 3;
    wire[188] = 4;  // protocolVersion
    wire[189] = 3;
    wire[190] = 2;
    wire[191] = 1;
    EXPECT_EQ(call.request, wire);
    EXPECT_EQ(call.requestArena, (testing::Bytes{'i', 'd', 'u', 'r', 'l'}));
    EXPECT_EQ(call.requestArenaCapacity, 21'216U);
    EXPECT_FALSE(call.hasResponseArena);
}

TEST(SetAppInfo, ReturnsTheServicesCode) {
    for (const int code : test::kResultCodes) {
        HolderRig rig;
        rig.result = code;
        EXPECT_EQ(rig.proxy.SetAppInfo(SmallInfo()), code);
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TEST(SetAppInfo, LogsATransportFailure) {
    for (const int status : test::kTransportStatuses) {
        HolderRig rig;
        rig.Fail(test::kSetAppInfo, {.transport = status});
        EXPECT_EQ(rig.proxy.SetAppInfo(SmallInfo()), test::kUnspecified);
        EXPECT_EQ(rig.TakeLines(),
                  Lines{HolderLine("SetAppInfo",
                                   "ProductDataHolderProxy: ipc call SetAppInfo terminated with a "
                                   "error " +
                                       std::to_string(status))});
    }
}

TEST(SetAppInfo, TakesWhatFitsTheArenaAndNoByteMore) {
    HolderRig rig;
    AppInfo info;
    info.productName = std::string(21'216, 'n');
    EXPECT_EQ(rig.proxy.SetAppInfo(info), 0);
    EXPECT_EQ(rig.OnlyCall().requestArena, testing::Bytes(21'216, 'n'));
    info.productName += 'n';
    EXPECT_EQ(rig.proxy.SetAppInfo(info), test::kUnspecified);
    info.productName.resize(21'215);
    info.hostName = "ab";
    EXPECT_EQ(rig.proxy.SetAppInfo(info), test::kUnspecified);
    EXPECT_EQ(rig.TakeLines(),
              (Lines{HolderLine("SetAppInfo",
                                "ProductDataHolderProxy: productName: 21217 bytes do not fit, "
                                "21216 of the arena's 21216 bytes are free"),
                     HolderLine("SetAppInfo",
                                "ProductDataHolderProxy: hostName: 2 bytes do not fit, 1 of the "
                                "arena's 21216 bytes are free")}));
    EXPECT_EQ(rig.Operations().size(), 1U) << "what cannot be converted is not sent";
}

/// What a record takes, as the comment of `AppInfo` counts it, without its product name.
std::size_t CountedBytes(const AppInfo& info) {
    std::size_t bytes = info.productName.size();
    const auto table = [&bytes](std::size_t elements) {
        bytes = elements == 0 ? bytes : (bytes + 3) / 4 * 4 + 8 * elements;
    };
    for (const AppComponent& component : info.components) {
        bytes += component.name.size();
    }
    table(info.components.size());
    for (const AppComponent& component : info.components) {
        bytes += component.version.size();
    }
    table(info.components.size());
    for (const std::string& capability : info.capabilities) {
        bytes += capability.size();
    }
    table(info.capabilities.size());
    return bytes;
}

/// The longest product name with which all of it fits, found by the count alone.
std::string LongestName(AppInfo info) {
    info.productName = std::string(21'216, 'n');
    while (CountedBytes(info) > 21'216) {
        info.productName.pop_back();
    }
    return info.productName;
}

TEST(SetAppInfo, CountsListsRoundedUpToAMultipleOfFour) {
    for (std::size_t lengths = 0; lengths < 64; ++lengths) {
        SCOPED_TRACE(lengths);
        AppInfo info;
        info.components = {{std::string(lengths % 4, 'c'), std::string(lengths / 4 % 4, 'v')}};
        info.capabilities = {std::string(lengths / 16, 'a')};
        const std::string longest = LongestName(info);
        HolderRig rig;
        info.productName = longest.substr(1);
        EXPECT_EQ(rig.proxy.SetAppInfo(info), 0);
        EXPECT_EQ(rig.OnlyCall().requestArena.size(), CountedBytes(info));
        info.productName = longest;
        EXPECT_EQ(rig.proxy.SetAppInfo(info), 0);
        info.productName += 'n';
        EXPECT_EQ(rig.proxy.SetAppInfo(info), test::kUnspecified);
        EXPECT_EQ(rig.TakeLines().size(), 1U);
        EXPECT_EQ(rig.Operations().size(), 2U);
    }
}

TEST(SetAppInfo, RoundsUpNothingForAListThatIsEmpty) {
    HolderRig rig;
    AppInfo info;
    info.capabilities = {""};
    info.productName = LongestName(info);
    EXPECT_EQ(info.productName.size(), 21'208U);
    EXPECT_EQ(rig.proxy.SetAppInfo(info), 0);
    info.capabilities = {};
    info.components = {{"", "v"}};
    info.productName = LongestName(info);
    EXPECT_EQ(info.productName.size(), 21'196U)
        << "16 of the component, 1 of its version, 3 behind";
    EXPECT_EQ(rig.proxy.SetAppInfo(info), 0);
    info.productName += 'n';
    EXPECT_EQ(rig.proxy.SetAppInfo(info), test::kUnspecified);
    EXPECT_EQ(rig.TakeLines().size(), 1U);
}

DynamicAppInfo SomeDynamicInfo() {
    DynamicAppInfo info;
    info.uptime = std::chrono::duration<std::uint32_t>(0x01020304);
    info.health = AppHealth::Degraded;
    info.rebootRequired = true;
    return info;
}

TEST(SetAppInfoDynamic, SendsTheRecordWithoutAnArena) {
    HolderRig rig;
    EXPECT_EQ(rig.proxy.SetAppInfoDynamic(SomeDynamicInfo()), 0);
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.operation, test::kSetAppInfoDynamic);
    EXPECT_EQ(call.request, (testing::Bytes{4, 3, 2, 1, 2, 2, 0, 0}));
    EXPECT_FALSE(call.hasRequestArena || call.hasResponseArena);
}

TEST(SetAppInfoDynamic, ReturnsTheServicesCode) {
    for (const int code : test::kResultCodes) {
        HolderRig rig;
        rig.result = code;
        EXPECT_EQ(rig.proxy.SetAppInfoDynamic({}), code);
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TEST(SetAppInfoDynamic, LogsATransportFailure) {
    for (const int status : test::kTransportStatuses) {
        HolderRig rig;
        rig.Fail(test::kSetAppInfoDynamic, {.transport = status});
        EXPECT_EQ(rig.proxy.SetAppInfoDynamic({}), test::kUnspecified);
        EXPECT_EQ(rig.TakeLines(),
                  Lines{HolderLine("SetAppInfoDynamic",
                                   "ProductDataHolderProxy: ipc call SetAppInfoDynamic terminated "
                                   "with a error " +
                                       std::to_string(status))});
    }
}

TEST(SetAppInfoDynamicDeathTest, EndsTheProcessForAHealthThatIsNone) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    HolderRig rig;
    DynamicAppInfo info;
    info.health = static_cast<AppHealth>(4);
    EXPECT_EXIT(rig.proxy.SetAppInfoDynamic(info), ::testing::KilledBySignal(SIGABRT),
                "health: 4 is unknown");
}

}  // namespace
}  // namespace zam_connector
