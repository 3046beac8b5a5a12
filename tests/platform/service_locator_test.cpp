#include "vd/service_locator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

#include "support/calling_logger.h"
#include "support/descriptors.h"
#include "support/scoped_environment.h"
#include "support/test_server.h"
#include "vd/call_bounds.h"
#include "vd/zor_transport.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using zam_test::ScopedEnvironment;

class ServiceLocator : public ::testing::Test {
protected:
    void ExpectNoHandle(const char* name, const std::string& text) {
        logger_.Clear();
        EXPECT_EQ(ServiceLocatorConnect(name), VD_ZOR_INVALID_HANDLE);
        ASSERT_EQ(logger_.Records().size(), 1U);
        EXPECT_EQ(logger_.Records()[0].file, "service_locator");
        EXPECT_EQ(logger_.Records()[0].function, "ServiceLocatorConnect");
        EXPECT_EQ(logger_.Records()[0].text, text);
    }

    zam_connector::testing::RecordingLogger logger_;
    TestServer server_;
    ScopedEnvironment runtime_{"ZAM_RUNTIME_DIR", server_.Directory()};
};

TEST_F(ServiceLocator, GivesTheSameServiceTheSameHandle) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    EXPECT_NE(handle, VD_ZOR_INVALID_HANDLE);
    EXPECT_EQ(ServiceLocatorConnect(kTestService), handle);

    const RawListener other(server_.Directory() + "/other.sock");
    const std::uint32_t otherHandle = ServiceLocatorConnect("other");
    EXPECT_NE(otherHandle, VD_ZOR_INVALID_HANDLE);
    EXPECT_NE(otherHandle, handle);
}

TEST_F(ServiceLocator, GivesTheSameHandleForTheSameDirectoryWrittenOtherwise) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    const ScopedEnvironment slash("ZAM_RUNTIME_DIR", server_.Directory() + "/");
    EXPECT_EQ(ServiceLocatorConnect(kTestService), handle);
}

TEST_F(ServiceLocator, GivesAnotherHandleInAnotherDirectory) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    const TestServer other;
    const ScopedEnvironment elsewhere("ZAM_RUNTIME_DIR", other.Directory());
    const std::uint32_t otherHandle = ServiceLocatorConnect(kTestService);
    EXPECT_NE(otherHandle, VD_ZOR_INVALID_HANDLE);
    EXPECT_NE(otherHandle, handle);

    // Each handle still leads to its own service.
    VdZorTransport transport;
    VdZorTransport_Init(&transport, handle, 0, 0);
    EXPECT_EQ(TestCall(kEcho, 1).On(transport), kStatusOk);
    EXPECT_EQ(server_.Endpoint().Calls().size(), 1U);
}

TEST_F(ServiceLocator, DoesNotGrowWithTheNumberOfConnects) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    Await("the first connection", [this] { return server_.Connections() == 1; });
    const std::set<int> before = OpenDescriptors();
    for (int round = 0; round < 1000; ++round) {
        ASSERT_EQ(ServiceLocatorConnect(kTestService), handle);
    }
    // Each connection has a descriptor at both ends. The server's end of those that were closed
    // takes a moment.
    Await("no more connections than are kept",
          [&] { return NewSince(before).size() <= 2 * (kMaxIdleChannels - 1); });
}

TEST_F(ServiceLocator, HasNoHandleForAWrongName) {
    ExpectNoHandle(nullptr, "service name is empty");
    ExpectNoHandle("", "service name is empty");
    ExpectNoHandle("../x", "service name '../x' begins with a dot");
    ExpectNoHandle(".test_service.sock.new",
                   "service name '.test_service.sock.new' begins with a dot");
    ExpectNoHandle(std::string(65, 'a').c_str(), "service name of 65 bytes exceeds 64");
}

TEST_F(ServiceLocator, HasNoHandleForAServiceThatIsNotThere) {
    ExpectNoHandle("nobody",
                   "socket '" + server_.Directory() + "/nobody.sock': No such file or directory");
    const ScopedEnvironment missing("ZAM_RUNTIME_DIR", server_.Directory() + "/missing");
    ExpectNoHandle(kTestService, "runtime directory '" + server_.Directory() +
                                     "/missing': No such file or directory");
    const ScopedEnvironment relative("ZAM_RUNTIME_DIR", "run");
    ExpectNoHandle(kTestService, "runtime directory 'run': the path must be absolute");
}

/// A logger of an application may make calls for the record; these do not tell why connecting
/// failed.
TEST_F(ServiceLocator, TellsWhyItFailedBehindItsRecord) {
    zam_test::CallingLogger logger([] { *VdZorTransport_LastStatus() = kStatusOk; });
    EXPECT_EQ(ServiceLocatorConnect("absent"), VD_ZOR_INVALID_HANDLE);
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusUnavailable);
    EXPECT_EQ(logger.records, 1);
}

