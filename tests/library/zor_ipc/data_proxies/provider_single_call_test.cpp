#include "common/arena.h"
#include "common/server_data_casts.h"
#include "data_rig.h"

namespace zam_connector {
namespace {

using test::Lines;
using test::ProviderLine;
using test::ProviderRig;
using ::testing::IsEmpty;

using SubscriptionsResponse = qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp;
using ServerDataResponse = qx_zam_connector_ZamDataProvider_GetZamServerData_rsp;
using CertResponse = qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp;
using Subscriptions = std::pair<unsigned long, ZamSubscriptions>;

Subscriptions SomeSubscriptions() {
    Subscriptions subscriptions;
    subscriptions.first = 0x8182'8384'8586'8788;
    subscriptions.second.events["login"] = {3, std::chrono::duration<std::uint32_t>(60)};
    subscriptions.second.events["virus"] = {0, std::chrono::duration<std::uint32_t>(0)};
    return subscriptions;
}

Subscriptions OtherSubscriptions() {
    Subscriptions subscriptions;
    subscriptions.first = 7;
    subscriptions.second.events["old"] = {1, std::chrono::duration<std::uint32_t>(2)};
    return subscriptions;
}

testing::ScriptedAnswer SubscriptionsAnswer(int code, int status = 0) {
    common::HeapArena arena(0x11000);
    SubscriptionsResponse response{};
    response.subscriptions = common::CastToVd(SomeSubscriptions(), arena.Get());
    response.resultCode = code;
    return testing::AnswerWith(
        response, {reinterpret_cast<const char*>(arena.Get()->base), arena.Get()->used}, status);
}

TEST(GetSubscriptions, CallsItsOperationWithAnEmptyZeroArena) {
    ProviderRig rig;
    rig.transport.Enqueue(SubscriptionsAnswer(0));
    Subscriptions subscriptions;
    EXPECT_EQ(rig.proxy.GetSubscriptions(subscriptions), 0);
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.operation, test::kGetSubscriptions);
    EXPECT_EQ(call.request, testing::Bytes());
    EXPECT_FALSE(call.hasRequestArena);
    EXPECT_TRUE(call.hasResponseArena);
    EXPECT_EQ(call.responseArenaCapacity, 69632U);
    EXPECT_EQ(call.responseArenaUsed, 0U);
    EXPECT_TRUE(call.responseArenaIsZero);
}

TEST(GetSubscriptions, ReplacesHashAndContainerWhateverTheCodeIs) {
    for (const int code : test::kResultCodes) {
        SCOPED_TRACE(code);
        ProviderRig rig;
        rig.transport.Enqueue(SubscriptionsAnswer(code));
        Subscriptions subscriptions = OtherSubscriptions();
        EXPECT_EQ(rig.proxy.GetSubscriptions(subscriptions), code);
        EXPECT_EQ(subscriptions, SomeSubscriptions());
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TEST(GetSubscriptions, EmptiesTheContainerForAnEmptyAnswer) {
    ProviderRig rig;
    rig.transport.Enqueue({});
    Subscriptions subscriptions = OtherSubscriptions();
    EXPECT_EQ(rig.proxy.GetSubscriptions(subscriptions), 0);
    EXPECT_EQ(subscriptions, Subscriptions());
}

TEST(GetSubscriptions, LeavesEverythingWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        ProviderRig rig;
        rig.transport.Enqueue(SubscriptionsAnswer(0, status));
        Subscriptions subscriptions = OtherSubscriptions();
        EXPECT_EQ(rig.proxy.GetSubscriptions(subscriptions), test::kUnspecified);
        EXPECT_EQ(subscriptions, OtherSubscriptions());
        EXPECT_EQ(rig.TakeLines(),
                  Lines{ProviderLine("GetSubscriptions",
                                     "Zam_data_pvr proxy: ipc call GetSubscriptions terminated "
                                     "with a error " +
                                         std::to_string(status))});
    }
}

TEST(GetSubscriptions, LeavesEverythingWhenTheAnswerCannotBeConverted) {
    ProviderRig rig;
    SubscriptionsResponse response{};
    response.subscriptions.eventTypes = {1, 8};
    rig.transport.Enqueue(testing::AnswerWith(response, "12345678"));
    response.subscriptions.eventTypes = {0, 7};
    rig.transport.Enqueue(testing::AnswerWith(response, "12345678"));
    Subscriptions subscriptions = OtherSubscriptions();
    EXPECT_EQ(rig.proxy.GetSubscriptions(subscriptions), test::kUnspecified);
    EXPECT_EQ(rig.proxy.GetSubscriptions(subscriptions), test::kUnspecified);
    EXPECT_EQ(subscriptions, OtherSubscriptions());
    EXPECT_EQ(rig.TakeLines(),
              (Lines{ProviderLine("GetSubscriptions",
                                  "Zam_data_pvr proxy: eventTypes: offset 1 and length 8 exceed "
                                  "the 8 bytes in use of the arena"),
                     ProviderLine("GetSubscriptions",
                                  "Zam_data_pvr proxy: eventTypes: 7 bytes are no whole number of "
                                  "elements of 8 bytes")}));
}

testing::ScriptedAnswer ServerDataAnswer(int code, int status = 0) {
    testing::ScriptedAnswer answer;
    answer.status = status;
    answer.response = {
        0x02, 0x01,              // versionMajor
        0x04, 0x03,              // versionMinor
        0xFE, 0xFF, 0xFF, 0xFF,  // clockOffsetS
        0x02,                    // deviceStatus
        0x05,                    // flags
        0x00, 0x00,              // reserved
    };
    const auto bits = static_cast<std::uint32_t>(code);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        answer.response.push_back(static_cast<unsigned char>(bits >> shift));
    }
    return answer;
}

ZamServerData ExpectedServerData() {
    ZamServerData data;
    data.versionMajor = 0x0102;
    data.versionMinor = 0x0304;
    data.clockOffset = std::chrono::duration<std::int32_t>(-2);
    data.deviceStatus = ZamDeviceStatus::Quarantined;
    data.offersFiles = true;
    data.requiresClientCert = true;
    return data;
}

TEST(GetZamServerData, StoresTheRecordWhateverTheCodeIs) {
    for (const int code : test::kResultCodes) {
        SCOPED_TRACE(code);
        ProviderRig rig;
        rig.transport.Enqueue(ServerDataAnswer(code));
        ZamServerData data;
        EXPECT_EQ(rig.proxy.GetZamServerData(data), code);
        EXPECT_EQ(data, ExpectedServerData());
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
        const auto call = rig.OnlyCall();
        EXPECT_EQ(call.requestHeader.operation, test::kGetZamServerData);
        EXPECT_EQ(call.request, testing::Bytes());
        EXPECT_FALSE(call.hasRequestArena || call.hasResponseArena);
    }
}

TEST(GetZamServerData, LeavesTheRecordWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        ProviderRig rig;
        rig.transport.Enqueue(ServerDataAnswer(0, status));
        ZamServerData data;
        data.versionMajor = 9;
        const ZamServerData before = data;
        EXPECT_EQ(rig.proxy.GetZamServerData(data), test::kUnspecified);
        EXPECT_EQ(data, before);
        EXPECT_EQ(rig.TakeLines(),
                  Lines{ProviderLine("GetZamServerData",
                                     "ZamDataProviderProxy: ipc call GetZamServerData terminated "
                                     "with a error " +
                                         std::to_string(status))});
    }
}

