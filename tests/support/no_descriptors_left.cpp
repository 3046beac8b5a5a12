#include "support/no_descriptors_left.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <asio/error.hpp>
#include <cerrno>
#include <system_error>

#include "zam_platform/posix_error.h"
#include "zam_platform/report.h"

namespace zam_platform::testing {
namespace {

/// UndefinedBehaviorSanitizer opens a pipe when it meets an object of a type for the first time,
/// and takes the object for broken when it cannot. So it meets here what reports the lack of
/// descriptors.
void MeetTheErrorTypes() {
    try {
        const std::error_code code(EMFILE, std::system_category());
        const std::error_code ofTheLoop = asio::error::operation_aborted;
        EXPECT_NE(code, std::errc::interrupted);
        EXPECT_NE(ofTheLoop, std::errc::interrupted);
        EXPECT_NE(code, ofTheLoop);
        EXPECT_NE(ofTheLoop, code);
        throw PosixError(code.message(), EMFILE);
    } catch (const PlatformError& error) {
        const std::exception& base = error;
        EXPECT_EQ(error.Status(), kStatusResources);
        EXPECT_STREQ(error.what(), base.what());
        Report(zor::logger::kLevelTrace, "no_descriptors_left", "MeetTheErrorTypes", base.what());
    }
}

}  // namespace

NoDescriptorsLeft::NoDescriptorsLeft(rlim_t left) {
    MeetTheErrorTypes();
    ::getrlimit(RLIMIT_NOFILE, &before_);
    // All below the lowest free number are in use.
    const int lowestFree = ::dup(STDERR_FILENO);
    ::close(lowestFree);
    rlimit none = before_;
    none.rlim_cur = static_cast<rlim_t>(lowestFree) + left;
    ::setrlimit(RLIMIT_NOFILE, &none);
}

NoDescriptorsLeft::~NoDescriptorsLeft() {
    ::setrlimit(RLIMIT_NOFILE, &before_);
}

}  // namespace zam_platform::testing
