#include <gtest/gtest.h>

#include <cstdint>

#include "support/test_call.h"
#include "vd/call_bounds.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

constexpr std::uint16_t kClose = 6;
constexpr std::uint64_t kChannel = 5;

/// What a client tells a service of a transfer that failed.
class FailedTransfer : public ::testing::Test {
protected:
    FailedTransfer() {
        bounds_.failedTransfer = &failed_;
        call_.Bounds(bounds_);
    }

    /// Flags of the call as the service gets it, behind a lookup.
    std::uint32_t FlagsAfterOffers(std::uint16_t offers) {
        const auto low = static_cast<unsigned char>(offers & 0xFFU);
        const auto high = static_cast<unsigned char>(offers >> 8U);
        link_.Prepare(FrameOf({.kind = FrameKind::LookupAnswer, .callNumber = 1},
                              Bytes{0x34, 0x12, low, high, 0, 0, 0, 0}));
        EXPECT_EQ((*link_).Lookup("endpoint"), 0x1234);
        const RawSocket peer = link_.Next();
        peer.Read(HelloFrame().size());
        peer.ReadFrame();
        peer.Send(AnswerFrame(2, 1, {}, call_.request.header.operation));
        EXPECT_EQ(call_.On(*link_), kStatusOk);
        return peer.ReadFrame().prelude.flags;
    }

    zam_connector::testing::RecordingLogger logger_;
    PairedLink link_;
    TestCall call_{kClose, kChannel};
    VdFailedTransfer failed_{.riid = kTestRiid, .operation = kClose, .channel = kChannel};
    VdCallBounds bounds_{};
};

TEST_F(FailedTransfer, IsToldToAServiceThatHasOfferedToHearIt) {
    EXPECT_EQ(FlagsAfterOffers(1), 1U);
}

TEST_F(FailedTransfer, IsToldBesideOffersThatTheClientDoesNotKnow) {
    EXPECT_EQ(FlagsAfterOffers(0xFFFF), 1U);
}

/// One of an earlier version refuses every flag.
TEST_F(FailedTransfer, IsNotToldToAServiceThatHasNot) {
    EXPECT_EQ(FlagsAfterOffers(0xFFFE), 0U);
}

TEST_F(FailedTransfer, IsOfOneEndpoint) {
    failed_.riid = kTestRiid + 1;
    EXPECT_EQ(FlagsAfterOffers(1), 0U);
}

TEST_F(FailedTransfer, IsOfTheCloseAlone) {
    failed_.operation = kClose + 1;
    EXPECT_EQ(FlagsAfterOffers(1), 0U);
}

TEST_F(FailedTransfer, IsOfOneChannel) {
    failed_.channel = kChannel + 1;
    EXPECT_EQ(FlagsAfterOffers(1), 0U);
}

TEST_F(FailedTransfer, IsNoneWithoutAnother) {
    bounds_.failedTransfer = nullptr;
    EXPECT_EQ(FlagsAfterOffers(1), 0U);
}

/// Its predecessor on the same socket may have offered what it does not understand.
TEST_F(FailedTransfer, IsToldToWhoeverIsThereNowAndNotToItsPredecessor) {
    for (const std::uint16_t offers : {std::uint16_t{0}, std::uint16_t{1}}) {
        SCOPED_TRACE(offers);
        EXPECT_EQ(FlagsAfterOffers(offers == 0 ? 1 : 0), offers == 0 ? 1U : 0U);
        link_.Prepare(
            FrameOf({.kind = FrameKind::LookupAnswer, .callNumber = 1},
                    Bytes{0xFF, 0xFF, static_cast<unsigned char>(offers), 0, 0, 0, 0, 0}) +
            AnswerFrame(2, 1, {}, call_.request.header.operation));
        EXPECT_EQ(call_.On(*link_), kStatusOk);
        const RawSocket successor = link_.Next();
        successor.Read(HelloFrame().size());
        const Frame lookup = successor.ReadFrame();
        EXPECT_EQ(lookup.prelude.kind, FrameKind::Lookup);
        EXPECT_EQ(ToHex(lookup.fixed), ToHex(BytesOf("?")));
        EXPECT_EQ(successor.ReadFrame().prelude.flags, offers);
    }
}

TEST_F(FailedTransfer, OtherCallsDoNotAskForOffers) {
    bounds_.failedTransfer = nullptr;
    link_.Prepare(AnswerFrame(1, 1, {}, call_.request.header.operation));
    EXPECT_EQ(call_.On(*link_), kStatusOk);
    const RawSocket peer = link_.Next();
    peer.Read(HelloFrame().size());
    EXPECT_EQ(peer.ReadFrame().prelude.kind, FrameKind::Call);
}

}  // namespace
}  // namespace zam_platform::testing