TEST(GetZamServerData, TellsBothPartsOfAConversionFailure) {
    ProviderRig rig;
    ServerDataResponse response{};
    response.serverData.deviceStatus = 3;
    rig.transport.Enqueue(testing::AnswerWith(response));
    ZamServerData data;
    data.versionMajor = 9;
    const ZamServerData before = data;
    EXPECT_EQ(rig.proxy.GetZamServerData(data), test::kUnspecified);
    EXPECT_EQ(data, before);
    // -2147483554 is 0x8000005E, the code of an index out of range.
    EXPECT_EQ(rig.TakeLines(),
              Lines{ProviderLine("GetZamServerData",
                                 "ZamDataProviderProxy: cast ZamServerData threw exception "
                                 "[-2147483554, deviceStatus: 3 is unknown]")});
}

testing::ScriptedAnswer CertAnswer(vd_bytes stretch, const std::string& arena, int code = 0,
                                   int status = 0) {
    CertResponse response{};
    response.certificate = stretch;
    response.resultCode = code;
    return testing::AnswerWith(response, arena, status);
}

TEST(GetZamReserveCert, GivesTheBytesThatTheAnswerDescribes) {
    struct {
        vd_bytes stretch;
        const char* arena;
        const char* cert;
    } const rows[] = {
        {{0, 4}, "PEM!", "PEM!"},
        {{1, 3}, "PEM!", "EM!"},
        {{1, 2}, "PEM!", "EM"},
        {{3, 1}, "PEM!", "!"},
        {{0, 0}, "PEM!", ""},
        {{3, 0}, "PEM!", ""},
        {{4, 0}, "PEM!", ""},
        {{4, 1}, "PEM!", ""},
        {{5, 0}, "PEM!", ""},
        {{5, 0xFFFFFFFF}, "PEM!", ""},
        {{0, 5}, "PEM!", ""},
        {{3, 2}, "PEM!", ""},
        {{1, 0xFFFFFFFF}, "PEM!", ""},
        {{0xFFFFFFFF, 1}, "PEM!", ""},
        {{0xFFFFFFFF, 5}, "PEM!", ""},
        {{0xFFFFFFFF, 0xFFFFFFFF}, "PEM!", ""},
        {{0, 0}, "", ""},
        {{0, 1}, "", ""},
        {{1, 0xFFFFFFFF}, "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.stretch.offset << " " << row.stretch.length);
        for (const int code : {0, 1, INT_MAX}) {
            ProviderRig rig;
            rig.transport.Enqueue(CertAnswer(row.stretch, row.arena, code));
            std::string cert = "old";
            EXPECT_EQ(rig.proxy.GetZamReserveCert(cert), code);
            EXPECT_EQ(cert, row.cert);
            EXPECT_THAT(rig.TakeLines(), IsEmpty());
        }
    }
}

TEST(GetZamReserveCert, HasAnArenaForTheLargestCertificate) {
    ProviderRig rig;
    std::string largest(16384, 'x');
    largest[5] = '\0';
    largest.back() = '!';
    rig.transport.Enqueue(CertAnswer({0, 16384}, largest));
    std::string cert;
    EXPECT_EQ(rig.proxy.GetZamReserveCert(cert), 0);
    EXPECT_EQ(cert, largest);
    const auto call = rig.OnlyCall();
    EXPECT_EQ(call.requestHeader.operation, test::kGetZamReserveCert);
    EXPECT_EQ(call.request, testing::Bytes());
    EXPECT_FALSE(call.hasRequestArena);
    EXPECT_EQ(call.responseArenaCapacity, 16384U);
    EXPECT_EQ(call.responseArenaUsed, 0U);
    EXPECT_TRUE(call.responseArenaIsZero);
}

TEST(GetZamReserveCert, LeavesTheTextForANegativeCode) {
    for (const int code : {-1, INT_MIN, test::kUnspecified, test::kServiceFailure}) {
        ProviderRig rig;
        rig.transport.Enqueue(CertAnswer({0, 4}, "PEM!", code));
        std::string cert = "old";
        EXPECT_EQ(rig.proxy.GetZamReserveCert(cert), code);
        EXPECT_EQ(cert, "old");
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TEST(GetZamReserveCert, LeavesTheTextWhenTheTransportFails) {
    for (const int status : test::kTransportStatuses) {
        ProviderRig rig;
        rig.transport.Enqueue(CertAnswer({0, 4}, "PEM!", 0, status));
        std::string cert = "old";
        EXPECT_EQ(rig.proxy.GetZamReserveCert(cert), test::kUnspecified);
        EXPECT_EQ(cert, "old");
        EXPECT_EQ(rig.TakeLines(),
                  Lines{ProviderLine("GetZamReserveCert",
                                     "ZamDataProviderProxy: ipc call GetZamReserveCert terminated "
                                     "with an error " +
                                         std::to_string(status))});
    }
}

}  // namespace
}  // namespace zam_connector
