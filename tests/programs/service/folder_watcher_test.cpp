#include "data/folder_watcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data/folder_files.h"
#include "run_until.h"
#include "support/temporary_folder.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using zam_service::testing::RunUntil;
using zam_test::TemporaryFolder;

/// A watcher whose notices are kept.
class FolderWatcherTest : public ::testing::Test {
protected:
    FolderWatcherTest() {
        fs::create_directory(parent_.Path("data"));
        files_.emplace(parent_.Path("data"));
        watcher_.emplace(
            loop_, files_->Path(),
            FolderObserver{
                .onFile = [this](const std::string& name) { names_.push_back(name); },
                .onGone = [this](const std::string& name) { names_.push_back("no " + name); },
                .onLost = [this] { ++lost_; },
                .onFolder = [this] { ++folders_; }});
        watcher_->Watch(files_->Open()->Get());
    }

    /// The names told so far, up to and with that of a file which is written now: so that what
    /// was told before it has come, and what was not told never will.
    std::vector<std::string> Names() {
        parent_.Write("data/marker", "");
        EXPECT_TRUE(
            RunUntil(loop_, [this] { return !names_.empty() && names_.back() == "marker"; }));
        std::vector<std::string> names = std::exchange(names_, {});
        names.pop_back();
        return names;
    }

    std::string File(std::string_view name) const {
        return parent_.Path("data/" + std::string(name));
    }

    TemporaryFolder parent_;
    std::optional<FolderFiles> files_;
    asio::io_context loop_;
    std::optional<FolderWatcher> watcher_;
    std::vector<std::string> names_;
    int lost_ = 0;
    int folders_ = 0;
};

TEST_F(FolderWatcherTest, TellsAFileThatWasWrittenOnceItIsClosed) {
    std::ofstream file(File("a.json"));
    file << "half of it" << std::flush;
    EXPECT_THAT(Names(), ::testing::IsEmpty());
    file.close();
    EXPECT_THAT(Names(), ::testing::ElementsAre("a.json"));
}

TEST_F(FolderWatcherTest, TellsAFileThatWasMovedOverAnother) {
    parent_.Write("data/a.json", "old");
    parent_.Write("new", "new");
    Names();
    fs::rename(parent_.Path("new"), File("a.json"));
    EXPECT_THAT(Names(), ::testing::ElementsAre("a.json"));
}

TEST_F(FolderWatcherTest, TellsAFileThatIsGone) {
    parent_.Write("data/a.json", "");
    parent_.Write("data/b.json", "");
    Names();
    fs::remove(File("a.json"));
    fs::rename(File("b.json"), parent_.Path("away"));
    EXPECT_THAT(Names(), ::testing::ElementsAre("no a.json", "no b.json"));
}

TEST_F(FolderWatcherTest, TellsNothingOfFolders) {
    fs::create_directory(File("uploads"));
    fs::rename(File("uploads"), File("moved"));
    EXPECT_THAT(Names(), ::testing::IsEmpty());
}

TEST_F(FolderWatcherTest, TellsThatTheFolderWasMoved) {
    fs::rename(parent_.Path("data"), parent_.Path("old"));
    EXPECT_TRUE(RunUntil(loop_, [this] { return folders_ > 0; }));
}

TEST_F(FolderWatcherTest, TellsThatTheFolderWasRemovedWhileItIsOpen) {
    fs::remove(parent_.Path("data"));
    EXPECT_TRUE(RunUntil(loop_, [this] { return folders_ > 0; }));
}

TEST_F(FolderWatcherTest, TellsThatNoticesWereLost) {
    std::ifstream limit("/proc/sys/fs/inotify/max_queued_events");
    int events = 0;
    ASSERT_TRUE(limit >> events);
    // Names alternate: equal notices behind each other become one.
    parent_.Write("data/a", "");
    for (int event = 0; event <= events; ++event) {
        fs::rename(File("a"), File("b"));
        fs::rename(File("b"), File("a"));
    }
    EXPECT_TRUE(RunUntil(loop_, [this] { return lost_ > 0; }));
}

TEST_F(FolderWatcherTest, TellsNothingOfTheFolderWatchedBefore) {
    fs::rename(parent_.Path("data"), parent_.Path("old"));
    fs::create_directory(parent_.Path("data"));
    ASSERT_TRUE(files_->Reopen());
    watcher_->Watch(files_->Open()->Get());
    parent_.Write("old/a.json", "");
    parent_.Write("data/b.json", "");
    EXPECT_THAT(Names(), ::testing::ElementsAre("b.json"));
}

}  // namespace
}  // namespace zam_service
