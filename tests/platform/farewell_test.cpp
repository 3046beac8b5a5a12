#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/background.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "support/test_call.h"
#include "vd/service_locator.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using ::testing::ElementsAre;
using zam_test::ScopedEnvironment;
using zam_test::TemporaryFolder;

/// Fills a response behind the bytes that the operation stub writes.
void Prefill(TestMessage& response) {
    std::memset(reinterpret_cast<unsigned char*>(&response) + 8, 0xAB, sizeof(response) - 8);
}

/// What the stub wrote, and zeros behind it.
Bytes ZeroFilled(std::uint16_t operation) {
    return MessageBytes(MakeMessage(operation, 0));
}

class Farewell : public ::testing::Test {
protected:
    Farewell() {
        call_.Farewell().ResponseArena(16);
        Prefill(call_.response);
    }

    void ExpectDone() {
        EXPECT_EQ(call_.On(*link_), kStatusOk);
        EXPECT_EQ(ToHex(MessageBytes(call_.response)), ToHex(ZeroFilled(2)));
        EXPECT_EQ(call_.responseArena.used, 0U);
        EXPECT_TRUE(call_.OnlyUsedIsWritten());
    }

    zam_connector::testing::RecordingLogger logger_;
    PairedLink link_;
    TestCall call_{2, 9};
};

TEST_F(Farewell, IsAnOrdinaryCallWhileThePeerIsThere) {
    link_.Prepare(AnswerFrame(1, 7, BytesOf("abc"), 2));
    EXPECT_EQ(call_.On(*link_), kStatusOk);
    EXPECT_EQ(call_.Value(), 7U);
    EXPECT_EQ(call_.Answered(), BytesOf("abc"));
}

TEST_F(Farewell, IsDoneWhenNoServiceListens) {
    link_.FailToConnect(kStatusUnavailable);
    ExpectDone();
}

TEST_F(Farewell, IsDoneWhenTheServiceGoesBeforeItAnswers) {
    link_.Prepare(Bytes(), PairedLink::Then::EndSending);
    ExpectDone();
}

TEST_F(Farewell, IsDoneWhenTheServiceTakesNothing) {
    link_.Prepare(Bytes(), PairedLink::Then::Close);
    ExpectDone();
}

TEST_F(Farewell, IsDoneWithZerosWhenTheServiceGoesWithinItsAnswer) {
    // A message that claims to be 4 GB long must not make anybody zero 4 GB.
    TestMessage message = MakeMessage(0xEEEE, ~std::uint64_t{0}, 0xEEEE);
    message.header.fixedSize = 0xFFFFFFFF;
    const Bytes answer = FrameOf({.kind = FrameKind::Answer, .callNumber = 1},
                                 MessageBytes(message), BytesOf("0123456789"));
    for (std::size_t cut = 1; cut < answer.size(); ++cut) {
        SCOPED_TRACE(cut);
        Prefill(call_.response);
        link_.Prepare(Head(answer, cut), PairedLink::Then::EndSending);
        ExpectDone();
    }
}

TEST_F(Farewell, IsDoneAfterAnyOtherFailureToo) {
    VdCallBounds bounds{};
    call_.Bounds(bounds);
    for (const TransportStatus status :
         {kStatusTimeout, kStatusUntrusted, kStatusProtocol, kStatusResources}) {
        link_.FailToConnect(status);
        ExpectDone();
        EXPECT_EQ(*VdZorTransport_LastStatus(), status);
    }
    link_.FailToConnect(kStatusOk);
    for (const TransportStatus status : {kStatusNotAdmitted, kStatusQuota, kStatusBadRequest}) {
        link_.Prepare(StatusFrame(FrameKind::Refusal, 0, status));
        ExpectDone();
        EXPECT_EQ(*VdZorTransport_LastStatus(), status);
    }
    link_.Prepare(AnswerFrame(2, 0, {}, 2));
    ExpectDone();
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusProtocol);
}

TEST_F(Farewell, IsDoneWhateverStatusTheServiceAnswersWith) {
    VdCallBounds bounds{};
    call_.Bounds(bounds);
    link_.Prepare(StatusFrame(FrameKind::Answer, 1, -77));
    ExpectDone();
    EXPECT_EQ(*VdZorTransport_LastStatus(), -77);
    const RawSocket peer = link_.Next();
    peer.Send(AnswerFrame(2, 7, {}, 2));
    EXPECT_EQ(call_.On(*link_), kStatusOk);
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusOk);
}

TEST_F(Farewell, IsTriedForABoundedTime) {
    VdCallBounds bounds{};
    call_.Bounds(bounds);
    const auto before = std::chrono::steady_clock::now();
    ExpectDone();
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_GE(took, kFarewellTimeout);
    EXPECT_LT(took, kFarewellTimeout + std::chrono::seconds(10));
    EXPECT_EQ(*VdZorTransport_LastStatus(), kStatusTimeout);
}

