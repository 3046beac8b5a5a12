#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>

#include "common/log.h"
#include "library/zor_ipc/call_frame/proxy_fixture.h"
#include "log_test_types.h"
#include "zam_conn_controller_proxy.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector {
namespace {

using test::ThrowingArgument;
using ::testing::KilledBySignal;
using testing::LoggerFault;
using testing::RecordingLogger;

constexpr common::LogSite kSiteOfDeath{"file", 1, "Function"};

// What the runtime prints of the exception that ends the process.
constexpr char kByIsEnabled[] = "IsEnabled was told to throw";
constexpr char kByLogImpl[] = "LogImpl was told to throw";
constexpr char kByFormatter[] = "formatter of the test";

class LoggingDeathTest : public ::testing::Test {
protected:
    LoggingDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    RecordingLogger logger_;
};

void LogWithThrowingArgument() {
    common::Log(4, kSiteOfDeath, "{}", ThrowingArgument{});
}

void FailCaught() {
    try {
        throw std::runtime_error("caught before");
    } catch (...) {
        common::CaughtFailure(kSiteOfDeath, "{}");
    }
}

TEST_F(LoggingDeathTest, AThrowingLevelCheckEndsTheProcess) {
    logger_.SetFault(LoggerFault::IsEnabledThrows);
    EXPECT_EXIT(common::Log(4, kSiteOfDeath, "x"), KilledBySignal(SIGABRT), kByIsEnabled);
    EXPECT_EXIT(common::Failure(kSiteOfDeath, "x"), KilledBySignal(SIGABRT), kByIsEnabled);
    EXPECT_EXIT(FailCaught(), KilledBySignal(SIGABRT), kByIsEnabled);
}

TEST_F(LoggingDeathTest, AThrowingWriteEndsTheProcess) {
    logger_.SetFault(LoggerFault::LogImplThrows);
    EXPECT_EXIT(common::Log(4, kSiteOfDeath, "x"), KilledBySignal(SIGABRT), kByLogImpl);
    EXPECT_EXIT(common::Failure(kSiteOfDeath, "x"), KilledBySignal(SIGABRT), kByLogImpl);
    EXPECT_EXIT(FailCaught(), KilledBySignal(SIGABRT), kByLogImpl);
}

TEST_F(LoggingDeathTest, AThrowingFormatterEndsTheProcess) {
    EXPECT_EXIT(LogWithThrowingArgument(), KilledBySignal(SIGABRT), kByFormatter);
    EXPECT_EXIT(common::Failure(kSiteOfDeath, "{}", ThrowingArgument{}), KilledBySignal(SIGABRT),
                kByFormatter);
}

TEST_F(LoggingDeathTest, AThrowingFormatterIsNotReachedWhenTheLevelIsOff) {
    logger_.SetThreshold(5);
    LogWithThrowingArgument();
    EXPECT_TRUE(logger_.Records().empty());
}

TEST_F(LoggingDeathTest, AThrowingWriteIsNotReachedWhenTheLevelIsOff) {
    logger_.SetThreshold(5);
    logger_.SetFault(LoggerFault::LogImplThrows);
    EXPECT_EQ(common::Failure(kSiteOfDeath, "x"), test::kUnspecified);
}

TEST_F(LoggingDeathTest, AThrowingLoggerEndsTheProcessOutOfAProxyMethod) {
    testing::ScriptedTransport transport;
    transport.SetDefault(testing::FailWith(1));
    proxy::ZamConnControllerProxy controller(test::ControllerRecord(transport.Get()));
    logger_.SetFault(LoggerFault::LogImplThrows);
    EXPECT_EXIT(controller.Stop(), KilledBySignal(SIGABRT), kByLogImpl);
    logger_.SetFault(LoggerFault::IsEnabledThrows);
    EXPECT_EXIT(controller.Stop(), KilledBySignal(SIGABRT), kByIsEnabled);
}

}  // namespace
}  // namespace zam_connector
