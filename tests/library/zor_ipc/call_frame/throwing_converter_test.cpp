#include <csignal>
#include <functional>
#include <optional>
#include <stdexcept>

#include "common/connection_casts.h"
#include "library/zor_ipc/call_frame/proxy_fixture.h"
#include "qel/exception.h"

// The conversions of this executable take the place of the converter library's.

namespace zam_connector {

namespace {

/// Throws what a test has set.
[[noreturn]] void DefaultThrow() {
    throw std::runtime_error("converter of the test");
}

std::function<void()> g_throw = &DefaultThrow;

/// For conversions that have to give something once the thrower returns, which none does.
template <typename Result>
Result Converted() {
    g_throw();
    std::abort();
}

}  // namespace

namespace common {

qx_zam_connector_ZamTypes_ZamConnectorSettings CastToVd(const ZamConnectorSettings& /*settings*/) {
    return Converted<qx_zam_connector_ZamTypes_ZamConnectorSettings>();
}

ZamConnectorSettings CastFromVd(
    const qx_zam_connector_ZamTypes_ZamConnectorSettings& /*settings*/) {
    return Converted<ZamConnectorSettings>();
}

std::optional<ZamConnectorState> CastFromVd(int /*state*/) {
    return Converted<std::optional<ZamConnectorState>>();
}

qx_zam_connector_ZamTypes_ZamConnectionParameters CastToVd(
    const ZamConnectionParameters& /*parameters*/, vd_arena* /*arena*/) {
    return Converted<qx_zam_connector_ZamTypes_ZamConnectionParameters>();
}

vd_bytes CastToVd(const std::string& /*text*/, vd_arena* /*arena*/) {
    return Converted<vd_bytes>();
}

}  // namespace common

namespace {

using test::kUnspecified;
using ::testing::KilledBySignal;

constexpr char kThrown[] = "converter of the test";

/// Operations whose conversions are not guarded.
class UnguardedConversionDeathTest : public test::ProxyTest {
protected:
    UnguardedConversionDeathTest() {
        ::testing::FLAGS_gtest_death_test_style = "threadsafe";
        transport_.SetDefault({});
    }
};

TEST_F(UnguardedConversionDeathTest, OfSetEndsTheProcess) {
    EXPECT_EXIT(settingsHolder_.Set({}), KilledBySignal(SIGABRT), kThrown);
}

TEST_F(UnguardedConversionDeathTest, OfGetEndsTheProcess) {
    ZamConnectorSettings settings;
    EXPECT_EXIT(settingsHolder_.Get(settings), KilledBySignal(SIGABRT), kThrown);
}

TEST_F(UnguardedConversionDeathTest, OfGetStateEndsTheProcess) {
    ZamConnectorState state{};
    EXPECT_EXIT(controller_.GetState(state), KilledBySignal(SIGABRT), kThrown);
}

TEST_F(UnguardedConversionDeathTest, IsNotReachedWhenTheTransportFails) {
    transport_.SetDefault(testing::FailWith(1));
    ZamConnectorSettings settings;
    EXPECT_EQ(settingsHolder_.Get(settings), kUnspecified);
    ZamConnectorState state{};
    EXPECT_EQ(controller_.GetState(state), kUnspecified);
}

/// Operations that catch what their conversion throws.
class GuardedConversion : public test::ProxyTest {
protected:
    ~GuardedConversion() override { g_throw = &DefaultThrow; }
};

TEST_F(GuardedConversion, ReportsWhateverIsThrownAndSendsNothing) {
    struct {
        std::function<void()> raise;
        const char* text;
    } const rows[] = {
        {[] { throw std::length_error("le"); }, "le"},
        {[] { throw std::runtime_error("rt {}"); }, "std::exception: rt {}"},
        {[] { throw 5; }, "non-std exception"},
        {[] { throw qel::InvalidArgumentException().At("thrower", 9); },
         "No error = 0x00000000. At thrower(9)"},
        {[] { throw qel::CheckFailedException("thrower", 8) << "pieces"; },
         "pieces. At thrower(8)"},
    };
    for (const auto& row : rows) {
        g_throw = row.raise;
        EXPECT_EQ(controller_.Start({}), kUnspecified);
        ExpectFailureRecord("zam_conn_controller_proxy", "Start",
                            std::string("ZamConnControllerProxy: ") + row.text);
        EXPECT_EQ(commandSender_.PostZamEvent("event"), kUnspecified);
        ExpectFailureRecord("zam_conn_command_sender_proxy", "PostZamEvent",
                            std::string("ZamConnCommandSenderProxy: ") + row.text);
    }
    EXPECT_THAT(transport_.Calls(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace zam_connector