/// Farewells that the service may not have got though it is there.
class UnsaidFarewell : public ::testing::Test {
protected:
    void Fail(std::uint64_t value, TransportStatus status = kStatusUntrusted) {
        link_.FailToConnect(status);
        TestCall farewell(2, value);
        EXPECT_EQ(farewell.Farewell().On(*link_), kStatusOk);
        link_.FailToConnect(kStatusOk);
    }

    /// What a call on a new connection sends in all, each part being answered; on the one behind
    /// `refused` connections.
    std::vector<std::uint64_t> Sent(int refused = 0) {
        std::vector<std::uint64_t> values;
        Background peer([this, &values, refused] {
            for (int connection = 0; connection < refused; ++connection) {
                link_.Next();
            }
            const RawSocket socket = link_.Next();
            socket.Read(HelloFrame().size());
            Frame frame;
            do {
                frame = socket.ReadFrame();
                values.push_back(MessageIn(frame.fixed).value);
                socket.Send(EchoOf(frame));
            } while (MessageIn(frame.fixed).value != kOrdinary);
        });
        EXPECT_EQ(TestCall(0, kOrdinary).On(*link_), kStatusOk);
        peer.Join();
        return values;
    }

    static constexpr std::uint64_t kOrdinary = 1'000'000;

    zam_connector::testing::RecordingLogger logger_;
    PairedLink link_;
};

TEST_F(UnsaidFarewell, IsSaidBeforeTheFirstCallOnTheNextConnection) {
    Fail(5);
    Fail(6, kStatusQuota);
    EXPECT_THAT(Sent(), ElementsAre(5, 6, kOrdinary));
}

TEST_F(UnsaidFarewell, IsSaidOnce) {
    Fail(5);
    Sent();
    EXPECT_THAT(Sent(), ElementsAre(kOrdinary));
}

TEST_F(UnsaidFarewell, IsNotSaidToTheSuccessorOfAServiceThatWent) {
    Fail(5, kStatusUnavailable);
    EXPECT_THAT(Sent(), ElementsAre(kOrdinary));
}

TEST_F(UnsaidFarewell, IsRememberedUpToALimit) {
    std::vector<std::uint64_t> last;
    for (std::uint64_t value = 1; value <= kMaxUnsaidFarewells + 2; ++value) {
        Fail(value);
        if (value > 2) {
            last.push_back(value);
        }
    }
    last.push_back(kOrdinary);
    EXPECT_EQ(Sent(), last);
}

/// Those that are put back are older than those that came meanwhile.
TEST_F(UnsaidFarewell, IsDroppedOldestFirstAlsoWhenItIsPutBack) {
    for (std::uint64_t value = 1; value <= kMaxUnsaidFarewells; ++value) {
        Fail(value);
    }
    Background call([this] { EXPECT_EQ(TestCall(0, kOrdinary).On(*link_), kStatusOk); });
    {
        const RawSocket saying = link_.Next();
        saying.Read(HelloFrame().size());
        saying.ReadFrame();  // all of them have been taken
        Fail(100);
    }
    {
        const RawSocket socket = link_.Next();
        socket.Read(HelloFrame().size());
        socket.Send(EchoOf(socket.ReadFrame()));
        call.Join();
    }
    std::vector<std::uint64_t> expected;
    for (std::uint64_t value = 2; value <= kMaxUnsaidFarewells; ++value) {
        expected.push_back(value);
    }
    expected.push_back(100);
    expected.push_back(kOrdinary);
    EXPECT_EQ(Sent(), expected);
}

TEST_F(UnsaidFarewell, FailsNoOtherCallForWantOfMemory) {
    Fail(5);
    Fail(6);
    link_.RunOutOfMemoryInTheNextSend();
    EXPECT_THAT(Sent(1), ElementsAre(kOrdinary));
    EXPECT_THAT(Sent(), ElementsAre(5, 6, kOrdinary));
}

TEST_F(UnsaidFarewell, IsSaidToAServiceThatDroppedItsConnection) {
    Fail(5, kStatusBroken);
    EXPECT_THAT(Sent(), ElementsAre(5, kOrdinary));
}

TEST_F(UnsaidFarewell, IsKeptWhenTheCallThatWouldSayItIsEnded) {
    Fail(5);
    VdCallBounds bounds{};
    bounds.enter = [](VdCallBounds* /*bounds*/, VdCallUnderWay* call) {
        call->interrupt(call);
        return 1;
    };
    bounds.leave = [](VdCallBounds* /*bounds*/, VdCallUnderWay* /*call*/) {};
    EXPECT_EQ(TestCall(0, 1).Bounds(bounds).On(*link_), kStatusCancelled);
    EXPECT_THAT(Sent(), ElementsAre(5, kOrdinary));
}

