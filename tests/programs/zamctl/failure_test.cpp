#include "failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "codes.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;

TEST(CallFailure, TellsTheServicesCodesFromTheLibrarysFailures) {
    using zam_connector::TransportFailure;
    const CallFailure service("do it", kInvalidArgument, "", TransportFailure::None);
    EXPECT_STREQ(service.what(), "cannot do it: the service answered 0x80000046 Invalid argument");
    const CallFailure library("do it", static_cast<int>(0x8000004BU), "it broke",
                              TransportFailure::Broken);
    EXPECT_STREQ(library.what(), "cannot do it: 0x8000004B Unspecified error: it broke");
    EXPECT_EQ(service.Status(), kExitFailed);
    EXPECT_EQ(library.Status(), kExitFailed);
}

TEST(CallFailure, HasAStatusOfItsOwnWhenTheTimeRanOut) {
    const CallFailure failure("do it", static_cast<int>(0x8000004BU), "no answer came in time",
                              zam_connector::TransportFailure::TimedOut);
    EXPECT_STREQ(failure.what(),
                 "cannot do it: 0x8000004B Unspecified error: no answer came in time");
    EXPECT_EQ(failure.Status(), kExitTimedOut);
    EXPECT_EQ(failure.Status(), 4);
    EXPECT_THAT(failure.Remedy(), HasSubstr("'--timeout SECONDS' gives it more time"));
}

TEST(CallFailure, HasAdviceForEveryCode) {
    struct Row {
        int code;
        const char* cause;
        const char* advice;
    };
    for (const auto& [code, cause, advice] :
         {Row{kInvalidArgument, "", "does not accept these values"},
          Row{kInvalidState, "", "'zamctl state' prints it"},
          Row{kAccessDenied, "", "as a user to whom the service allows it"},
          Row{static_cast<int>(0x80000062U), "", "log of zam_connectord"},
          Row{static_cast<int>(0x8000004BU), "it broke", "'zamctl doctor'"}}) {
        EXPECT_THAT(
            CallFailure("do it", code, cause, zam_connector::TransportFailure::None).Remedy(),
            HasSubstr(advice));
    }
}

}  // namespace
}  // namespace zamctl::test
