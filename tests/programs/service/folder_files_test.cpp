#include "data/folder_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <iterator>
#include <optional>
#include <string>

#include "support/temporary_folder.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using zam_test::TemporaryFolder;

template <typename Function>
std::string ErrorOf(Function&& function) {
    try {
        function();
    } catch (const zam_platform::PlatformError& error) {
        return error.what();
    }
    return "no error";
}

TEST(FolderFiles, ReadsAFileAndTellsThatThereIsNone) {
    const TemporaryFolder folder;
    const FolderFiles files(folder.Path());
    folder.Write("a.json", std::string("text\0more", 9));
    folder.Write("empty.json", "");
    EXPECT_EQ(files.Read("a.json"), std::string("text\0more", 9));
    EXPECT_EQ(files.Read("empty.json"), "");
    EXPECT_EQ(files.Read("b.json"), std::nullopt);
}

TEST(FolderFiles, ReadsFilesUpToTheLimitOnly) {
    const TemporaryFolder folder;
    const FolderFiles files(folder.Path());
    for (const std::size_t size : {kMaxDataFileBytes - 1, kMaxDataFileBytes}) {
        folder.Write("a.json", std::string(size, ' '));
        EXPECT_EQ(files.Read("a.json")->size(), size);
    }
    folder.Write("a.json", std::string(kMaxDataFileBytes + 1, ' '));
    EXPECT_THAT(ErrorOf([&] { files.Read("a.json"); }),
                HasSubstr("has 16777217 bytes, more than the 16777216 allowed"));
}

TEST(FolderFiles, ReadsRegularFilesOfTheFolderOnly) {
    const TemporaryFolder outside;
    outside.Write("secret", "secret");
    const TemporaryFolder folder;
    const FolderFiles files(folder.Path());
    fs::create_symlink(outside.Path("secret"), folder.Path("link"));
    fs::create_directory(folder.Path("folder"));
    ASSERT_EQ(::mkfifo(folder.Path("pipe").c_str(), 0600), 0);
    EXPECT_THAT(ErrorOf([&] { files.Read("link"); }), HasSubstr("is a symbolic link"));
    EXPECT_THAT(ErrorOf([&] { files.Read("folder"); }), HasSubstr("is no regular file"));
    EXPECT_THAT(ErrorOf([&] { files.Read("pipe"); }), HasSubstr("is no regular file"));
}

TEST(FolderFiles, ReplacesAFileWhole) {
    const TemporaryFolder folder;
    const FolderFiles files(folder.Path());
    files.Write("a.json", "one");
    files.Write("a.json", "two");
    EXPECT_EQ(folder.Read("a.json"), "two");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()), 1);
}

TEST(FolderFiles, WritesOverALinkAndNotThroughIt) {
    const TemporaryFolder outside;
    outside.Write("kept", "kept");
    const TemporaryFolder folder;
    const FolderFiles files(folder.Path());
    fs::create_symlink(outside.Path("kept"), folder.Path("a.json"));
    fs::create_symlink(outside.Path("kept"), folder.Path(".a.json.new"));
    files.Write("a.json", "new");
    EXPECT_EQ(outside.Read("kept"), "kept");
    EXPECT_EQ(folder.Read("a.json"), "new");
    EXPECT_FALSE(fs::is_symlink(folder.Path("a.json")));
}

TEST(FolderFiles, NeedsAFolderThatIsThere) {
    const TemporaryFolder folder;
    folder.Write("file", "");
    EXPECT_THAT(ErrorOf([&] { const FolderFiles files(folder.Path("none")); }),
                HasSubstr("/none': No such file or directory"));
    EXPECT_THAT(ErrorOf([&] { const FolderFiles files(folder.Path("file")); }),
                HasSubstr("/file': Not a directory"));
}

TEST(FolderFiles, KnowsWhetherTheFolderIsInItsPlace) {
    const TemporaryFolder parent;
    fs::create_directory(parent.Path("data"));
    FolderFiles files(parent.Path("data"));
    EXPECT_TRUE(files.IsInPlace());
    fs::rename(parent.Path("data"), parent.Path("old"));
    EXPECT_FALSE(files.IsInPlace());
    fs::create_directory(parent.Path("data"));
    EXPECT_FALSE(files.IsInPlace()) << "another folder under the same name";
    EXPECT_TRUE(files.Reopen());
    EXPECT_TRUE(files.IsInPlace());
    files.Detach();
    EXPECT_TRUE(files.IsAway());
    EXPECT_THAT(ErrorOf([&] { files.Write("a", "b"); }), HasSubstr("is not there"));
}

}  // namespace
}  // namespace zam_service
