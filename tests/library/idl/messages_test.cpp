#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "qx/operation_info.h"

namespace {

/// The operations of the nine interfaces with the sizes of their messages, in order.
struct Expected {
    std::string_view interface;
    std::uint16_t number;
    std::string_view name;
    std::uint32_t request;
    std::uint32_t response;
    std::uint32_t requestArena;
    std::uint32_t responseArena;
};

constexpr Expected kExpected[] = {
    {"ConnController", 0, "Start", 72, 32, 1360, 0},
    {"ConnController", 1, "Stop", 24, 32, 0, 0},
    {"ConnController", 2, "GetState", 24, 32, 0, 0},
    {"ConnSettingsHolder", 0, "Set", 72, 32, 0, 0},
    {"ConnSettingsHolder", 1, "Get", 24, 80, 0, 0},
    {"ConnCommandSender", 0, "PostZamEvent", 32, 32, 128, 0},
    {"ConnCommandSender", 1, "ScheduleSync", 24, 32, 0, 0},
    {"ConnStateNotifier", 0, "Register", 24, 40, 0, 0},
    {"ConnStateNotifier", 1, "GetState", 32, 32, 0, 0},
    {"ConnStateNotifier", 2, "Unregister", 32, 32, 0, 0},
    {"ZamDataNotifier", 0, "Register", 24, 40, 0, 0},
    {"ZamDataNotifier", 1, "GetChangedDataType", 32, 32, 0, 0},
    {"ZamDataNotifier", 2, "Unregister", 32, 32, 0, 0},
    {"ZamDataProvider", 0, "OpenPolicyChannel", 24, 40, 0, 0},
    {"ZamDataProvider", 1, "OpenSettingsChannel", 24, 40, 0, 0},
    {"ZamDataProvider", 2, "GetData", 32, 40, 0, 676000},
    {"ZamDataProvider", 3, "GetZamHash", 32, 40, 0, 0},
    {"ZamDataProvider", 4, "GetZamResult", 32, 32, 0, 0},
    {"ZamDataProvider", 5, "CloseChannel", 32, 32, 0, 0},
    {"ZamDataProvider", 6, "GetSubscriptions", 24, 88, 0, 69632},
    {"ZamDataProvider", 7, "GetZamServerData", 24, 40, 0, 0},
    {"ZamDataProvider", 8, "GetZamReserveCert", 24, 40, 0, 16384},
    {"ZamDataProvider", 9, "GetPolicyHash", 24, 40, 0, 0},
    {"ZamDataProvider", 10, "GetSettingsHash", 24, 40, 0, 0},
    {"ZamDataProvider", 11, "GetSubscriptionHash", 24, 40, 0, 0},
    {"ZamDataProvider", 12, "GetZamUpdatesStatusHash", 24, 40, 0, 0},
    {"ZamDataProvider", 13, "GetSyncedSettingsHash", 24, 40, 0, 0},
    {"ZamDataProvider", 14, "OpenZamUpdatesStatusChannel", 24, 48, 0, 0},
    {"ZamDataProvider", 15, "GetUpdatesStatus", 40, 40, 0, 160},
    {"ZamDataProvider", 16, "CloseZamUpdatesStatusChannel", 32, 32, 0, 0},
    {"ProductDataHolder", 0, "SetAppInfo", 224, 32, 21216, 0},
    {"ProductDataHolder", 1, "SetAppInfoDynamic", 32, 32, 0, 0},
    {"ProductDataHolder", 2, "OpenSetSettingsChannel", 24, 40, 0, 0},
    {"ProductDataHolder", 3, "OpenAppEulasChannel", 24, 40, 0, 0},
    {"ProductDataHolder", 4, "OpenAppUpdatesChannel", 24, 40, 0, 0},
    {"ProductDataHolder", 5, "SendData", 40, 32, 676000, 0},
    {"ProductDataHolder", 6, "CloseChannel", 32, 40, 0, 0},
    {"ZamFileDownloader", 0, "GetFileInfo", 32, 64, 1024, 1024},
    {"ZamFileDownloader", 1, "GetFileChunk", 48, 64, 1024, 66560},
    {"ZamClientCertsDownloader", 0, "GetClientCertificates", 48, 40, 2048, 338280},
};

constexpr unsigned char kPattern = 0xA5;
constexpr std::uint16_t kRiid = 0xBEEF;

/// What reached the transport.
struct Seen {
    int calls = 0;
    int status = 0;  ///< what the call is to return
    VdZorTransport* transport = nullptr;
    void* request = nullptr;
    vd_arena* requestArena = nullptr;
    void* response = nullptr;
    vd_arena* responseArena = nullptr;
};

/// Looks at the arguments only: what the messages hold afterwards is the stub's work alone.
int SeeCall(VdZorTransport* transport, vd_message_header* request, vd_arena* requestArena,
            vd_message_header* response, vd_arena* responseArena) {
    auto& seen = *static_cast<Seen*>(transport->platform);
    ++seen.calls;
    seen.transport = transport;
    seen.request = request;
    seen.requestArena = requestArena;
    seen.response = response;
    seen.responseArena = responseArena;
    return seen.status;
}

constexpr VdZorTransportOps kSeeingOps{&SeeCall};

/// A message of any type, filled with the pattern, between two guards of the same.
template <typename Message>
struct Patterned {
    Patterned() { std::memset(static_cast<void*>(this), kPattern, sizeof(*this)); }

