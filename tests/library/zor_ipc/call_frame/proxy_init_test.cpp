#include "proxy_init.h"

#include <gtest/gtest.h>

#include <string>

#include "qel/exception.h"
#include "qel/utf.h"
#include "zam_connector_testing/scripted_platform.h"

namespace zam_connector::proxy::init {
namespace {

using testing::PlatformCall;
using testing::ScriptedPlatform;
using Function = testing::PlatformCall::Function;

/// Runs `call`, which is to fail a check, and gives the check's display text.
template <typename Call>
std::string FailedCheck(Call&& call) {
    try {
        call();
    } catch (const qel::CheckFailedException& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::CheckFailedException));
        EXPECT_EQ(exception.Code(), qel::FromBits(0x8000004B));
        return qel::ToUtf8(exception.DisplayText());
    }
    return "no check failed";
}

class ProxyInit : public ::testing::Test {
protected:
    ScriptedPlatform platform_;
};

TEST_F(ProxyInit, RefusesAnEmptyServiceNameBeforeItAsksTheLocator) {
    platform_.SetHandle("", 1);
    EXPECT_EQ(FailedCheck([] { ConnectIpcService(""); }),
              "Zam_ctr_proxy_factory: Service name is empty!. At proxy_init(25)");
    EXPECT_TRUE(platform_.Calls().empty());
}

TEST_F(ProxyInit, GivesTheHandleOfTheLocator) {
    platform_.SetHandle("zam_connector_id", 0);
    platform_.SetHandle("other", 0xFFFFFFFE);
    EXPECT_EQ(ConnectIpcService("zam_connector_id"), 0U);
    EXPECT_EQ(ConnectIpcService("other"), 0xFFFFFFFEU);
    const auto calls = platform_.Calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].function, Function::ServiceLocatorConnect);
    EXPECT_EQ(calls[0].name, "zam_connector_id");
    EXPECT_EQ(calls[1].name, "other");
}

TEST_F(ProxyInit, FailsWithoutAHandle) {
    EXPECT_EQ(FailedCheck([] { ConnectIpcService("zam_connector_id"); }),
              "Zam_ctr_proxy_factory: Handle for zam_connector_id wasn't received!. "
              "At proxy_init(27)");
    EXPECT_EQ(platform_.Calls().size(), 1U);
}

TEST_F(ProxyInit, NamesAServiceThatIsNoUtf8) {
    EXPECT_EQ(FailedCheck([] { ConnectIpcService("ser\xFFvice"); }),
              "Zam_ctr_proxy_factory: Handle for ser\xEF\xBF\xBDvice wasn't received!. "
              "At proxy_init(27)");
}

TEST_F(ProxyInit, GivesTheInterfaceIdOfAnEndpoint) {
    platform_.SetRiid("first", 0);
    platform_.SetRiid("last", 0xFFFE);
    EXPECT_EQ(GetEndpointRiid(7, "first"), 0U);
    EXPECT_EQ(GetEndpointRiid(0, "last"), 0xFFFEU);
    const auto calls = platform_.Calls();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].function, Function::ServiceLocatorGetRiid);
    EXPECT_EQ(calls[0].handle, 7U);
    EXPECT_EQ(calls[0].name, "first");
    EXPECT_EQ(calls[1].handle, 0U);
    EXPECT_EQ(calls[1].name, "last");
}

TEST_F(ProxyInit, FailsWithoutAnInterfaceId) {
    platform_.SetRiid("known", 0xFFFF);
    EXPECT_EQ(FailedCheck([] { GetEndpointRiid(7, "known"); }),
              "ServiceLocator does not contain connection riid for known. At proxy_init(17)");
    EXPECT_EQ(FailedCheck([] {
                  GetEndpointRiid(7, "qx.zam_connector.ZamConnectorComponent.connController");
              }),
              "ServiceLocator does not contain connection riid for "
              "qx.zam_connector.ZamConnectorComponent.connController. At proxy_init(17)");
    EXPECT_EQ(platform_.Calls().size(), 2U);
}

}  // namespace
}  // namespace zam_connector::proxy::init