TEST_F(ServiceLocator, GivesTheRiidOfAnEndpoint) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, kTestEndpoint), kTestRiid);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, "test.endpoin"), VD_UNKNOWN_RIID);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, "test.endpoint2"), VD_UNKNOWN_RIID);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, std::string(256, 'e').c_str()), VD_UNKNOWN_RIID);
    EXPECT_TRUE(logger_.Records().empty()) << "an unknown endpoint is an answer like any other";
}

TEST_F(ServiceLocator, GivesNoRiidForWhatCannotBeAsked) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, nullptr), VD_UNKNOWN_RIID);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, ""), VD_UNKNOWN_RIID);
    EXPECT_EQ(ServiceLocatorGetRiid(handle, std::string(257, 'e').c_str()), VD_UNKNOWN_RIID);
    EXPECT_EQ(ServiceLocatorGetRiid(handle + 1000, kTestEndpoint), VD_UNKNOWN_RIID);
    EXPECT_EQ(ServiceLocatorGetRiid(VD_ZOR_INVALID_HANDLE, kTestEndpoint), VD_UNKNOWN_RIID);
    server_.Destroy();
    EXPECT_EQ(ServiceLocatorGetRiid(handle, kTestEndpoint), VD_UNKNOWN_RIID);
}

TEST_F(ServiceLocator, ConnectsTransportsThatCall) {
    VdZorTransport transport;
    std::memset(static_cast<void*>(&transport), 0xEE, sizeof(transport));
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    VdZorTransport_Init(&transport, handle, 12345, 0);
    EXPECT_EQ(transport.handle, handle);
    EXPECT_EQ(transport.timeoutMs, 12345U);
    EXPECT_EQ(transport.flags, 0U);
    EXPECT_EQ(transport.farewellCount, 0U);
    TestCall call(kEcho, 0x1234);
    call.RequestArena(BytesOf("there and back")).ResponseArena(64);
    EXPECT_EQ(call.On(transport), kStatusOk);
    EXPECT_EQ(call.Value(), 0x1234U);
    EXPECT_EQ(call.Answered(), BytesOf("there and back"));
}

TEST_F(ServiceLocator, LeavesTheHandleOfABadTransportAllOnes) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    const std::pair<std::uint32_t, std::uint32_t> rows[] = {
        {VD_ZOR_INVALID_HANDLE, 0},
        {handle + 1000, 0},
        {handle, 1},
        {handle, 0x80000000},
    };
    for (const auto& [row, flags] : rows) {
        VdZorTransport transport;
        VdZorTransport_Init(&transport, row, 0, flags);
        EXPECT_NE(transport.ops, nullptr);
        EXPECT_EQ(transport.handle, VD_ZOR_INVALID_HANDLE);
        *VdZorTransport_LastStatus() = kStatusOk;
        EXPECT_EQ(TestCall().On(transport), kStatusBadTransport);
        EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusBadTransport);
        VdZorTransport_SetFarewell(&transport, kTestRiid, 0);
        EXPECT_EQ(TestCall().On(transport), kStatusBadTransport);
    }
    EXPECT_TRUE(server_.Endpoint().Calls().empty());
}

TEST_F(ServiceLocator, BoundsCallsByTheTransportsTime) {
    VdZorTransport transport;
    VdZorTransport_Init(&transport, ServiceLocatorConnect(kTestService), 30, 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TestCall(kHold, 1).On(transport), kStatusTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_EQ(TestCall(kEcho, 1).On(transport), kStatusOk);
}

TEST_F(ServiceLocator, HasTheServiceBackWithTheFirstCallAfterARestart) {
    const std::uint32_t handle = ServiceLocatorConnect(kTestService);
    VdZorTransport transport;
    VdZorTransport_Init(&transport, handle, 0, 0);
    for (int round = 0; round < 3; ++round) {
        auto first = std::make_unique<TestServer>(ServerLimits{}, TestServer::OwnUser(),
                                                  server_.Directory());
        EXPECT_EQ(TestCall(kEcho, 1).On(transport), kStatusOk);
        EXPECT_EQ(first->Endpoint().Calls().size(), round == 0 ? 0U : 1U)
            << "the first server is still there in the first round";
        if (round == 0) {
            server_.Destroy();
        }
        first.reset();
        EXPECT_EQ(TestCall(kEcho, 2).On(transport), kStatusUnavailable);
    }
}

}  // namespace
}  // namespace zam_platform::testing
