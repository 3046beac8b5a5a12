#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "daemon_fixture.h"
#include "data/content_hash.h"
#include "data_client.h"
#include "endpoints/endpoint_catalog.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "support/raw_socket.h"

namespace zam_service {
namespace {

using ::testing::HasSubstr;
using zam_platform::testing::Bytes;
using zam_platform::testing::FrameOf;
using zam_platform::testing::Head;
using zam_platform::testing::RawSocket;
using zam_test::Eventually;
using zam_platform::testing::operator+;
using zam_service::testing::Closed;
using zam_service::testing::Flattened;
using zam_service::testing::kRefused;
using zam_service::testing::RawList;

using Operation = qx_zam_connector_ProductDataHolder_operation;

constexpr unsigned char kToken = 0x51;
constexpr unsigned char kOtherToken = 0x52;
constexpr std::size_t kCut = 40;

const RawList& Records() {
    static const RawList records = Flattened(zuv::Map{{"a", 1}, {"b", std::string(5000, 'b')}});
    return records;
}

/// A call of the product data holder.
template <typename Request>
Bytes CallOf(Operation operation, Request request, const Bytes& arena = {}) {
    request.header.riid = EndpointOf("ProductDataHolder").riid;
    request.header.operation = static_cast<std::uint16_t>(operation);
    request.header.fixedSize = sizeof(request);
    Bytes fixed(sizeof(request));
    std::memcpy(fixed.data(), &request, sizeof(request));
    return FrameOf({.kind = zam_platform::FrameKind::Call, .callNumber = 1}, fixed, arena);
}

Bytes SendCall(std::int64_t channel) {
    zam_connector::common::HeapArena arena(676000);
    qx_zam_connector_ProductDataHolder_SendData_req request{};
    request.channel = channel;
    request.params = zam_connector::common::CastToVd(Records(), arena.Get());
    return CallOf(Operation::SendData, request,
                  {arena.Get()->base, arena.Get()->base + arena.Get()->used});
}

template <typename Response>
Response ReadAnswer(const RawSocket& socket) {
    const Bytes fixed = socket.ReadFrame().fixed;
    Response response{};
    EXPECT_EQ(fixed.size(), sizeof(response));
    std::memcpy(&response, fixed.data(), std::min(fixed.size(), sizeof(response)));
    return response;
}

/// One client with several connections, some of which break.
class BrokenConnectionTest : public zam_service::testing::DaemonFixture {
protected:
    RawSocket Greet(unsigned char token = kToken) const {
        RawSocket socket = zam_platform::testing::ConnectRaw(daemon_->SocketPath());
        socket.Send(zam_platform::testing::HelloFrame(token) +
                    zam_platform::testing::LookupFrame("x"));
        socket.ReadFrame();
        return socket;
    }

    static std::int64_t Open(const RawSocket& socket,
                             Operation operation = Operation::OpenSetSettingsChannel) {
        socket.Send(CallOf(operation, qx::EmptyRequest{}));
        return ReadAnswer<qx::OpenChannelResponse>(socket).channel;
    }

    static int Send(const RawSocket& socket, std::int64_t channel) {
        socket.Send(SendCall(channel));
        return ReadAnswer<qx::SessionResponse>(socket).sessionStatus;
    }

    static Closed Close(const RawSocket& socket, std::int64_t channel) {
        qx::ChannelRequest request{};
        request.channel = channel;
        socket.Send(CallOf(Operation::CloseChannel, request));
        const auto response =
            ReadAnswer<qx_zam_connector_ProductDataHolder_CloseChannel_rsp>(socket);
        return {response.sessionStatus, response.resultCode, response.hash};
    }

    /// Uploads once and leaves a channel open with one piece sent.
    std::int64_t BeginTransfer(const RawSocket& socket) {
        const std::int64_t before = Open(socket);
        EXPECT_EQ(Close(socket, before).code, 0);
        const std::int64_t channel = Open(socket);
        EXPECT_EQ(Send(socket, channel), 0);
        return channel;
    }

    /// One of settings and one of agreements, each with a piece sent.
    std::pair<std::int64_t, std::int64_t> BeginTwoTransfers(const RawSocket& socket) {
        const std::int64_t settings = BeginTransfer(socket);
        const std::int64_t eulas = Open(socket, Operation::OpenAppEulasChannel);
        EXPECT_EQ(Send(socket, eulas), 0);
        return {settings, eulas};
    }

