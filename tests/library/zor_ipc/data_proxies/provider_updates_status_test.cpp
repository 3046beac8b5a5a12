#include "data_rig.h"
#include "qel/exception.h"

namespace zam_connector {
namespace {

using test::Lines;
using test::MakeId;
using test::ProviderLine;
using test::ProviderRig;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Status = std::pair<unsigned long, ZamUpdatesStatus>;

Status OldStatus() {
    return {5, {{MakeId(0x90)}, {MakeId(0x91)}, {MakeId(0x92)}}};
}

/// Kind 0 in two pieces, kind 1 in one, nothing of kind 2: six calls.
void GiveUpdates(ProviderRig& rig) {
    rig.updates[0] = {{MakeId(1), MakeId(2)}, {MakeId(3)}};
    rig.updates[1] = {{MakeId(4)}};
}

Status ExpectedStatus(const ProviderRig& rig) {
    return {rig.hash, {{MakeId(1), MakeId(2), MakeId(3)}, {MakeId(4)}, {}}};
}

/// The record of a failure inside the transfer.
std::string FailureLine(int code, const std::string& description) {
    return ProviderLine("GetZamUpdatesStatus",
                        "GetZamUpdatesStatus: Can't get zam update status code " +
                            std::to_string(code) + " description " + description);
}

TEST(UpdatesStatus, PullsTheThreeKindsInOrderWithoutTheLastAnswerOfEach) {
    ProviderRig rig;
    GiveUpdates(rig);
    Status status = OldStatus();
    EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), 0);
    EXPECT_EQ(status, ExpectedStatus(rig));
    EXPECT_THAT(
        rig.Operations(),
        ElementsAre(test::kOpenUpdates, test::kGetUpdates, test::kGetUpdates, test::kGetUpdates,
                    test::kGetUpdates, test::kGetUpdates, test::kGetUpdates, test::kCloseUpdates));
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

TEST(UpdatesStatus, NamesChannelAndKindInItsRequests) {
    ProviderRig rig;
    GiveUpdates(rig);
    Status status;
    rig.proxy.GetZamUpdatesStatus(status);
    const auto calls = rig.transport.Calls();
    EXPECT_EQ(calls.front().request, testing::Bytes());
    EXPECT_EQ(calls.back().request, test::kChannelBytes);
    const auto pulls = rig.CallsOf(test::kGetUpdates);
    const unsigned char kinds[] = {0, 0, 0, 1, 1, 2};
    ASSERT_EQ(pulls.size(), std::size(kinds));
    for (std::size_t index = 0; index < pulls.size(); ++index) {
        EXPECT_EQ(pulls[index].request,
                  (testing::Bytes{8, 7, 6, 5, 4, 3, 2, 1, kinds[index], 0, 0, 0, 0, 0, 0, 0}));
    }
    for (const auto& call : calls) {
        EXPECT_FALSE(call.hasRequestArena);
        EXPECT_EQ(call.hasResponseArena, call.requestHeader.operation == test::kGetUpdates);
    }
}

TEST(UpdatesStatus, OffersAnEmptyZeroArenaForEveryPiece) {
    ProviderRig rig;
    // Ten identifiers are what the arena holds.
    rig.updates[2] = {std::vector<ZamId>(10, MakeId(0xA0)), {MakeId(1)}, {}};
    Status status;
    EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), 0);
    EXPECT_EQ(status.second.revoked.size(), 11U);
    EXPECT_EQ(status.second.revoked.back(), MakeId(1));
    for (const auto& call : rig.CallsOf(test::kGetUpdates)) {
        EXPECT_EQ(call.responseArenaCapacity, 160U);
        EXPECT_EQ(call.responseArenaUsed, 0U);
        EXPECT_TRUE(call.responseArenaIsZero);
    }
}

TEST(UpdatesStatus, EmptiesTheListsForEmptyOnes) {
    ProviderRig rig;
    Status status = OldStatus();
    EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), 0);
    EXPECT_EQ(status, (Status{rig.hash, {}}));
}

TEST(UpdatesStatus, TakesStatusOneForSuccessOfOpenAndClose) {
    ProviderRig rig;
    GiveUpdates(rig);
    rig.Fail(test::kOpenUpdates, {.session = 1});
    rig.Fail(test::kCloseUpdates, {.session = 1});
    Status status;
    EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), 0);
    EXPECT_EQ(status, ExpectedStatus(rig));
}

