#include "common/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "log_test_types.h"
#include "qel/exception.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector {
namespace {

using common::CaughtFailure;
using common::Failure;
using common::Here;
using common::Log;
using common::LogSite;
using test::CountedArgument;
using test::CountedException;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;
using testing::RecordingLogger;

constexpr LogSite kSite{"some_file", 64, "SomeFunction"};
constexpr int kUnspecified = qel::FromBits(0x8000004B);
constexpr int kOff = 5;  ///< threshold above every level that the library uses

TEST(Log, WritesLevelFileLineFunctionAndText) {
    RecordingLogger logger;
    Log(3, kSite, "{} and {}", "one", 2);
    Log(4, {"other_file", 7, "Other"}, "plain");
    EXPECT_THAT(logger.Records(),
                ElementsAre(LogRecord{3, "some_file", 64, "SomeFunction", "one and 2"},
                            LogRecord{4, "other_file", 7, "Other", "plain"}));
}

TEST(Log, AsksForTheLevelOnceAndOnlyForThat) {
    RecordingLogger logger(4);
    Log(3, kSite, "off");
    EXPECT_EQ(logger.IsEnabledCalls(), 1);
    EXPECT_THAT(logger.Records(), IsEmpty());
    Log(4, kSite, "on");
    EXPECT_EQ(logger.IsEnabledCalls(), 2);
    EXPECT_EQ(logger.Records().size(), 1U);
}

TEST(Log, FormatsNothingWhenTheLevelIsOff) {
    std::atomic<int> formatted{0};
    RecordingLogger logger(kOff);
    Log(4, kSite, "{}", CountedArgument{&formatted});
    EXPECT_EQ(formatted, 0);
    logger.SetThreshold(4);
    Log(4, kSite, "{}", CountedArgument{&formatted});
    EXPECT_EQ(formatted, 1);
}

TEST(Log, DoesNotTakeBracesInArgumentsForPlaceholders) {
    RecordingLogger logger;
    Log(4, kSite, "{}", std::string("{} {0:x} }{"));
    ASSERT_EQ(logger.Records().size(), 1U);
    EXPECT_EQ(logger.Records()[0].text, "{} {0:x} }{");
}

TEST(Log, TakesTextsOfAnyLength) {
    RecordingLogger logger;
    const std::string longText(100000, 'x');
    Log(4, kSite, "[{}]", longText);
    Log(4, kSite, "{}", "");
    ASSERT_EQ(logger.Records().size(), 2U);
    EXPECT_EQ(logger.Records()[0].text, "[" + longText + "]");
    EXPECT_EQ(logger.Records()[1].text, "");
}

TEST(LogHere, IsTheCallersLine) {
    const LogSite site = Here("file", "Function");
    EXPECT_EQ(site.line, __LINE__ - 1);
    EXPECT_STREQ(site.file, "file");
    EXPECT_STREQ(site.function, "Function");
}

TEST(Failure, LogsAtLevelFourAndGivesTheUniformCode) {
    RecordingLogger logger;
    EXPECT_EQ(Failure(kSite, "status {}", -7), kUnspecified);
    EXPECT_THAT(logger.Records(),
                ElementsAre(LogRecord{4, "some_file", 64, "SomeFunction", "status -7"}));
}

TEST(Failure, GivesTheSameCodeAndFormatsNothingWhenTheLevelIsOff) {
    std::atomic<int> formatted{0};
    RecordingLogger logger(kOff);
    EXPECT_EQ(Failure(kSite, "{}", CountedArgument{&formatted}), kUnspecified);
    EXPECT_EQ(formatted, 0);
    EXPECT_EQ(logger.IsEnabledCalls(), 1);
    EXPECT_THAT(logger.Records(), IsEmpty());
}

TEST(CaughtFailure, LogsTheTextOfTheExceptionInFlight) {
    RecordingLogger logger;
    try {
        throw std::length_error("too {} long");
    } catch (...) {
        // The code of the exception itself would be another one.
        EXPECT_EQ(CaughtFailure(kSite, "Prefix: {}"), kUnspecified);
    }
    try {
        throw qel::InvalidArgumentException().At("thrower", 15);
    } catch (...) {
        EXPECT_EQ(CaughtFailure(kSite, "Other {}!"), kUnspecified);
    }
    try {
        throw 5;
    } catch (...) {
        CaughtFailure(kSite, "{}");
    }
    EXPECT_THAT(logger.Records(),
                ElementsAre(LogRecord{4, "some_file", 64, "SomeFunction", "Prefix: too {} long"},
                            LogRecord{4, "some_file", 64, "SomeFunction",
                                      "Other No error = 0x00000000. At thrower(15)!"},
                            LogRecord{4, "some_file", 64, "SomeFunction", "non-std exception"}));
}

TEST(CaughtFailure, DoesNotLookAtTheExceptionWhenTheLevelIsOff) {
    std::atomic<int> asked{0};
    RecordingLogger logger(kOff);
    try {
        throw CountedException(&asked);
    } catch (...) {
        EXPECT_EQ(CaughtFailure(kSite, "{}"), kUnspecified);
    }
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(logger.IsEnabledCalls(), 1);
    EXPECT_THAT(logger.Records(), IsEmpty());
    logger.SetThreshold(4);
    try {
        throw CountedException(&asked);
    } catch (...) {
        CaughtFailure(kSite, "{}");
    }
    EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace zam_connector
