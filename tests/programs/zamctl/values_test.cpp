#include "values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"

namespace zamctl::test {
namespace {

using namespace std::chrono_literals;

TEST(ParseUnsigned, TakesDigitsAndNothingElse) {
    EXPECT_EQ(ParseUnsigned("0"), 0U);
    EXPECT_EQ(ParseUnsigned("007"), 7U);
    EXPECT_EQ(ParseUnsigned("18446744073709551615"), 18446744073709551615U);
    for (const char* const wrong :
         {"", "-0", "+1", " 1", "1 ", "0x1", "1.0", "1e3", "one", "18446744073709551616"}) {
        EXPECT_EQ(ParseUnsigned(wrong), std::nullopt) << wrong;
    }
}

TEST(ParseInRange, TakesBothLimits) {
    EXPECT_EQ(ParseInRange("n", "3", 3, 5), 3U);
    EXPECT_EQ(ParseInRange("n", "5", 3, 5), 5U);
    EXPECT_THROW(ParseInRange("n", "2", 3, 5), UsageError);
    EXPECT_THROW(ParseInRange("n", "6", 3, 5), UsageError);
}

TEST(ParseSeconds, TakesUpToThreeDecimals) {
    EXPECT_EQ(ParseSeconds("t", "0"), 0ms);
    EXPECT_EQ(ParseSeconds("t", "1.5"), 1500ms);
    EXPECT_EQ(ParseSeconds("t", "1.05"), 1050ms);
    EXPECT_EQ(ParseSeconds("t", "0.001"), 1ms);
    EXPECT_EQ(ParseSeconds("t", "86400.000"), 24h);
    EXPECT_THROW(ParseSeconds("t", "86400.001"), UsageError);
    EXPECT_THROW(ParseSeconds("t", "18446744073709551615"), UsageError);
    EXPECT_THROW(ParseSeconds("t", "1.-5"), UsageError);
}

TEST(WithoutCredentials, HidesWhatStandsBeforeTheLastAtSign) {
    EXPECT_EQ(WithoutCredentials("plain"), "plain");
    EXPECT_EQ(WithoutCredentials("http://host:1"), "http://host:1");
    EXPECT_EQ(WithoutCredentials("http://u:p@host:1"), "http://***@host:1");
    EXPECT_EQ(WithoutCredentials("http://u:p@q@host:1"), "http://***@host:1");
    EXPECT_EQ(WithoutCredentials("u:p@host:1"), "***@host:1");
    EXPECT_EQ(WithoutCredentials("u:p@host/://x"), "***@host/://x");
}

}  // namespace
}  // namespace zamctl::test
