#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "ipc_transfer_call.h"
#include "qx/zam_data_provider.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_transport.h"

namespace zam_connector::proxy {
namespace {

using testing::AnswerWith;
using testing::Bytes;
using ::testing::Each;
using ::testing::ElementsAre;
using testing::FailWith;
using ::testing::IsEmpty;
using testing::LogRecord;

using Request = qx_zam_connector_ZamDataProvider_GetData_req;
using Response = qx_zam_connector_ZamDataProvider_GetData_rsp;
using Texts = std::vector<std::string>;

constexpr std::uint32_t kPieceArenaBytes = 64;

class StreamingCall : public ::testing::Test {
protected:
    StreamingCall() {
        qx_zam_connector_ZamDataProvider_proxy_init(&provider_, transport_.Get(), 9);
        request_.channel = 0x0102030405060708;
    }

    void TearDown() override { EXPECT_THAT(transport_.Faults(), IsEmpty()); }

    /// Appends an answer whose piece is the one text `text`.
    void Answer(std::int8_t sessionStatus, const std::string& text, int status = 0) {
        Response response{};
        response.params.records = {0, static_cast<std::uint32_t>(text.size())};
        response.sessionStatus = sessionStatus;
        transport_.Enqueue(AnswerWith(response, text, status));
    }

    template <typename Convert, typename Container>
    void Read(Convert&& convert, Container& output) {
        IpcTransferCall("GetData", provider_.ops->GetData, provider_, request_, arena_.Get(),
                        std::forward<Convert>(convert), output);
    }

    /// Reads pieces of one text each.
    void Read(Texts& output) {
        Read(
            [this](const Response& response, const vd_arena& arena) {
                ++converted_;
                return Texts{std::string(
                    common::ArenaReader(&arena).Text(response.params.records, "piece"))};
            },
            output);
    }

    /// Reads, expects a failure and gives its code.
    int FailedRead(Texts& output) {
        try {
            Read(output);
        } catch (const qel::ResultCodeException& exception) {
            EXPECT_EQ(typeid(exception), typeid(qel::ResultCodeException));
            // With an empty text of its own it shows that of its code.
            EXPECT_EQ(exception.Text(), qel::ResultCodeText(exception.Code()));
            return exception.Code();
        }
        ADD_FAILURE() << "nothing was thrown";
        return 0;
    }

