#include "record_keeper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

namespace zamctl::test {
namespace {

using zor::logger::DefaultLoggerImpl;
using zor::logger::kLevelDebug;
using zor::logger::kLevelError;
using zor::logger::kLevelInformation;
using zor::logger::kLevelTrace;
using zor::logger::kLevelWarning;
using zor::logger::ZORLogger;

TEST(RecordKeeper, IsTheRootLoggerWhileItLives) {
    std::ostringstream err;
    {
        RecordKeeper records(err, kLevelError);
        EXPECT_EQ(&ZORLogger::RootLogger(), &records);
    }
    EXPECT_EQ(&ZORLogger::RootLogger(), &DefaultLoggerImpl::Instance());
}

TEST(RecordKeeper, AlwaysTakesWarningsAndErrors) {
    std::ostringstream err;
    for (const int threshold : {kLevelWarning, kLevelError, 100}) {
        const RecordKeeper records(err, threshold);
        EXPECT_TRUE(records.IsEnabled(kLevelError));
        EXPECT_TRUE(records.IsEnabled(kLevelWarning));
        EXPECT_FALSE(records.IsEnabled(kLevelInformation));
    }
    const RecordKeeper records(err, kLevelDebug);
    EXPECT_TRUE(records.IsEnabled(kLevelDebug));
    EXPECT_FALSE(records.IsEnabled(kLevelTrace));
}

TEST(RecordKeeper, GivesTheOldestWarningOrErrorAsTheCause) {
    std::ostringstream err;
    RecordKeeper records(err, kLevelTrace);
    EXPECT_EQ(records.Cause(), "");
    records.LogImpl(kLevelDebug, "file", 1, "Function", "chatter");
    EXPECT_EQ(records.Cause(), "");
    records.LogImpl(kLevelWarning, "file", 2, "Function", "the root");
    records.LogImpl(kLevelError, "file", 3, "Function", "what came of it");
    EXPECT_EQ(records.Cause(), "the root");
    records.Clear();
    EXPECT_EQ(records.Cause(), "");
    EXPECT_EQ(err.str(), "");
}

TEST(RecordKeeper, KeepsNoMoreThanTheLastRecords) {
    std::ostringstream err;
    RecordKeeper records(err, kLevelError);
    for (std::size_t number = 0; number <= RecordKeeper::kMaxRecords; ++number) {
        records.LogImpl(kLevelError, "file", 1, "Function", std::to_string(number));
    }
    EXPECT_EQ(records.Cause(), "1");
}

TEST(RecordKeeper, PrintsRecordsAsTheyComeWhenVerbose) {
    std::ostringstream err;
    RecordKeeper records(err, kLevelTrace);
    records.SetVerbose(true);
    for (const int level :
         {kLevelTrace, kLevelDebug, kLevelInformation, kLevelWarning, kLevelError}) {
        records.LogImpl(level, "file", 7, "Function", "text");
    }
    EXPECT_EQ(err.str(),
              "[trace] file:7 Function: text\n"
              "[debug] file:7 Function: text\n"
              "[information] file:7 Function: text\n"
              "[warning] file:7 Function: text\n"
              "[error] file:7 Function: text\n");
}

TEST(RecordKeeper, LetsNoRecordLookLikeSeveral) {
    std::ostringstream err;
    RecordKeeper records(err, kLevelError);
    records.SetVerbose(true);
    records.LogImpl(kLevelError, "file", 7, "Function", "text\n[error] file:8 Other: forged\tone");
    EXPECT_EQ(err.str(),
              "[error] file:7 Function: text\\x0a[error] file:8 Other: forged\\x09one\n");
}

TEST(RecordKeeper, TakesRecordsFromManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRecords = 500;
    std::ostringstream err;
    RecordKeeper records(err, kLevelError);
    records.SetVerbose(true);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&records] {
            for (int record = 0; record < kRecords; ++record) {
                records.LogImpl(kLevelError, "file", 1, "Function", "text");
                records.Cause();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string line = "[error] file:1 Function: text\n";
    EXPECT_EQ(err.str().size(), line.size() * kThreads * kRecords);
}

}  // namespace
}  // namespace zamctl::test
