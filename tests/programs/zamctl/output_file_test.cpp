#include "output_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "failure.h"
#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;
using zam_test::Content;

class OutputFileTest : public ::testing::Test {
protected:
    static std::string Refusal(const fs::path& path) {
        try {
            const OutputFile file(path.string());
        } catch (const UsageError& error) {
            return error.what();
        }
        return "not refused";
    }

    zam_test::TemporaryFolder scratch_;
    fs::path folder_ = scratch_.Path();
    fs::path file_ = folder_ / "file";
};

TEST_F(OutputFileTest, PutsTheWholeInPlaceAtOnce) {
    std::ofstream(file_) << "before";
    const std::string bytes("a\0b\n", 4);
    {
        OutputFile file(file_.string());
        EXPECT_EQ(Content(file_), "before");
        file.Commit(bytes);
    }
    EXPECT_EQ(Content(file_), bytes);
    EXPECT_THAT(scratch_.Names(), UnorderedElementsAre("file"));
}

TEST_F(OutputFileTest, LeavesEverythingAsItWasWithoutACommit) {
    std::ofstream(file_) << "before";
    { const OutputFile file(file_.string()); }
    { const OutputFile file((folder_ / "new").string()); }
    EXPECT_EQ(Content(file_), "before");
    EXPECT_THAT(scratch_.Names(), UnorderedElementsAre("file"));
}

TEST_F(OutputFileTest, KeepsThePermissionsOfTheFileBefore) {
    std::ofstream(file_) << "before";
    fs::permissions(file_, fs::perms::owner_read | fs::perms::owner_write);
    OutputFile(file_.string()).Commit("after");
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(OutputFileTest, FollowsALink) {
    std::ofstream(file_) << "before";
    fs::create_symlink(file_, folder_ / "link");
    OutputFile((folder_ / "link").string()).Commit("after");
    EXPECT_EQ(Content(file_), "after");
    EXPECT_TRUE(fs::is_symlink(folder_ / "link"));
}

TEST_F(OutputFileTest, RefusesWhatIsNoRegularFileAndWhereNothingCanBeWritten) {
    EXPECT_THAT(Refusal(folder_), HasSubstr("no regular file"));
    EXPECT_THAT(Refusal("/dev/null"), HasSubstr("no regular file"));
    EXPECT_THAT(Refusal(folder_ / "missing" / "file"), HasSubstr("No such file or directory"));
    fs::create_symlink(folder_ / "nowhere", folder_ / "dangling");
    EXPECT_THAT(Refusal(folder_ / "dangling"), HasSubstr("a link to what is not there"));
    EXPECT_THAT(Refusal(""), HasSubstr("--output"));
}

TEST_F(OutputFileTest, PassesOverWhatARunThatWasKilledLeft) {
    OutputFile first(file_.string());
    OutputFile second(file_.string());
    second.Commit("second");
    first.Commit("first");
    EXPECT_EQ(Content(file_), "first");
}

TEST_F(OutputFileTest, FailsWhenTheFolderIsGone) {
    OutputFile file(file_.string());
    fs::remove_all(folder_);
    try {
        file.Commit("bytes");
        FAIL() << "nothing thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), kExitFailed);
        EXPECT_THAT(failure.what(), HasSubstr("No such file or directory"));
    }
}

}  // namespace
}  // namespace zamctl::test
