#include "common/check_vd_proxy.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <typeinfo>

#include "library/zor_ipc/call_frame/proxy_fixture.h"
#include "qx/conn_state_notifier.h"
#include "qx/zam_data_notifier.h"
#include "zam_conn_command_sender_proxy.h"
#include "zam_conn_controller_proxy.h"
#include "zam_conn_settings_holder_proxy.h"

namespace zam_connector {
namespace {

/// What a check threw.
struct Failure {
    bool thrown = false;
    int code = -1;
    std::string file;
    int line = 0;
    std::u16string text;
};

Failure FailureOf(const std::function<void()>& check) {
    try {
        check();
    } catch (const qel::InvalidArgumentException& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::InvalidArgumentException));
        return {true, exception.Code(), exception.File(), exception.Line(), exception.Text()};
    }
    return {};
}

/// Which checks of a record fail. The expected line is that of the first failing one.
struct Row {
    bool transport;
    bool riid;
    bool operations;
    int firstFailing;  ///< index into a class's three lines; -1 for none
};

constexpr Row kRows[] = {
    {false, false, false, -1}, {true, false, false, 0}, {false, true, false, 1},
    {false, false, true, 2},   {true, true, false, 0},  {true, false, true, 0},
    {false, true, true, 1},    {true, true, true, 0},
};

/// Runs `check` on a record for every combination of failures.
template <typename Record, typename Check>
void ExpectChecks(Record good, const char* file, const int (&lines)[3], Check&& check) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(::testing::Message() << "transport " << row.transport << ", riid " << row.riid
                                          << ", operations " << row.operations);
        Record record = good;
        if (row.transport) {
            record.transport = nullptr;
        }
        if (row.riid) {
            record.riid = 0xFFFF;
        }
        if (row.operations) {
            record.ops = nullptr;
        }
        const Failure failure = FailureOf([&] { check(record); });
        ASSERT_EQ(failure.thrown, row.firstFailing >= 0);
        if (failure.thrown) {
            EXPECT_EQ(failure.code, 0);
            EXPECT_EQ(failure.file, file);
            EXPECT_EQ(failure.line, lines[row.firstFailing]);
            EXPECT_EQ(failure.text, u"No error = 0x00000000");
        }
    }
}

/// The lines that a class records for its three checks. They are its own; what counts is that they
/// are lines and tell the checks apart.
template <typename Record, typename Check>
void ExpectChecksOfItsOwn(Record good, const char* file, Check&& check) {
    Record record = good;
    record.transport = nullptr;
    const int transportLine = FailureOf([&] { check(record); }).line;
    record = good;
    record.riid = 0xFFFF;
    const int riidLine = FailureOf([&] { check(record); }).line;
    record = good;
    record.ops = nullptr;
    const int operationsLine = FailureOf([&] { check(record); }).line;
    EXPECT_GT(transportLine, 0);
    EXPECT_LT(transportLine, riidLine);
    EXPECT_LT(riidLine, operationsLine);
    ExpectChecks(good, file, {transportLine, riidLine, operationsLine}, check);
}

class CheckVdProxy : public ::testing::Test {
protected:
    testing::ScriptedTransport transport_;
};

TEST_F(CheckVdProxy, ThrowsTheFirstFailingCheckWithItsLine) {
    qx_zam_connector_ConnStateNotifier_proxy record{};
    qx_zam_connector_ConnStateNotifier_proxy_init(&record, transport_.Get(), 4);
    ExpectChecks(record, "check_vd_proxy", {15, 16, 17},
                 [](const auto& proxy) { common::CheckVdProxy(proxy); });
}

TEST_F(CheckVdProxy, TakesTheRecordsOfEveryInterface) {
    qx_zam_connector_ZamDataNotifier_proxy record{};
    qx_zam_connector_ZamDataNotifier_proxy_init(&record, transport_.Get(), 5);
    ExpectChecks(record, "check_vd_proxy", {15, 16, 17},
                 [](const auto& proxy) { common::CheckVdProxy(proxy); });
}

TEST_F(CheckVdProxy, TakesEveryOtherInterfaceId) {
    for (const std::uint16_t riid :
         {std::uint16_t{0}, std::uint16_t{0x7FFF}, std::uint16_t{0x8000}, std::uint16_t{0xFFFE}}) {
        qx_zam_connector_ConnStateNotifier_proxy record{};
        qx_zam_connector_ConnStateNotifier_proxy_init(&record, transport_.Get(), riid);
        EXPECT_NO_THROW(common::CheckVdProxy(record)) << riid;
    }
}

TEST_F(CheckVdProxy, DoesNotLookIntoTheTransport) {
    VdZorTransport withoutOps{};
    qx_zam_connector_ConnStateNotifier_proxy record{};
    qx_zam_connector_ConnStateNotifier_proxy_init(&record, &withoutOps, 4);
    EXPECT_NO_THROW(common::CheckVdProxy(record));
}

TEST_F(CheckVdProxy, IsMadeByTheControllersConstructorWithItsOwnPlace) {
    ExpectChecksOfItsOwn(test::ControllerRecord(transport_.Get()), "zam_conn_controller_proxy",
                         [](const auto& record) { proxy::ZamConnControllerProxy made(record); });
}

TEST_F(CheckVdProxy, IsMadeByTheSettingsHoldersConstructorWithItsOwnPlace) {
    ExpectChecksOfItsOwn(
        test::SettingsHolderRecord(transport_.Get()), "zam_conn_settings_holder_proxy",
        [](const auto& record) { proxy::ZamConnSettingsHolderProxy made(record); });
}

TEST_F(CheckVdProxy, IsMadeByTheCommandSendersConstructorWithItsOwnPlace) {
    ExpectChecksOfItsOwn(test::CommandSenderRecord(transport_.Get()),
                         "zam_conn_command_sender_proxy",
                         [](const auto& record) { proxy::ZamConnCommandSenderProxy made(record); });
}

}  // namespace
}  // namespace zam_connector
