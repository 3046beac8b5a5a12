#include "download/part_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "failure.h"
#include "support/temporary_folder.h"

namespace {

/// What another process does before this one locks; runs once.
std::function<void()> beforeLock;

}  // namespace

/// In place of the C library's.
extern "C" int flock(int descriptor, int operation) noexcept {
    if (const auto other = std::exchange(beforeLock, nullptr)) {
        other();
    }
    return static_cast<int>(::syscall(SYS_flock, descriptor, operation));
}

namespace zamctl::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class PartFileTest : public ::testing::Test {
protected:
    ~PartFileTest() override { beforeLock = nullptr; }

    static void Append(PartFile& part, const std::string& text) {
        part.Append(std::as_bytes(std::span(text)));
    }

    /// The message of an opening that must fail.
    std::string Refusal() const {
        try {
            const PartFile part(target_, identity_);
        } catch (const Failure& failure) {
            return failure.what();
        }
        return "not refused";
    }

    const ContentIdentity identity_{std::string(64, 'a'), 10};
    zam_test::TemporaryFolder folder_;
    const std::string target_ = folder_.Path("file");
    const std::string partPath_ = target_ + ".part";
    const std::string identityPath_ = partPath_ + ".json";
};

TEST_F(PartFileTest, LeavesAFileThatAnotherDownloadFinishesMeanwhile) {
    std::optional<PartFile> other(std::in_place, target_, identity_);
    Append(*other, "0123456789");
    beforeLock = [&] {
        other->Commit();
        other.reset();
    };
    PartFile part(target_, identity_);
    EXPECT_EQ(folder_.Read("file"), "0123456789");
    EXPECT_EQ(part.Size(), 0U);
    Append(part, "abc");
    EXPECT_EQ(folder_.Read("file"), "0123456789");
    EXPECT_EQ(folder_.Read("file.part"), "abc");
}

TEST_F(PartFileTest, IsRefusedWhenAnotherDownloadBeginsAnewMeanwhile) {
    std::optional<PartFile> other(std::in_place, target_, identity_);
    beforeLock = [&] {
        other->Discard();
        other.reset();
        other.emplace(target_, identity_);
        Append(*other, "half");
    };
    EXPECT_THAT(Refusal(), HasSubstr("is in use by another download"));
    EXPECT_EQ(folder_.Read("file.part"), "half");
}

TEST_F(PartFileTest, IsRefusedWhenOthersTakeItAwayTimeAndAgain) {
    unsigned calls = 0;
    const std::function<void()> takeAway = [&] {
        ++calls;
        fs::remove(partPath_);
        beforeLock = takeAway;
    };
    beforeLock = takeAway;
    EXPECT_THAT(Refusal(), HasSubstr("is in use by another download"));
    EXPECT_GT(calls, 1U);
}

TEST_F(PartFileTest, FollowsNoLinkToWriteItsIdentity) {
    folder_.Write("precious", "precious");
    fs::create_symlink("precious", identityPath_);
    EXPECT_THAT(Refusal(), HasSubstr("file.part.json\" cannot be written"));
    EXPECT_EQ(folder_.Read("precious"), "precious");
}

TEST_F(PartFileTest, FollowsNoLinkToReadItsIdentity) {
    {
        PartFile part(target_, identity_);
        Append(part, "planted");
    }
    EXPECT_EQ(PartFile(target_, identity_).Size(), 7U);
    fs::rename(identityPath_, folder_.Path("elsewhere"));
    fs::create_symlink("elsewhere", identityPath_);
    EXPECT_THAT(Refusal(), HasSubstr("file.part.json\" cannot be written"));
}

}  // namespace
}  // namespace zamctl::test
