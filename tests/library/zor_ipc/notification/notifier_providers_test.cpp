#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "data_handler/zam_conn_state_provider.h"
#include "data_handler/zam_data_provider.h"
#include "library/zor_ipc/notification/fake_call.h"
#include "qel/exception.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_transport.h"

namespace zam_connector::proxy {
namespace {

using testing::AnswerWith;
using ::testing::Each;
using ::testing::ElementsAre;
using testing::FailWith;
using ::testing::IsEmpty;
using testing::LogRecord;
using testing::RecordedCall;

using test::kUnspecified;
constexpr std::uint16_t kRiid = 0x0D07;

/// A failure's level and text without its number.
struct Record {
    int level;
    const char* text;
};

struct DataKind {
    using Provider = ZamDataProvider;
    static constexpr char kFile[] = "zam_data_provider";
    static constexpr auto kInit = &qx_zam_connector_ZamDataNotifier_proxy_init;
    static constexpr Record kRegisterTransport{
        4, "ZamDataProvider: ipc call Register terminated with a error "};
    static constexpr Record kRegisterRefused{
        4, "ZamDataProvider: ipc call Register terminated with a notification error "};
    static constexpr Record kWaitTransport{
        3, "ZamDataProvider: ipc call GetChangedDataType terminated with a error "};
    static constexpr Record kWaitRefused{
        4, "ZamDataProvider: ipc call GetChangedDataType terminated with a notification error "};
    static constexpr Record kUnregisterTransport{
        4, "ZamDataProvider: ipc call Unregister terminated with a error "};
};

struct ConnState {
    using Provider = ZamConnStateProvider;
    static constexpr char kFile[] = "zam_conn_state_provider";
    static constexpr auto kInit = &qx_zam_connector_ConnStateNotifier_proxy_init;
    static constexpr Record kRegisterTransport{
        4, "ZamConnStateProvider: ipc call Register terminated with a error "};
    static constexpr Record kRegisterRefused{
        4, "ZamConnStateProvider: ipc call Register terminated with a notification error "};
    static constexpr Record kWaitTransport{
        4, "ZamConnStateProvider: ipc call GetState terminated with a error "};
    static constexpr Record kWaitRefused{
        4, "ZamConnStateProvider: ipc call GetState terminated with a callback error "};
    static constexpr Record kUnregisterTransport{
        4, "ZamConnStateProvider: ipc call Unregister terminated with a error "};
};

static_assert(std::is_base_of_v<IDataProvider<unsigned int>, ZamDataProvider>);
static_assert(std::is_base_of_v<IDataProvider<int>, ZamConnStateProvider>);

template <typename Kind>
class NotifierProviderTest : public ::testing::Test {
protected:
    using Provider = typename Kind::Provider;
    using Value = typename Provider::Value;

    void TearDown() override { EXPECT_THAT(transport_.Faults(), IsEmpty()); }

    static typename Provider::Proxy RecordOf(VdZorTransport* transport) {
        typename Provider::Proxy record{};
        Kind::kInit(&record, transport, kRiid);
        return record;
    }

    void AnswerRegister(std::uint32_t registrationId, std::int8_t error, int status = 0) {
        qx::RegisterResponse response{};
        response.registrationId = registrationId;
        response.error = error;
        transport_.Enqueue(AnswerWith(response, {}, status));
    }

    void AnswerWait(std::uint32_t value, std::uint8_t status, int transportStatus = 0) {
        qx::NoticeResponse response{};
        response.value = value;
        response.status = status;
        transport_.Enqueue(AnswerWith(response, {}, transportStatus));
    }

    /// Registers for real; the log and the value of the id are as they would be later.
    void Register(std::uint32_t registrationId) {
        AnswerRegister(registrationId, 0);
        ASSERT_EQ(provider_.Register(), 0);
    }

    /// The registration that the last call named.
    std::uint32_t LastId() const {
        const auto request = transport_.Calls().back().template As<qx::RegistrationRequest>();
        return request ? request->registrationId : 0xBAD;
    }

    /// Checks that there is one log record since the last call, and forgets it.
    void ExpectLogged(const Record& record, const char* function, int number) {
        const std::vector<LogRecord> records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, record.level);
        EXPECT_EQ(records[0].file, Kind::kFile);
        EXPECT_GT(records[0].line, 0);
        EXPECT_EQ(records[0].function, function);
        EXPECT_EQ(records[0].text, record.text + std::to_string(number));
        logger_.Clear();
    }