    std::uint64_t before[4];
    Message message;
    std::uint64_t after[4];
};

/// Every byte around and behind the first 8 header bytes is still the pattern.
template <typename Message>
void ExpectHeaderAlone(const Patterned<Message>& patterned, std::uint16_t operation) {
    const unsigned char header[8] = {
        0xEF,
        0xBE,
        static_cast<unsigned char>(operation & 0xFFU),
        static_cast<unsigned char>(operation >> 8U),
        static_cast<unsigned char>(sizeof(Message) & 0xFFU),
        static_cast<unsigned char>((sizeof(Message) >> 8U) & 0xFFU),
        0x00,
        0x00,
    };
    constexpr std::size_t kFirst = sizeof(patterned.before);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&patterned);
    for (std::size_t at = 0; at < sizeof(patterned); ++at) {
        const bool written = at >= kFirst && at < kFirst + 8;
        ASSERT_EQ(bytes[at], written ? header[at - kFirst] : kPattern) << "byte " << at;
    }
}

/// Calls entry `kSlot` of an operation table through its place in memory, over patterned messages.
template <typename Proxy, typename Request, typename Response, std::size_t kSlot>
void ExpectStub(const Proxy& initialised, std::uint16_t operation) {
    using Stub = int (*)(const Proxy*, Request*, vd_arena*, Response*, vd_arena*);
    Stub stub = nullptr;
    std::memcpy(&stub, reinterpret_cast<const char*>(initialised.ops) + kSlot * sizeof(stub),
                sizeof(stub));
    vd_arena requestArena{};
    vd_arena responseArena{};
    for (const int status : {0, 1, -1, INT_MAX, INT_MIN}) {
        Seen seen;
        seen.status = status;
        VdZorTransport transport{};
        transport.ops = &kSeeingOps;
        transport.platform = &seen;
        Proxy proxy = initialised;
        proxy.transport = &transport;
        Patterned<Request> request;
        Patterned<Response> response;
        EXPECT_EQ(stub(&proxy, &request.message, &requestArena, &response.message, &responseArena),
                  status);
        EXPECT_EQ(seen.calls, 1);
        EXPECT_EQ(seen.transport, &transport);
        EXPECT_EQ(seen.request, &request.message);
        EXPECT_EQ(seen.requestArena, &requestArena);
        EXPECT_EQ(seen.response, &response.message);
        EXPECT_EQ(seen.responseArena, &responseArena);
        ExpectHeaderAlone(request, operation);
        ExpectHeaderAlone(response, operation);
    }
}

/// One operation as the headers have it.
struct Actual {
    std::string_view interface;
    std::uint16_t number;
    std::string_view name;
    std::size_t request;
    std::size_t response;
    void (*expectStub)(std::uint16_t operation);
};