/// Open and close are checked calls, whose failures are returned.
TEST(UpdatesStatusFailure, OfOpenReturnsItsCodeAndNothingIsClosed) {
    const auto expect = [](test::Fault fault, int code, const std::string& line) {
        SCOPED_TRACE(line);
        ProviderRig rig;
        GiveUpdates(rig);
        rig.Fail(test::kOpenUpdates, fault);
        Status status = OldStatus();
        EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), code);
        EXPECT_EQ(status, OldStatus());
        EXPECT_EQ(rig.TakeLines(), Lines{line});
        EXPECT_THAT(rig.Operations(), ElementsAre(test::kOpenUpdates));
    };
    for (const auto& row : test::kSessionFailures) {
        expect({.session = row.status}, row.code,
               test::SessionLine("OpenZamUpdatesStatusChannel", row.status));
    }
    for (const int status : test::kTransportStatuses) {
        expect({.transport = status}, test::kUnspecified,
               test::TransportLine("OpenZamUpdatesStatusChannel", status));
    }
}

TEST(UpdatesStatusFailure, OfCloseReturnsItsCodeAndLeavesTheOutput) {
    const auto expect = [](test::Fault fault, int code, const std::string& line) {
        SCOPED_TRACE(line);
        ProviderRig rig;
        GiveUpdates(rig);
        rig.Fail(test::kCloseUpdates, fault);
        Status status = OldStatus();
        EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), code);
        EXPECT_EQ(status, OldStatus());
        EXPECT_EQ(rig.TakeLines(), Lines{line});
        EXPECT_EQ(rig.CallsOf(test::kCloseUpdates).size(), 1U);
    };
    for (const auto& row : test::kSessionFailures) {
        expect({.session = row.status}, row.code,
               test::SessionLine("CloseZamUpdatesStatusChannel", row.status));
    }
    for (const int status : test::kTransportStatuses) {
        expect({.transport = status}, test::kUnspecified,
               test::TransportLine("CloseZamUpdatesStatusChannel", status));
    }
}

/// Where the call frame throws: behind a failed call, and behind an answer that tells a failure.
constexpr char kTransportPlace[] = "ipc_transfer_call(106)";
constexpr char kSessionPlace[] = "ipc_transfer_call(112)";

std::string CodeText(int code, const char* place) {
    return std::string(code == test::kInvalidArgument ? "Invalid argument = 0x80000046. At "
                       : code == test::kInvalidResult ? "Invalid result = 0x80000071. At "
                                                      : "Unspecified error = 0x8000004B. At ") +
           place;
}

/// `call` is the number of the failing call of "GetUpdatesStatus".
void ExpectPullFailure(test::Fault fault, std::size_t call, const Lines& lines) {
    SCOPED_TRACE(::testing::Message() << "call " << call << ", " << lines.back());
    ProviderRig rig;
    GiveUpdates(rig);
    rig.Fail(test::kGetUpdates, fault, call);
    Status status = OldStatus();
    EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), test::kUnspecified);
    EXPECT_EQ(status, OldStatus());
    EXPECT_EQ(rig.TakeLines(), lines);
    EXPECT_EQ(rig.Operations().size(), 3 + call);
    EXPECT_EQ(rig.CallsOf(test::kCloseUpdates).size(), 1U);
    EXPECT_EQ(rig.transport.Calls().back().request, test::kChannelBytes);
}

TEST(UpdatesStatusFailure, OfASessionIsToldOnceByItsCodeInEveryKind) {
    for (std::size_t call = 0; call < 6; ++call) {
        for (const auto& row : test::kSessionFailures) {
            ExpectPullFailure({.session = row.status}, call,
                              {FailureLine(row.code, CodeText(row.code, kSessionPlace))});
        }
    }
}

TEST(UpdatesStatusFailure, OfTheTransportIsToldByTheCallToo) {
    for (std::size_t call = 0; call < 6; ++call) {
        for (const int status : test::kTransportStatuses) {
            ExpectPullFailure(
                {.transport = status}, call,
                {"4 ipc_transfer_call IpcTransferCall: Ipc call GetUpdatesStatus terminated with a "
                 "error " +
                     std::to_string(status),
                 FailureLine(test::kUnspecified, CodeText(test::kUnspecified, kTransportPlace))});
        }
    }
}