TEST_F(UnsaidFarewell, CostsItsTimeOnceWhenTheServiceDoesNotAnswerIt) {
    Fail(5);
    Background peer([this] {
        const RawSocket deaf = link_.Next();
        deaf.Read(HelloFrame().size());
        deaf.ReadFrame();
        const RawSocket socket = link_.Next();
        socket.Read(HelloFrame().size());
        socket.Send(EchoOf(socket.ReadFrame()));
    });
    EXPECT_EQ(TestCall(0, 1).On(*link_), kStatusOk);
    peer.Join();
    EXPECT_THAT(Sent(), ElementsAre(kOrdinary)) << "it was given to the service";
}

TEST_F(UnsaidFarewell, FailsNoOtherCallWhenItFailsAgain) {
    Fail(5);
    link_.Prepare(StatusFrame(FrameKind::Refusal, 0, kStatusQuota));
    EXPECT_THAT(Sent(1), ElementsAre(kOrdinary));
    EXPECT_THAT(Sent(), ElementsAre(5, kOrdinary));
}

TEST_F(UnsaidFarewell, IsNotSaidAgainToAServiceThatCannotReadIt) {
    Fail(5);
    Fail(6);
    link_.Prepare(StatusFrame(FrameKind::Refusal, 0, kStatusBadRequest));
    EXPECT_THAT(Sent(1), ElementsAre(kOrdinary));
    EXPECT_THAT(Sent(), ElementsAre(6, kOrdinary));
}

TEST_F(Farewell, IsNotAnyOtherCall) {
    link_.FailToConnect(kStatusUnavailable);
    EXPECT_EQ(TestCall(2, 9).On(*link_), kStatusUnavailable);
}

/// The marks of a transport, against a service that has gone.
class FarewellMarks : public ::testing::Test {
protected:
    FarewellMarks() : runtime_("ZAM_RUNTIME_DIR", temp_.Path()) {
        RawListener listener(temp_.Path("marks.sock"));
        VdZorTransport_Init(&transport_, ServiceLocatorConnect("marks"), 0, 0);
        listener.Close();
    }

    bool IsFarewell(std::uint16_t riid, std::uint16_t operation) {
        TestCall call(operation);
        call.request.header.riid = riid;
        const std::int32_t status = call.On(transport_);
        EXPECT_TRUE(status == kStatusOk || status == kStatusUnavailable) << status;
        return status == kStatusOk;
    }

    zam_connector::testing::RecordingLogger logger_;
    TemporaryFolder temp_;
    ScopedEnvironment runtime_;
    VdZorTransport transport_{};
};

TEST_F(FarewellMarks, AreNoneAtFirst) {
    EXPECT_NE(transport_.handle, VD_ZOR_INVALID_HANDLE);
    EXPECT_FALSE(IsFarewell(0, 0));
    EXPECT_FALSE(IsFarewell(1, 2));
}

TEST_F(FarewellMarks, NameOneOperationOfOneInterface) {
    VdZorTransport_SetFarewell(&transport_, 1, 2);
    EXPECT_TRUE(IsFarewell(1, 2));
    EXPECT_FALSE(IsFarewell(1, 1));
    EXPECT_FALSE(IsFarewell(2, 2));
    EXPECT_FALSE(IsFarewell(2, 1));
}

TEST_F(FarewellMarks, AreReplacedPerInterface) {
    VdZorTransport_SetFarewell(&transport_, 1, 2);
    VdZorTransport_SetFarewell(&transport_, 3, 2);
    VdZorTransport_SetFarewell(&transport_, 1, 4);
    EXPECT_EQ(transport_.farewellCount, 2U);
    EXPECT_FALSE(IsFarewell(1, 2));
    EXPECT_TRUE(IsFarewell(1, 4));
    EXPECT_TRUE(IsFarewell(3, 2));
}

TEST_F(FarewellMarks, AreFourAtMost) {
    for (std::uint16_t riid = 1; riid <= 6; ++riid) {
        VdZorTransport_SetFarewell(&transport_, riid, riid);
    }
    EXPECT_EQ(transport_.farewellCount, 4U);
    for (std::uint16_t riid = 1; riid <= 6; ++riid) {
        EXPECT_EQ(IsFarewell(riid, riid), riid <= 4) << riid;
    }
    VdZorTransport_SetFarewell(&transport_, 4, 9);
    EXPECT_TRUE(IsFarewell(4, 9)) << "those that are there can still be replaced";
}

}  // namespace
}  // namespace zam_platform::testing