#define ACTUAL_OPERATION(INTERFACE, NUMBER, NAME, ...)                                            \
    Actual{#INTERFACE,                                                                            \
           NUMBER,                                                                                \
           #NAME,                                                                                 \
           sizeof(qx_zam_connector_##INTERFACE##_##NAME##_req),                                   \
           sizeof(qx_zam_connector_##INTERFACE##_##NAME##_rsp),                                   \
           [](std::uint16_t operation) {                                                          \
               qx_zam_connector_##INTERFACE##_proxy proxy{};                                      \
               qx_zam_connector_##INTERFACE##_proxy_init(&proxy, nullptr, kRiid);                 \
               ExpectStub<qx_zam_connector_##INTERFACE##_proxy,                                   \
                          qx_zam_connector_##INTERFACE##_##NAME##_req,                            \
                          qx_zam_connector_##INTERFACE##_##NAME##_rsp, NUMBER>(proxy, operation); \
           }},
#define ACTUAL_OPERATIONS(INTERFACE, OPERATIONS) OPERATIONS(ACTUAL_OPERATION)

const std::vector<Actual> kActual = {QX_INTERFACES(ACTUAL_OPERATIONS)};

TEST(Operations, HaveTheirNamesOrdersAndSizes) {
    ASSERT_EQ(std::size(kExpected), 40U);
    ASSERT_EQ(kActual.size(), std::size(kExpected));
    for (std::size_t row = 0; row < kActual.size(); ++row) {
        EXPECT_EQ(kActual[row].interface, kExpected[row].interface);
        EXPECT_EQ(kActual[row].number, kExpected[row].number);
        EXPECT_EQ(kActual[row].name, kExpected[row].name);
        EXPECT_EQ(kActual[row].request, kExpected[row].request) << kExpected[row].name;
        EXPECT_EQ(kActual[row].response, kExpected[row].response) << kExpected[row].name;
    }
}

TEST(Operations, AreDescribedAsTheyAre) {
    std::size_t row = 0;
    for (const qx::InterfaceInfo& interface : qx::kInterfaces) {
        std::uint16_t number = 0;
        for (const qx::OperationInfo& operation : interface.operations) {
            ASSERT_LT(row, std::size(kExpected));
            EXPECT_EQ(interface.name, kExpected[row].interface);
            EXPECT_EQ(operation.name, kExpected[row].name);
            EXPECT_EQ(operation.number, number++);
            EXPECT_EQ(operation.number, kExpected[row].number);
            EXPECT_EQ(operation.requestSize, kExpected[row].request) << operation.name;
            EXPECT_EQ(operation.responseSize, kExpected[row].response) << operation.name;
            EXPECT_EQ(operation.requestArena, kExpected[row].requestArena) << operation.name;
            EXPECT_EQ(operation.responseArena, kExpected[row].responseArena) << operation.name;
            ++row;
        }
    }
    EXPECT_EQ(row, std::size(kExpected));
}

TEST(Operations, OfConnectionControlAreDescribedWithArenasAndOffsets) {
    struct {
        const qx::OperationInfo& operation;
        std::uint32_t requestArena;
        std::uint32_t resultCodeOffset;
    } const rows[] = {
        {qx::kConnControllerOperations[0], 1360, 24},
        {qx::kConnControllerOperations[1], 0, 24},
        {qx::kConnControllerOperations[2], 0, 28},
        {qx::kConnSettingsHolderOperations[0], 0, 24},
        {qx::kConnSettingsHolderOperations[1], 0, 72},
        {qx::kConnCommandSenderOperations[0], 128, 24},
        {qx::kConnCommandSenderOperations[1], 0, 24},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.operation.requestArena, row.requestArena) << row.operation.name;
        EXPECT_EQ(row.operation.responseArena, 0U) << row.operation.name;
        EXPECT_EQ(row.operation.resultCodeOffset, row.resultCodeOffset) << row.operation.name;
        EXPECT_EQ(row.operation.sessionStatusOffset, qx::kNoField) << row.operation.name;
    }
}

TEST(OperationStubs, WriteEightHeaderBytesOfBothMessagesAndNothingElse) {
    for (const Actual& actual : kActual) {
        SCOPED_TRACE(::testing::Message() << actual.interface << "::" << actual.name);
        actual.expectStub(actual.number);
    }
}

TEST(ProxyRecords, HoldTableTransportAndInterfaceIdInThatOrder) {
    VdZorTransport transport{};
    qx_zam_connector_ConnController_proxy record;
    std::memset(static_cast<void*>(&record), kPattern, sizeof(record));
    qx_zam_connector_ConnController_proxy_init(&record, &transport, 0x1234);
    EXPECT_EQ(offsetof(qx_zam_connector_ConnController_proxy, ops), 0U);
    EXPECT_EQ(offsetof(qx_zam_connector_ConnController_proxy, transport), 8U);
    EXPECT_EQ(offsetof(qx_zam_connector_ConnController_proxy, riid), 16U);
    EXPECT_EQ(record.ops, &qx_zam_connector_ConnController_operations);
    EXPECT_EQ(record.transport, &transport);
    EXPECT_EQ(record.riid, 0x1234U);
}

}  // namespace
