#include "zam_connector_testing/scripted_platform.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "qx/conn_controller.h"
#include "vd/runtime_directory.h"
#include "vd/transport_features.h"

namespace zam_connector::testing {
namespace {

using Function = PlatformCall::Function;

/// A transport as uninitialised memory gives it.
VdZorTransport Garbage() {
    VdZorTransport transport;
    std::memset(static_cast<void*>(&transport), 0xA5, sizeof(transport));
    return transport;
}

int CallStop(VdZorTransport* transport) {
    qx_zam_connector_ConnController_proxy record;
    qx_zam_connector_ConnController_proxy_init(&record, transport, 3);
    qx_zam_connector_ConnController_Stop_req request{};
    qx_zam_connector_ConnController_Stop_rsp response{};
    return record.ops->Stop(&record, &request, nullptr, &response, nullptr);
}

TEST(ScriptedPlatform, HasNoServicesWithoutAnObject) {
    EXPECT_EQ(ServiceLocatorConnect("zam_connector_id"), 0xFFFFFFFFU);
    EXPECT_EQ(ServiceLocatorGetRiid(1, "endpoint"), 0xFFFFU);
    VdZorTransport transport = Garbage();
    VdZorTransport_Init(&transport, 1, 0, 0);
    EXPECT_EQ(transport.handle, 0xFFFFFFFFU);
    EXPECT_EQ(CallStop(&transport), kNoHandleStatus);
    VdZorTransport_SetFarewell(&transport, 1, 2);
    EXPECT_EQ(transport.farewellCount, 0U);
}

TEST(ScriptedPlatform, HasNoRuntimeDirectory) {
    const ScriptedPlatform platform;
    const vd::RuntimeDirectoryDiagnosis diagnosis =
        vd::DiagnoseRuntimeDirectory({"zam_connector_id"});
    EXPECT_EQ(diagnosis.origin, "");
    EXPECT_TRUE(diagnosis.sockets.empty());
}

TEST(ScriptedPlatform, HasNoFastChannelAndCountsNoCalls) {
    ScriptedTransport service;
    ScriptedPlatform platform;
    platform.SetTransport(11, &service);
    service.SetDefault({});
    VdZorTransport transport = Garbage();
    VdZorTransport_Init(&transport, 11, 0, 0);
    EXPECT_EQ(CallStop(&transport), 0);
    EXPECT_EQ(VdZorTransport_Features(&transport), 0U);
    VdTransportStatistics statistics;
    std::memset(&statistics, 0xA5, sizeof(statistics));
    statistics.size = sizeof(statistics);
    VdZorTransport_Statistics(&transport, &statistics);
    EXPECT_EQ(statistics.size, sizeof(statistics));
    EXPECT_EQ(statistics.calls, 0U);
    EXPECT_EQ(statistics.memoryCalls, 0U);
    EXPECT_EQ(statistics.vainPolls, 0U);
    EXPECT_EQ(statistics.vainPollNs, 0U);
}

TEST(ScriptedPlatform, AnswersByNameAndRecordsInOrder) {
    ScriptedPlatform platform;
    platform.SetHandle("service", 11);
    platform.SetRiid("endpoint", 22);
    EXPECT_EQ(ServiceLocatorConnect("service"), 11U);
    EXPECT_EQ(ServiceLocatorConnect("unknown"), 0xFFFFFFFFU);
    EXPECT_EQ(ServiceLocatorConnect(nullptr), 0xFFFFFFFFU);
    EXPECT_EQ(ServiceLocatorGetRiid(11, "endpoint"), 22U);
    EXPECT_EQ(ServiceLocatorGetRiid(12, "unknown"), 0xFFFFU);
    VdZorTransport transport = Garbage();
    VdZorTransport_Init(&transport, 11, 5, 6);
    VdZorTransport_SetFarewell(&transport, 22, 2);

    const auto calls = platform.Calls();
    ASSERT_EQ(calls.size(), 7U);
    EXPECT_EQ(calls[0].function, Function::ServiceLocatorConnect);
    EXPECT_EQ(calls[0].name, "service");
    EXPECT_EQ(calls[1].name, "unknown");
    EXPECT_EQ(calls[2].name, "");
    EXPECT_EQ(calls[3].function, Function::ServiceLocatorGetRiid);
    EXPECT_EQ(calls[3].handle, 11U);
    EXPECT_EQ(calls[3].name, "endpoint");
    EXPECT_EQ(calls[4].handle, 12U);
    EXPECT_EQ(calls[5].function, Function::VdZorTransportInit);
    EXPECT_EQ(calls[5].transport, &transport);
    EXPECT_EQ(calls[5].handle, 11U);
    EXPECT_EQ(calls[5].timeoutMs, 5U);
    EXPECT_EQ(calls[5].flags, 6U);
    EXPECT_EQ(calls[6].function, Function::VdZorTransportSetFarewell);
    EXPECT_EQ(calls[6].transport, &transport);
    EXPECT_EQ(calls[6].riid, 22U);
    EXPECT_EQ(calls[6].operation, 2U);
}

TEST(ScriptedPlatform, LeadsTransportsToTheScriptedOneOfTheirHandle) {
    ScriptedPlatform platform;
    ScriptedTransport first;
    ScriptedTransport second;
    first.SetDefault({1, {}, {}});
    second.SetDefault({2, {}, {}});
    platform.SetTransport(10, &first);
    platform.SetTransport(20, &second);
    VdZorTransport transport = Garbage();
    VdZorTransport_Init(&transport, 20, 7, 0);
    EXPECT_EQ(transport.handle, 20U);
    EXPECT_EQ(transport.timeoutMs, 7U);
    EXPECT_EQ(transport.farewellCount, 0U);
    EXPECT_EQ(CallStop(&transport), 2);
    ASSERT_EQ(second.Calls().size(), 1U);
    EXPECT_EQ(second.Calls()[0].transport, &transport);
    VdZorTransport_Init(&transport, 10, 0, 0);
    EXPECT_EQ(CallStop(&transport), 1);
    EXPECT_EQ(first.Calls().size(), 1U);
}

TEST(ScriptedPlatform, LeavesTransportsOfUnknownHandlesWithoutOne) {
    const ScriptedPlatform platform;
    VdZorTransport transport = Garbage();
    VdZorTransport_Init(&transport, 10, 0, 0);
    ASSERT_NE(transport.ops, nullptr);
    EXPECT_EQ(transport.handle, 0xFFFFFFFFU);
    EXPECT_EQ(CallStop(&transport), kNoHandleStatus);
}

TEST(ScriptedPlatform, MakesInitialisationFailAsToldTo) {
    ScriptedPlatform platform;
    ScriptedTransport scripted;
    platform.SetTransport(10, &scripted);
    platform.SetTransport(20, &scripted);
    platform.SetInitFault(10, InitFault::NoOps);
    platform.SetInitFault(20, InitFault::NoHandle);
    VdZorTransport transport = Garbage();
    VdZorTransport_Init(&transport, 10, 0, 0);
    EXPECT_EQ(transport.ops, nullptr);
    EXPECT_EQ(transport.handle, 10U);
    transport = Garbage();
    VdZorTransport_Init(&transport, 20, 0, 0);
    EXPECT_NE(transport.ops, nullptr);
    EXPECT_EQ(transport.handle, 0xFFFFFFFFU);
    EXPECT_EQ(CallStop(&transport), kNoHandleStatus);
}

TEST(ScriptedPlatform, IsOneAtATime) {
    {
        const ScriptedPlatform platform;
        EXPECT_THROW(ScriptedPlatform(), std::logic_error);
        // The refused one must not have taken the first one's place.
        EXPECT_EQ(ServiceLocatorConnect("service"), 0xFFFFFFFFU);
        EXPECT_EQ(platform.Calls().size(), 1U);
    }
    const ScriptedPlatform next;
    EXPECT_TRUE(next.Calls().empty());
}

}  // namespace
}  // namespace zam_connector::testing