    void ExpectMessage(const RecordedCall& call, std::uint16_t operation, std::uint32_t requestSize,
                       std::uint32_t responseSize) {
        EXPECT_EQ(call.transport, transport_.Get());
        EXPECT_EQ(call.requestHeader.riid, kRiid);
        EXPECT_EQ(call.requestHeader.operation, operation);
        EXPECT_EQ(call.requestHeader.fixedSize, requestSize);
        EXPECT_EQ(call.responseHeader.riid, kRiid);
        EXPECT_EQ(call.responseHeader.operation, operation);
        EXPECT_EQ(call.responseHeader.fixedSize, responseSize);
        EXPECT_THAT(call.requestHeader.reserved, Each(0U));
        EXPECT_THAT(call.responseHeader.reserved, Each(0U));
        EXPECT_THAT(call.response, Each(0));
        EXPECT_FALSE(call.hasRequestArena);
        EXPECT_FALSE(call.hasResponseArena);
    }

    testing::RecordingLogger logger_;
    testing::ScriptedTransport transport_;
    Provider provider_{RecordOf(transport_.Get())};
};

using Kinds = ::testing::Types<DataKind, ConnState>;
TYPED_TEST_SUITE(NotifierProviderTest, Kinds);

constexpr int kTransportStatuses[] = {1, -1, 2, INT_MAX, INT_MIN, kUnspecified};

TYPED_TEST(NotifierProviderTest, RefusesARecordThatIsNotUsable) {
    for (const int line : {15, 16, 17}) {
        auto record = this->RecordOf(line == 15 ? nullptr : this->transport_.Get());
        if (line == 16) {
            record.riid = 0xFFFF;
        }
        if (line == 17) {
            record.ops = nullptr;
        }
        try {
            const typename TestFixture::Provider provider(record);
            ADD_FAILURE() << "nothing thrown for line " << line;
        } catch (const qel::InvalidArgumentException& exception) {
            EXPECT_EQ(exception.Code(), 0);
            EXPECT_STREQ(exception.File(), "check_vd_proxy");
            EXPECT_EQ(exception.Line(), line);
        }
    }
}

TYPED_TEST(NotifierProviderTest, CopiesTheRecord) {
    auto record = this->RecordOf(this->transport_.Get());
    typename TestFixture::Provider provider(record);
    record = {};
    this->AnswerRegister(1, 0);
    EXPECT_EQ(provider.Register(), 0);
}

TYPED_TEST(NotifierProviderTest, SendsNothingWhenItIsMadeAndDestroyed) {
    { typename TestFixture::Provider provider(this->RecordOf(this->transport_.Get())); }
    EXPECT_THAT(this->transport_.Calls(), IsEmpty());
}

TYPED_TEST(NotifierProviderTest, SendsTheMessagesOfItsOperations) {
    this->Register(0x04030201);
    this->AnswerWait(7, 0);
    typename TestFixture::Value value{};
    EXPECT_EQ(this->provider_.GetData(value), 0);
    this->transport_.Enqueue({});
    EXPECT_EQ(this->provider_.Unregister(), 0);
    const std::vector<RecordedCall> calls = this->transport_.Calls();
    ASSERT_EQ(calls.size(), 3U);
    this->ExpectMessage(calls[0], 0, 24, 40);
    EXPECT_THAT(calls[0].request, IsEmpty());
    this->ExpectMessage(calls[1], 1, 32, 32);
    EXPECT_THAT(calls[1].request, ElementsAre(1, 2, 3, 4, 0, 0, 0, 0));
    this->ExpectMessage(calls[2], 2, 32, 32);
    EXPECT_THAT(calls[2].request, ElementsAre(1, 2, 3, 4, 0, 0, 0, 0));
    EXPECT_THAT(this->logger_.Records(), IsEmpty());
}

/// A service that answers no registration has stopped working; a wait is answered when there is
/// something to tell.
TYPED_TEST(NotifierProviderTest, HasABoundForTheRegistrationAlone) {
    std::vector<std::int64_t> deadlines;
    this->transport_.SetResponder([&](const RecordedCall& /*call*/) {
        const VdCallBounds* const bounds = test::FakeCall::Bounds();
        deadlines.push_back(bounds == nullptr ? 0 : bounds->deadlineNs);
        return std::optional(testing::ScriptedAnswer{});
    });
    EXPECT_EQ(this->provider_.Register(), 0);
    typename TestFixture::Value value{};
    EXPECT_EQ(this->provider_.GetData(value), 0);
    EXPECT_EQ(this->provider_.Unregister(), 0);
    ASSERT_EQ(deadlines.size(), 3U);
    EXPECT_GT(deadlines[0], 0);
    EXPECT_EQ(deadlines[1], 0);
    EXPECT_EQ(deadlines[2], 0) << "a farewell has its own time";
}

TYPED_TEST(NotifierProviderTest, NamesRegistrationZeroBeforeTheFirst) {
    this->transport_.Enqueue({});
    EXPECT_EQ(this->provider_.Unregister(), 0);
    EXPECT_EQ(this->LastId(), 0U);
    this->AnswerWait(1, 0);
    typename TestFixture::Value value{};
    EXPECT_EQ(this->provider_.GetData(value), 0);
    EXPECT_EQ(this->LastId(), 0U);
}

TYPED_TEST(NotifierProviderTest, NamesTheLatestRegistrationAlsoAfterItsEnd) {
    this->Register(5);
    this->Register(0xFFFFFFFF);
    this->transport_.SetDefault({});
    EXPECT_EQ(this->provider_.Unregister(), 0);
    EXPECT_EQ(this->LastId(), 0xFFFFFFFFU);
    EXPECT_EQ(this->provider_.Unregister(), 0);
    EXPECT_EQ(this->LastId(), 0xFFFFFFFFU);
}

TYPED_TEST(NotifierProviderTest, KeepsTheRegistrationWhenAnotherFails) {
    this->Register(5);
    for (const int status : kTransportStatuses) {
        SCOPED_TRACE(status);
        this->AnswerRegister(6, 0, status);
        EXPECT_EQ(this->provider_.Register(), kUnspecified);
        this->ExpectLogged(TypeParam::kRegisterTransport, "Register", status);
    }
    for (const int error : {1, 2, 127, -1, -128}) {
        SCOPED_TRACE(error);
        this->AnswerRegister(7, static_cast<std::int8_t>(error));
        EXPECT_EQ(this->provider_.Register(), kUnspecified);
        this->ExpectLogged(TypeParam::kRegisterRefused, "Register", error);
    }
    this->transport_.Enqueue({});
    EXPECT_EQ(this->provider_.Unregister(), 0);
    EXPECT_EQ(this->LastId(), 5U);
}

TYPED_TEST(NotifierProviderTest, LooksAtTheTransportFirstWhenItRegisters) {
    this->AnswerRegister(6, -3, 9);
    EXPECT_EQ(this->provider_.Register(), kUnspecified);
    this->ExpectLogged(TypeParam::kRegisterTransport, "Register", 9);
}

TYPED_TEST(NotifierProviderTest, GivesTheNoticeAndItsStatus) {
    for (const int status : {0, 1}) {
        for (const std::uint32_t told : {0U, 7U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
            this->AnswerWait(told, static_cast<std::uint8_t>(status));
            typename TestFixture::Value value = 99;
            EXPECT_EQ(this->provider_.GetData(value), status);
            EXPECT_EQ(value, static_cast<typename TestFixture::Value>(told));
        }
    }
    EXPECT_THAT(this->logger_.Records(), IsEmpty());
}

TYPED_TEST(NotifierProviderTest, LogsARefusedNoticeWithItsSignedStatus) {
    for (const int status : {2, 3, 0x7F, 0x80, 0xFE, 0xFF}) {
        SCOPED_TRACE(status);
        this->AnswerWait(5, static_cast<std::uint8_t>(status));
        typename TestFixture::Value value = 99;
        EXPECT_EQ(this->provider_.GetData(value), kUnspecified);
        EXPECT_EQ(value, typename TestFixture::Value{99});
        this->ExpectLogged(TypeParam::kWaitRefused, "GetData",
                           status < 0x80 ? status : status - 0x100);
    }
}

TYPED_TEST(NotifierProviderTest, LogsANoticeThatTheTransportDidNotBring) {
    for (const int status : kTransportStatuses) {
        SCOPED_TRACE(status);
        this->AnswerWait(5, 0xFF, status);
        typename TestFixture::Value value = 99;
        EXPECT_EQ(this->provider_.GetData(value), kUnspecified);
        EXPECT_EQ(value, typename TestFixture::Value{99});
        this->ExpectLogged(TypeParam::kWaitTransport, "GetData", status);
    }
}

TYPED_TEST(NotifierProviderTest, LogsAnUnregistrationThatFailed) {
    for (const int status : kTransportStatuses) {
        SCOPED_TRACE(status);
        this->transport_.Enqueue(FailWith(status));
        EXPECT_EQ(this->provider_.Unregister(), kUnspecified);
        this->ExpectLogged(TypeParam::kUnregisterTransport, "Unregister", status);
    }
}

TYPED_TEST(NotifierProviderTest, ReadsNothingOfTheAnswerToAnUnregistration) {
    testing::ScriptedAnswer answer;
    answer.response.assign(8, 0xFF);
    this->transport_.Enqueue(answer);
    EXPECT_EQ(this->provider_.Unregister(), 0);
    EXPECT_THAT(this->logger_.Records(), IsEmpty());
}

}  // namespace
}  // namespace zam_connector::proxy
