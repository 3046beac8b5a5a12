#include "zam_connector_testing/recording_logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "zor/logger.h"

namespace zam_connector::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zor::logger::DefaultLoggerImpl;
using zor::logger::ZORLogger;

TEST(RecordingLogger, IsTheRootLoggerWhileItLives) {
    ZORLogger* const before = &ZORLogger::RootLogger();
    {
        RecordingLogger outer;
        EXPECT_EQ(&ZORLogger::RootLogger(), &outer);
        {
            const RecordingLogger inner;
            EXPECT_EQ(&ZORLogger::RootLogger(), &inner);
        }
        EXPECT_EQ(&ZORLogger::RootLogger(), &outer);
    }
    EXPECT_EQ(&ZORLogger::RootLogger(), before);
}

TEST(RecordingLogger, KeepsCopiesOfItsRecordsInOrder) {
    RecordingLogger logger;
    std::string text = "first";
    logger.LogImpl(4, "file", 12, "Function", text);
    text = "second";
    logger.LogImpl(3, "other", 0, "", text);
    EXPECT_THAT(logger.Records(), ElementsAre(LogRecord{4, "file", 12, "Function", "first"},
                                              LogRecord{3, "other", 0, "", "second"}));
}

TEST(RecordingLogger, EnablesLevelsFromItsThresholdUpwardsAndCounts) {
    RecordingLogger logger(4);
    EXPECT_FALSE(logger.IsEnabled(3));
    EXPECT_TRUE(logger.IsEnabled(4));
    EXPECT_TRUE(logger.IsEnabled(5));
    logger.SetThreshold(3);
    EXPECT_TRUE(logger.IsEnabled(3));
    EXPECT_EQ(logger.IsEnabledCalls(), 4);
    EXPECT_TRUE(RecordingLogger().IsEnabled(zor::logger::kLevelTrace));
}

TEST(RecordingLogger, ForgetsRecordsAndCountWhenCleared) {
    RecordingLogger logger(4);
    logger.IsEnabled(4);
    logger.LogImpl(4, "file", 1, "Function", "text");
    logger.Clear();
    EXPECT_THAT(logger.Records(), IsEmpty());
    EXPECT_EQ(logger.IsEnabledCalls(), 0);
    EXPECT_FALSE(logger.IsEnabled(3)) << "the threshold was lost";
}

TEST(RecordingLogger, ThrowsWhereItIsToldTo) {
    RecordingLogger logger;
    logger.SetFault(LoggerFault::IsEnabledThrows);
    EXPECT_THROW(logger.IsEnabled(4), std::runtime_error);
    EXPECT_NO_THROW(logger.LogImpl(4, "file", 1, "Function", "kept"));
    logger.SetFault(LoggerFault::LogImplThrows);
    EXPECT_NO_THROW(logger.IsEnabled(4));
    EXPECT_THROW(logger.LogImpl(4, "file", 1, "Function", "lost"), std::runtime_error);
    logger.SetFault(LoggerFault::None);
    EXPECT_NO_THROW(logger.IsEnabled(4));
    EXPECT_EQ(logger.IsEnabledCalls(), 3);
    EXPECT_EQ(logger.Records().size(), 1U);
}

TEST(RecordingLogger, TakesRecordsOfManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 500;
    RecordingLogger logger;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int record = 0; record < kRecords; ++record) {
                ZORLogger& root = ZORLogger::RootLogger();
                if (root.IsEnabled(4)) {
                    root.LogImpl(4, "file", record, "Function", std::to_string(thread));
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(logger.IsEnabledCalls(), kThreads * kRecords);
    std::vector<int> next(kThreads, 0);
    for (const LogRecord& record : logger.Records()) {
        EXPECT_EQ(record.line, next[std::stoul(record.text)]++);
    }
    EXPECT_THAT(next, ::testing::Each(kRecords));
}

TEST(LogRecord, IsEqualInAllMembersAndPrintsThem) {
    const LogRecord record{4, "file", 12, "Function", "text"};
    EXPECT_EQ(record, (LogRecord{4, "file", 12, "Function", "text"}));
    EXPECT_NE(record, (LogRecord{3, "file", 12, "Function", "text"}));
    EXPECT_NE(record, (LogRecord{4, "fila", 12, "Function", "text"}));
    EXPECT_NE(record, (LogRecord{4, "file", 13, "Function", "text"}));
    EXPECT_NE(record, (LogRecord{4, "file", 12, "Functiom", "text"}));
    EXPECT_NE(record, (LogRecord{4, "file", 12, "Function", "test"}));
    std::ostringstream printed;
    printed << record;
    EXPECT_EQ(printed.str(), "4 file:12 Function: text");
}

}  // namespace
}  // namespace zam_connector::testing