TEST(UpdatesStatusFailure, OfAConversionIsToldInItsWords) {
    struct {
        vd_bytes stretch;
        int code;
        const char* text;
    } const rows[] = {
        {{0, 17},
         test::kInvalidArgument,
         "identifiers: 17 bytes are no whole number of elements of 16 bytes"},
        {{16, 16},
         static_cast<int>(0x8000005EU),
         "identifiers: offset 16 and length 16 exceed the 20 bytes in use of the arena"},
        {{0xFFFFFFFF, 1},
         static_cast<int>(0x8000005EU),
         "identifiers: offset 4294967295 and length 1 exceed the 20 bytes in use of the arena"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        ProviderRig rig;
        qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp opened{};
        opened.channel = test::kChannel;
        rig.transport.Enqueue(testing::AnswerWith(opened));
        qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp response{};
        response.updates.identifiers = row.stretch;
        rig.transport.Enqueue(testing::AnswerWith(response, std::string(20, 'x')));
        Status status = OldStatus();
        EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), test::kUnspecified);
        EXPECT_EQ(status, OldStatus());
        EXPECT_EQ(rig.TakeLines(), Lines{FailureLine(row.code, row.text)});
        EXPECT_THAT(rig.Operations(),
                    ElementsAre(test::kOpenUpdates, test::kGetUpdates, test::kCloseUpdates));
    }
}

TEST(UpdatesStatusFailure, OfTheCloseAfterAFailedTransferIsLoggedAndChangesNothing) {
    ProviderRig rig;
    GiveUpdates(rig);
    rig.Fail(test::kGetUpdates, {.session = -2}, 4);
    rig.Fail(test::kCloseUpdates, {.session = -1});
    Status status = OldStatus();
    EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), test::kUnspecified);
    EXPECT_EQ(
        rig.TakeLines(),
        (Lines{FailureLine(test::kInvalidResult, CodeText(test::kInvalidResult, kSessionPlace)),
               test::SessionLine("CloseZamUpdatesStatusChannel", -1)}));
    EXPECT_EQ(rig.CallsOf(test::kCloseUpdates).size(), 1U);
}

TEST(UpdatesStatusChannel, OpensWithChannelAndHashOnSuccessOnly) {
    ProviderRig rig;
    long channel = 1;
    unsigned long hash = 2;
    rig.Fail(test::kOpenUpdates, {.session = -5});
    EXPECT_EQ(rig.proxy.OpenZamUpdatesStatusChannel(channel, hash), test::kInvalidArgument);
    EXPECT_EQ(channel, 1);
    EXPECT_EQ(hash, 2U);
    EXPECT_EQ(rig.proxy.OpenZamUpdatesStatusChannel(channel, hash), 0);
    EXPECT_EQ(channel, test::kChannel);
    EXPECT_EQ(hash, rig.hash);
}

TEST(UpdatesStatusChannel, ClosesWithZero) {
    ProviderRig rig;
    rig.Fail(test::kCloseUpdates, {.session = 1});
    EXPECT_EQ(rig.proxy.CloseZamUpdatesStatusChannel(-1), 0);
    EXPECT_EQ(rig.proxy.CloseZamUpdatesStatusChannel(-1), 0);
    EXPECT_EQ(rig.transport.Calls()[0].request, testing::Bytes(8, 0xFF));
}

TEST(UpdatesStatusList, ThrowsTheCodeAndLeavesTheList) {
    ProviderRig rig;
    rig.updates[1] = {{MakeId(1)}, {MakeId(2)}};
    rig.Fail(test::kGetUpdates, {.session = -3}, 1);
    std::vector<ZamId> list{MakeId(9)};
    try {
        rig.proxy.GetZamUpdatesStatus(3, 1, list);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::ResultCodeException& exception) {
        EXPECT_EQ(exception.Code(), test::kInvalidResult);
    }
    EXPECT_THAT(list, ElementsAre(MakeId(9)));
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

}  // namespace
}  // namespace zam_connector