    void ExpectRefused(const RawSocket& socket, std::int64_t channel, const std::string& what) {
        EXPECT_EQ(Close(socket, channel), kRefused) << what;
        EXPECT_EQ(data_.Read("uploads/settings.json"), "null\n") << "the upload before stays";
        EXPECT_THAT(logger_.Records().back().text,
                    HasSubstr("settings upload refused: a connection of its client broke; the one "
                              "before stays"))
            << what;
    }
};

TEST_F(BrokenConnectionTest, RefusesACloseAtOnceBehindTheBreak) {
    Begin();
    const RawSocket client = Greet();
    for (const std::size_t cut : {1U, 31U, 40U, 1000U, 5000U}) {
        const std::int64_t channel = BeginTransfer(client);
        RawSocket broken = Greet();
        broken.Send(Head(SendCall(channel), cut));
        broken.Close();
        ExpectRefused(client, channel, std::to_string(cut) + " bytes of a request");
    }
}

TEST_F(BrokenConnectionTest, RefusesACloseBehindAnAnswerThatWasNotTaken) {
    Begin();
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    RawSocket broken = Greet();
    broken.Send(SendCall(channel));
    EXPECT_TRUE(Eventually([&] { return broken.HasInput(); }));
    broken.Close();
    ExpectRefused(client, channel, "an answer unread");
}

TEST_F(BrokenConnectionTest, RefusesACloseBehindAPieceThatNobodyWaitsForAnyMore) {
    BeginWithFault(R"({"endpoint": "productDataHolder", "operation": "SendData", "calls": 2,
                       "when": "after", "delay_ms": 86400000})");
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    RawSocket broken = Greet();
    broken.Send(SendCall(channel));
    broken.AwaitTaken();
    broken.Close();
    EXPECT_EQ(Close(client, channel), kRefused);
}

TEST_F(BrokenConnectionTest, TakesTransfersBesideAnotherCallThatNobodyWaitsForAnyMore) {
    BeginWithFault(R"({"endpoint": "productDataHolder", "operation": "SetAppInfoDynamic",
                       "delay_ms": 86400000})");
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    RawSocket broken = Greet();
    broken.Send(CallOf(Operation::SetAppInfoDynamic,
                       qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req{}));
    broken.AwaitTaken();
    broken.Close();
    EXPECT_EQ(Close(client, channel).code, 0) << "no piece was lost";
}

TEST_F(BrokenConnectionTest, TakesTheOtherTransfersOfAClientThatLostAPiece) {
    Begin();
    const RawSocket client = Greet();
    const auto [settings, eulas] = BeginTwoTransfers(client);
    RawSocket broken = Greet();
    broken.Send(Head(SendCall(eulas), 1000));
    broken.Close();
    EXPECT_EQ(Close(client, eulas), kRefused);
    EXPECT_EQ(data_.Read("uploads/eulas.json"), "");
    EXPECT_EQ(Close(client, settings).code, 0);
    EXPECT_THAT(data_.Read("uploads/settings.json"), HasSubstr("bbb"));
}

TEST_F(BrokenConnectionTest, RefusesACloseBehindABreachOfTheRules) {
    Begin();
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    const RawSocket broken = Greet();
    broken.Send(Bytes(32));
    broken.ReadToEnd();
    ExpectRefused(client, channel, "no frame");
}

TEST_F(BrokenConnectionTest, RefusesEveryTransferOfTheClientAndTheirNextPieces) {
    Begin();
    const RawSocket client = Greet();
    const auto [settings, eulas] = BeginTwoTransfers(client);
    RawSocket broken = Greet();
    broken.Send({0x5A});
    broken.AwaitTaken();
    broken.Close();
    EXPECT_TRUE(Eventually([&] {
        const auto records = logger_.Records();
        return !records.empty() &&
               records.back().text == "eulas upload: a connection of its client broke";
    }));
    EXPECT_EQ(Send(client, settings), -1);
    EXPECT_EQ(Close(client, settings), kRefused);
    EXPECT_EQ(Close(client, eulas), kRefused);
    EXPECT_EQ(data_.Read("uploads/eulas.json"), "");
}

TEST_F(BrokenConnectionTest, TakesTransfersThatBeganBehindTheBreak) {
    Begin();
    const RawSocket client = Greet();
    RawSocket broken = Greet();
    broken.Send(Head(SendCall(1), kCut));
    broken.Close();
    // Noticed by this close at the latest, so the next channel begins behind it.
    Close(client, Open(client));
    const std::int64_t channel = Open(client);
    EXPECT_EQ(Send(client, channel), 0);
    EXPECT_EQ(Close(client, channel).code, 0);
    EXPECT_THAT(data_.Read("uploads/settings.json"), HasSubstr("bbb"));
}

TEST_F(BrokenConnectionTest, TakesTransfersOfOtherClients) {
    Begin();
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    RawSocket broken = Greet(kOtherToken);
    broken.Send(Head(SendCall(channel), kCut));
    broken.Close();
    EXPECT_EQ(Close(client, channel).code, 0);
}

TEST_F(BrokenConnectionTest, TakesTransfersDuringWhichAConnectionEndedInOrder) {
    Begin();
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    RawSocket idle = Greet();
    RawSocket sender = Greet();
    EXPECT_EQ(Send(sender, Open(sender)), 0);
    idle.Close();
    sender.Close();
    EXPECT_EQ(Close(client, channel).code, 0);
    EXPECT_THAT(data_.Read("uploads/settings.json"), HasSubstr("bbb"));
}

TEST_F(BrokenConnectionTest, TakesTransfersWhileAnotherRequestIsHalfReceived) {
    Begin();
    const RawSocket client = Greet();
    const std::int64_t channel = BeginTransfer(client);
    const RawSocket halfway = Greet();
    halfway.Send(Head(SendCall(channel), kCut));
    halfway.AwaitTaken();
    EXPECT_EQ(Close(client, channel).code, 0) << "nothing has broken";
}

}  // namespace
}  // namespace zam_service