    testing::RecordingLogger logger_;
    testing::ScriptedTransport transport_;
    qx_zam_connector_ZamDataProvider_proxy provider_{};
    Request request_{};
    common::StackArena<kPieceArenaBytes> arena_;
    int converted_ = 0;
};

TEST_F(StreamingCall, AppendsPiecesUntilTheLastAnswerWhichItDoesNotConvert) {
    Answer(0, "first");
    Answer(0, "second");
    Answer(1, "not a piece");
    Texts output{"what was there before"};
    Read(output);
    EXPECT_THAT(output, ElementsAre("first", "second"));
    EXPECT_EQ(converted_, 2);
    EXPECT_EQ(transport_.Calls().size(), 3U);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(StreamingCall, GivesAnEmptyResultForAnEmptyStream) {
    Answer(1, "");
    Texts output{"what was there before"};
    Read(output);
    EXPECT_THAT(output, IsEmpty());
    EXPECT_EQ(converted_, 0);
}

TEST_F(StreamingCall, HasNoLimitOnThePieces) {
    constexpr int kPieces = 3000;
    int sent = 0;
    transport_.SetResponder([&](const auto&) -> std::optional<testing::ScriptedAnswer> {
        Response response{};
        response.sessionStatus = sent++ < kPieces ? 0 : 1;
        return AnswerWith(response);
    });
    Texts output;
    Read(output);
    EXPECT_EQ(output.size(), std::size_t{kPieces});
}

TEST_F(StreamingCall, AppendsPiecesOfManyElementsAndOfNone) {
    Answer(0, "abc");
    Answer(0, "");
    Answer(0, "de");
    Answer(1, "");
    std::vector<char> output;
    Read(
        [](const Response& response, const vd_arena& arena) {
            const auto text = common::ArenaReader(&arena).Text(response.params.records, "piece");
            return std::vector<char>(text.begin(), text.end());
        },
        output);
    EXPECT_THAT(output, ElementsAre('a', 'b', 'c', 'd', 'e'));
}

TEST_F(StreamingCall, MovesThePieces) {
    Answer(0, "");
    Answer(1, "");
    std::vector<std::unique_ptr<int>> output;
    Read(
        [](const Response&, const vd_arena&) {
            std::vector<std::unique_ptr<int>> piece;
            piece.push_back(std::make_unique<int>(5));
            return piece;
        },
        output);
    ASSERT_EQ(output.size(), 1U);
    EXPECT_EQ(*output[0], 5);
}

TEST_F(StreamingCall, SendsTheSameRequestWithAnEmptyZeroArenaEveryTime) {
    // The arena comes used, and every answer uses it.
    std::memset(vd_arena_alloc(arena_.Get(), 40, 1), 0xA5, 40);
    Answer(0, std::string(kPieceArenaBytes, 'x'));
    Answer(0, "y");
    Answer(1, "z");
    Texts output;
    Read(output);
    const auto calls = transport_.Calls();
    ASSERT_EQ(calls.size(), 3U);
    for (const auto& call : calls) {
        EXPECT_EQ(call.requestHeader.operation, 2U);
        EXPECT_EQ(call.request, (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
        EXPECT_FALSE(call.hasRequestArena);
        EXPECT_TRUE(call.hasResponseArena);
        EXPECT_EQ(call.responseArenaCapacity, kPieceArenaBytes);
        EXPECT_EQ(call.responseArenaUsed, 0U);
        EXPECT_TRUE(call.responseArenaIsZero);
        EXPECT_THAT(call.response, Each(0)) << "the response is not zero-filled";
    }
}

TEST_F(StreamingCall, ThrowsTheCodeOfAFailedSessionWithoutARecord) {
    for (int status = INT8_MIN; status <= INT8_MAX; ++status) {
        if (status == 0 || status == 1) {
            continue;
        }
        Answer(0, "first");
        Answer(static_cast<std::int8_t>(status), "second");
        Texts output{"kept"};
        EXPECT_EQ(FailedRead(output), SessionStatusToResultCode(static_cast<std::int8_t>(status)));
        EXPECT_THAT(output, ElementsAre("kept"));
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
    EXPECT_EQ(logger_.IsEnabledCalls(), 0);
}

TEST_F(StreamingCall, ThrowsAndLogsATransportFailure) {
    for (const int status : {1, -1, INT_MAX, INT_MIN}) {
        logger_.Clear();
        Answer(0, "first");
        Answer(1, "a last answer that is not to be believed", status);
        Texts output{"kept"};
        EXPECT_EQ(static_cast<unsigned>(FailedRead(output)), 0x8000004BU);
        EXPECT_THAT(output, ElementsAre("kept"));
        EXPECT_THAT(logger_.Records(),
                    ElementsAre(LogRecord{
                        4, "ipc_transfer_call", 106, "IpcTransferCall",
                        "Ipc call GetData terminated with a error " + std::to_string(status)}));
    }
}

TEST_F(StreamingCall, ThrowsTheSameCodeWithTheLevelOff) {
    logger_.SetThreshold(5);
    transport_.Enqueue(FailWith(3));
    Texts output;
    EXPECT_EQ(static_cast<unsigned>(FailedRead(output)), 0x8000004BU);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(StreamingCall, EndsWithTheFirstFailure) {
    Answer(-1, "");
    Answer(1, "");
    Texts output;
    FailedRead(output);
    EXPECT_EQ(transport_.Calls().size(), 1U);
    Read(output);
}

TEST_F(StreamingCall, LetsWhatTheConversionThrowsThrough) {
    Answer(0, "first");
    Answer(0, "second");
    int pieces = 0;
    Texts output{"kept"};
    EXPECT_THROW(Read(
                     [&](const Response&, const vd_arena&) -> Texts {
                         if (++pieces == 2) {
                             throw std::out_of_range("a bad piece");
                         }
                         return {"piece"};
                     },
                     output),
                 std::out_of_range);
    EXPECT_THAT(output, ElementsAre("kept"));
    EXPECT_EQ(transport_.Calls().size(), 2U);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(StreamingCall, LetsTheReaderRefuseAStretchBeyondTheAnswersArena) {
    Response response{};
    response.params.records = {0, 4};
    transport_.Enqueue(AnswerWith(response, "abc"));
    Texts output{"kept"};
    EXPECT_THROW(Read(output), std::out_of_range);
    EXPECT_THAT(output, ElementsAre("kept"));
}

}  // namespace
}  // namespace zam_connector::proxy
