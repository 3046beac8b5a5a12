#include "storage/new_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/temporary_folder.h"

namespace {

/// Everything that was brought to the disk, as "folder" or with the file's size at that time.
std::vector<std::string> synced;

/// Calls that are to fail for a folder, and calls that a signal is to interrupt.
bool isFolderFailing = false;
int interruptions = 0;

}  // namespace

/// In place of the C library's.
extern "C" int fsync(int descriptor) {
    struct stat status {};
    ::fstat(descriptor, &status);
    if (interruptions > 0) {
        --interruptions;
        errno = EINTR;
        return -1;
    }
    synced.push_back(S_ISDIR(status.st_mode) ? "folder" : std::to_string(status.st_size));
    if (S_ISDIR(status.st_mode) && isFolderFailing) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

namespace zam_storage {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using zam_test::TemporaryFolder;

class NewFileTest : public ::testing::Test {
protected:
    NewFileTest()
        : descriptor_(::open(folder_.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        synced.clear();
        isFolderFailing = false;
        interruptions = 0;
    }
    ~NewFileTest() override { ::close(descriptor_); }

    TemporaryFolder folder_;
    const int descriptor_;
};

TEST_F(NewFileTest, TakesThePlaceOfAnotherWhenItIsOnTheDiskAndThenTheFolderFollows) {
    folder_.Write("file", "before");
    NewFile file(descriptor_);
    ASSERT_FALSE(file.Create("new", 0644));
    ASSERT_FALSE(WriteAll(file.Descriptor(), "after"));
    EXPECT_EQ(folder_.Read("file"), "before");
    EXPECT_THAT(synced, ElementsAre());
    const Replacement done = file.Replace("file");
    EXPECT_TRUE(done.isInPlace);
    EXPECT_FALSE(done.error);
    EXPECT_EQ(folder_.Read("file"), "after");
    EXPECT_THAT(folder_.Names(), ElementsAre("file"));
    EXPECT_THAT(synced, ElementsAre("5", "folder"));
}

TEST_F(NewFileTest, DoesTheSameWithPaths) {
    NewFile file;
    ASSERT_FALSE(file.Create(folder_.Path("new"), 0600));
    ASSERT_FALSE(WriteAll(file.Descriptor(), "text"));
    EXPECT_TRUE(file.Replace(folder_.Path("file")).isInPlace);
    EXPECT_EQ(folder_.Read("file"), "text");
    EXPECT_THAT(synced, ElementsAre("4", "folder"));
    EXPECT_EQ(fs::status(folder_.Path("file")).permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(NewFileTest, IsRemovedUnlessItIsPutInItsPlace) {
    {
        NewFile file(descriptor_);
        ASSERT_FALSE(file.Create("new", 0644));
        EXPECT_THAT(folder_.Names(), ElementsAre("new"));
    }
    EXPECT_THAT(folder_.Names(), ElementsAre());
}

TEST_F(NewFileTest, IsRemovedWhenItCannotBePutInItsPlace) {
    fs::create_directory(folder_.Path("file"));
    {
        NewFile file(descriptor_);
        ASSERT_FALSE(file.Create("new", 0644));
        const Replacement failed = file.Replace("file");
        EXPECT_FALSE(failed.isInPlace);
        EXPECT_EQ(failed.error, std::errc::is_a_directory);
    }
    EXPECT_THAT(folder_.Names(), ElementsAre("file"));
}

TEST_F(NewFileTest, NeitherFollowsNorRemovesWhatHasItsNameAlready) {
    folder_.Write("precious", "precious");
    fs::create_symlink("precious", folder_.Path("link"));
    {
        NewFile file(descriptor_);
        EXPECT_EQ(file.Create("precious", 0644), std::errc::file_exists);
        EXPECT_EQ(file.Create("link", 0644), std::errc::file_exists);
    }
    EXPECT_THAT(folder_.Names(), UnorderedElementsAre("link", "precious"));
    EXPECT_EQ(folder_.Read("precious"), "precious");
}

TEST_F(NewFileTest, TellsAFailureOfTheFolderThoughTheFileIsInPlace) {
    isFolderFailing = true;
    NewFile file(descriptor_);
    ASSERT_FALSE(file.Create("new", 0644));
    const Replacement done = file.Replace("file");
    EXPECT_TRUE(done.isInPlace);
    EXPECT_EQ(done.error, std::errc::io_error);
    EXPECT_THAT(folder_.Names(), ElementsAre("file"));
}

TEST_F(NewFileTest, GoesOnWhenASignalInterruptsIt) {
    interruptions = 2;
    EXPECT_FALSE(SyncFile(descriptor_));
    EXPECT_THAT(synced, ElementsAre("folder"));
}

TEST_F(NewFileTest, TakesThePermissionsOfTheFileBefore) {
    folder_.Write("file", "before");
    fs::permissions(folder_.Path("file"), fs::perms::owner_read);
    NewFile file(descriptor_);
    ASSERT_FALSE(file.Create("new", 0644));
    EXPECT_FALSE(CopyPermissions(folder_.Path("missing"), file.Descriptor()));
    EXPECT_NE(fs::status(folder_.Path("new")).permissions(), fs::perms::owner_read);
    EXPECT_FALSE(CopyPermissions(folder_.Path("file"), file.Descriptor()));
    EXPECT_EQ(fs::status(folder_.Path("new")).permissions(), fs::perms::owner_read);
}

}  // namespace
}  // namespace zam_storage
