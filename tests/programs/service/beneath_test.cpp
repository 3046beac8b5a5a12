#include "files/beneath.h"
#include "support/temporary_folder.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using zam_test::TemporaryFolder;

TEST(FilePath, IsRelativeAndStaysBelow) {
    const std::string longest(kMaxFilePathBytes, 'x');
    const std::pair<std::string, bool> rows[] = {
        {"a", true},
        {"a/b/c.txt", true},
        {".hidden", true},
        {"..a/b..", true},
        {"a\\..\\b", true},
        {"gr\xC3\xB6\xC3\x9F"
         "e",
         true},
        {longest, true},
        {"", false},
        {longest + "x", false},
        {"/", false},
        {"/etc/passwd", false},
        {"a/", false},
        {"a//b", false},
        {".", false},
        {"./a", false},
        {"a/./b", false},
        {"a/.", false},
        {"..", false},
        {"../a", false},
        {"a/../b", false},
        {"a/..", false},
        {std::string("a\0b", 3), false},
        {std::string("..\0", 3), false},
    };
    for (const auto& [path, isPath] : rows) {
        EXPECT_EQ(IsFilePath(path), isPath) << path;
    }
}

/// Both ways to open.
class OpeningBeneath
    : public ::testing::TestWithParam<OpenedBeneath (*)(int directory, const std::string& path)> {
protected:
    OpeningBeneath() {
        fs::create_directories(folder_.Path("in/sub"));
        folder_.Write("outside", "secret");
        folder_.Write("in/file", "file");
        folder_.Write("in/sub/deep", "deep");
        directory_.Reset(::open(folder_.Path("in").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    int ErrorOf(const std::string& path) const {
        const OpenedBeneath opened = GetParam()(directory_.Get(), path);
        EXPECT_EQ(static_cast<bool>(opened.file), opened.error == 0);
        return opened.error;
    }

    void Link(const std::string& target, const std::string& name) const {
        fs::create_symlink(target, folder_.Path(name));
    }

    TemporaryFolder folder_;
    zam_platform::UniqueFd directory_;
};

TEST_P(OpeningBeneath, ReachesFilesOnAllLevels) {
    const OpenedBeneath opened = GetParam()(directory_.Get(), "sub/deep");
    ASSERT_EQ(opened.error, 0);
    char bytes[8] = {};
    EXPECT_EQ(::read(opened.file.Get(), bytes, sizeof(bytes)), 4);
    EXPECT_STREQ(bytes, "deep");
    EXPECT_NE(::fcntl(opened.file.Get(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(ErrorOf("file"), 0);
}

TEST_P(OpeningBeneath, FollowsNoLinkOnAnyLevel) {
    Link("../outside", "in/up");
    Link(folder_.Path("outside"), "in/absolute");
    Link("file", "in/inner");
    Link("sub", "in/folder");
    Link("..", "in/sub/parent");
    Link("/proc/self/root", "in/magic");
    Link("loop", "in/loop");
    for (const char* const path : {"up", "absolute", "inner", "folder/deep", "sub/parent/file",
                                   "sub/parent/../outside", "magic/etc/passwd", "loop"}) {
        EXPECT_EQ(ErrorOf(path), ELOOP) << path;
    }
}

TEST_P(OpeningBeneath, TellsWhatIsNotThere) {
    EXPECT_EQ(ErrorOf("nothing"), ENOENT);
    EXPECT_EQ(ErrorOf("nothing/file"), ENOENT);
    EXPECT_EQ(ErrorOf("file/below"), ENOTDIR);
    EXPECT_EQ(ErrorOf(std::string(256, 'x')), ENAMETOOLONG);
}

TEST_P(OpeningBeneath, DoesNotWaitForTheOtherEndOfAPipe) {
    ASSERT_EQ(::mkfifo(folder_.Path("in/pipe").c_str(), 0600), 0);
    EXPECT_EQ(ErrorOf("pipe"), 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, OpeningBeneath,
                         ::testing::Values(&OpenPathBeneath, &OpenPathLevelByLevel));

}  // namespace
}  // namespace zam_service
