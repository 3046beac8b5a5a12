#include <unistd.h>

#include <filesystem>

#include "proxy_init.h"
#include "qel/exception.h"
#include "qel/utf.h"
#include "service_fixture.h"
#include "support/other_user.h"
#include "vd/service_locator.h"

namespace zam_connector::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

using zam_test::kSomebodyElse;

/// What a client does with a service or a place that it must not trust.
class ServiceTrust : public ServiceTest {
protected:
    /// Tries to connect; gives the platform's record of why it failed.
    std::string WhyNotConnected(const std::string& service = "zam_connector_id") {
        logger_.Clear();
        EXPECT_EQ(ServiceLocatorConnect(service.c_str()), 0xFFFFFFFF);
        const auto records = logger_.Records();
        EXPECT_EQ(records.size(), 1U);
        if (records.empty()) {
            return {};
        }
        EXPECT_EQ(records.front().level, 4);
        EXPECT_EQ(records.front().file, "service_locator");
        EXPECT_EQ(records.front().function, "ServiceLocatorConnect");
        return records.front().text;
    }
};

TEST_F(ServiceTrust, AnEmptyServiceNameIsRefused) {
    EXPECT_THAT(WhyNotConnected(""), HasSubstr("empty"));
    try {
        proxy::init::ConnectIpcService("");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::CheckFailedException& exception) {
        EXPECT_EQ(qel::ToUtf8(exception.DisplayText()),
                  "Zam_ctr_proxy_factory: Service name is empty!. At proxy_init(25)");
    }
}

TEST_F(ServiceTrust, AMissingServiceIsNamed) {
    EXPECT_THAT(WhyNotConnected("nobody"),
                AllOf(HasSubstr(service_.RuntimeDirectory()), HasSubstr("nobody.sock")));
    try {
        proxy::init::ConnectIpcService("nobody");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::CheckFailedException& exception) {
        EXPECT_EQ(qel::ToUtf8(exception.DisplayText()),
                  "Zam_ctr_proxy_factory: Handle for nobody wasn't received!. At proxy_init(27)");
    }
}

TEST_F(ServiceTrust, AnUnknownEndpointIsNamed) {
    StartService();
    const auto handle = proxy::init::ConnectIpcService("zam_connector_id");
    try {
        proxy::init::GetEndpointRiid(handle, "nothing.of.the.kind");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::CheckFailedException& exception) {
        EXPECT_EQ(qel::ToUtf8(exception.DisplayText()),
                  "ServiceLocator does not contain connection riid for nothing.of.the.kind. At "
                  "proxy_init(17)");
    }
}

TEST_F(ServiceTrust, ARuntimeDirectoryThatOthersMayWriteIsRefused) {
    StartService();
    std::filesystem::permissions(service_.RuntimeDirectory(), std::filesystem::perms::all);
    EXPECT_THAT(WhyNotConnected(),
                AllOf(HasSubstr(service_.RuntimeDirectory()), HasSubstr("lets others write")));
}

TEST_F(ServiceTrust, ASocketOfSomebodyElseIsRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the right to give files away";
    }
    StartService();
    const std::string socket = service_.RuntimeDirectory() + "/zam_connector_id.sock";
    ASSERT_EQ(::chown(socket.c_str(), kSomebodyElse, kSomebodyElse), 0);
    EXPECT_THAT(WhyNotConnected(), AllOf(HasSubstr(socket), HasSubstr("4242")));
}

TEST_F(ServiceTrust, ADirectoryThatTurnsUntrustedFailsTheNextConnection) {
    StartService();
    EXPECT_EQ(State(), ZamConnectorState::Stopped);
    std::filesystem::permissions(service_.RuntimeDirectory(), std::filesystem::perms::all);
    service_.Kill();
    logger_.Clear();
    ZamConnectorState state{};
    EXPECT_EQ(Controller().GetState(state), kUnspecifiedError);
    ASSERT_EQ(logger_.Records().size(), 2U);
    EXPECT_THAT(logger_.Records().front().text, HasSubstr("lets others write"));
    EXPECT_EQ(logger_.Records().back().text,
              "ZamConnControllerProxy: ipc call GetState terminated with a error 5");
}

}  // namespace
}  // namespace zam_connector::test
