#include "files/file_hashes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "files/open_files.h"
#include "lanes.h"
#include "result_codes.h"
#include "run_until.h"
#include "support/temporary_folder.h"

namespace zam_service {
namespace {

using ::testing::IsEmpty;
using zam_service::testing::RunUntil;
using zam_test::TemporaryFolder;

constexpr char kAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kEmpty[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class FileHashing : public ::testing::Test {
protected:
    FileHashing() : files_(data_.Path()) { std::filesystem::create_directory(data_.Path("files")); }
    ~FileHashing() override {
        hashes_.Close();
        workers_.Finish();
        loop_.restart();
        loop_.poll();
    }

    /// Asks without waiting for the answer.
    void Ask(FileHashes& hashes, const std::string& path) {
        hashes.Ask(::geteuid(), OpenServed(files_, path),
                   [this](const HashedFile& hashed) { answers_.push_back(hashed); });
    }

    bool Answered(std::size_t count) {
        return RunUntil(loop_, [this, count] { return answers_.size() == count; });
    }

    HashedFile HashOf(const std::string& path) {
        const std::size_t before = answers_.size();
        Ask(hashes_, path);
        EXPECT_TRUE(Answered(before + 1));
        return answers_.back();
    }

    /// Holds the lanes of the hashes up until it is set.
    void HoldUp(std::shared_future<void> until) {
        for (const Lane lane : {kHashLane, kSecondHashLane}) {
            workers_.Post(lane, [until] { until.wait(); });
        }
    }

    TemporaryFolder data_;
    FolderFiles files_;
    asio::io_context loop_;
    zam_platform::WorkerPool workers_{kWorkerThreads, kLaneCount, 32};
    /// Remembers at once.
    FileHashes hashes_{loop_, workers_, std::chrono::milliseconds(-1000)};
    std::vector<HashedFile> answers_;
};

TEST_F(FileHashing, IsSha256) {
    data_.Write("files/abc", "abc");
    data_.Write("files/empty", "");
    EXPECT_EQ(HashOf("abc").sha256, kAbc);
    EXPECT_EQ(answers_.back().code, kNoError);
    EXPECT_EQ(answers_.back().stamp.sizeBytes, 3U);
    EXPECT_EQ(HashOf("empty").sha256, kEmpty);
}

TEST_F(FileHashing, IsDoneOnceForAContent) {
    data_.Write("files/abc", "abc");
    HashOf("abc");
    Ask(hashes_, "abc");
    ASSERT_EQ(answers_.size(), 2U) << "answered at once";
    EXPECT_EQ(answers_.back().sha256, kAbc);
    EXPECT_EQ(hashes_.Computed(), 1U);
    // A second name of the file is the same content.
    std::filesystem::rename(data_.Path("files/abc"), data_.Path("files/moved"));
    EXPECT_EQ(HashOf("moved").sha256, kAbc);
}

TEST_F(FileHashing, IsDoneAgainForAChangedFile) {
    data_.Write("files/file", "other");
    HashOf("file");
    data_.Write("files/file", "abc");
    EXPECT_EQ(HashOf("file").sha256, kAbc);
    EXPECT_EQ(hashes_.Computed(), 2U);
}

TEST_F(FileHashing, IsSharedByAllWhoAskMeanwhile) {
    std::promise<void> goOn;
    HoldUp(goOn.get_future().share());
    data_.Write("files/abc", "abc");
    Ask(hashes_, "abc");
    Ask(hashes_, "abc");
    Ask(hashes_, "abc");
    EXPECT_THAT(answers_, IsEmpty());
    goOn.set_value();
    ASSERT_TRUE(Answered(3));
    EXPECT_EQ(hashes_.Computed(), 1U);
    for (const HashedFile& answer : answers_) {
        EXPECT_EQ(answer.sha256, kAbc);
    }
}

TEST_F(FileHashing, IsNotRememberedForAFileThatWasChangedJustNow) {
    FileHashes hashes(loop_, workers_, std::chrono::hours(1));
    data_.Write("files/abc", "abc");
    Ask(hashes, "abc");
    ASSERT_TRUE(Answered(1));
    EXPECT_EQ(answers_.back().sha256, kAbc);
    Ask(hashes, "abc");
    ASSERT_TRUE(Answered(2));
    EXPECT_EQ(hashes.Computed(), 2U);
    EXPECT_EQ(hashes.Remembered(), 0U);
}

TEST_F(FileHashing, TellsThatThereIsNoRoomForMoreWork) {
    std::promise<void> goOn;
    HoldUp(goOn.get_future().share());
    for (int file = 0; file < 9; ++file) {  // one more than a quarter of the places
        const std::string name = std::to_string(file);
        data_.Write("files/" + name, name);
        Ask(hashes_, name);
    }
    ASSERT_EQ(answers_.size(), 1U);
    EXPECT_EQ(answers_.back().code, kInsufficientResources);
    goOn.set_value();
    EXPECT_TRUE(Answered(9));
}

TEST_F(FileHashing, IsCancelledAtTheEnd) {
    std::promise<void> goOn;
    HoldUp(goOn.get_future().share());
    data_.Write("files/abc", "abc");
    Ask(hashes_, "abc");
    hashes_.Close();
    goOn.set_value();
    ASSERT_TRUE(Answered(1));
    EXPECT_EQ(answers_.back().code, kCancelled);
    EXPECT_THAT(answers_.back().sha256, IsEmpty());
}

TEST_F(FileHashing, RemembersABoundedNumber) {
    data_.Write("files/file", "");
    // Each size is a content of its own, and costs nothing on the disk.
    for (std::size_t size = 0; size < kMaxFileHashes + 2; ++size) {
        std::filesystem::resize_file(data_.Path("files/file"), size + 1);
        HashOf("file");
    }
    EXPECT_EQ(hashes_.Remembered(), kMaxFileHashes);
}

class FilesKeptOpen : public FileHashing {
protected:
    OpenFilePtr Opened(const std::string& name) {
        data_.Write("files/" + name, name);
        return OpenServed(files_, name);
    }

    OpenFiles open_{loop_, files_};
};

TEST_F(FilesKeptOpen, AreFoundUntilTheirPathsLeadElsewhere) {
    const OpenFilePtr file = Opened("file");
    open_.Keep(file);
    EXPECT_EQ(open_.Find("file"), file);
    data_.Write("files/file", "changed in place");
    EXPECT_EQ(open_.Find("file"), file);
    data_.Write("files/other", "other");
    std::filesystem::rename(data_.Path("files/other"), data_.Path("files/file"));
    EXPECT_EQ(open_.Find("file"), nullptr);
    EXPECT_EQ(open_.Count(), 0U);
    open_.Keep(OpenServed(files_, "file"));
    std::filesystem::remove(data_.Path("files/file"));
    EXPECT_EQ(open_.Find("file"), nullptr);
}

TEST_F(FilesKeptOpen, AreFewAndThoseThatWereUsedLast) {
    for (std::size_t number = 0; number < kMaxOpenFiles; ++number) {
        open_.Keep(Opened(std::to_string(number)));
    }
    EXPECT_NE(open_.Find("0"), nullptr);
    open_.Keep(Opened("more"));
    EXPECT_EQ(open_.Count(), kMaxOpenFiles);
    EXPECT_NE(open_.Find("0"), nullptr);
    EXPECT_EQ(open_.Find("1"), nullptr);
}

TEST_F(FilesKeptOpen, AreClosedWhenNobodyAsks) {
    OpenFiles open(loop_, files_, std::chrono::milliseconds(1));
    open.Keep(Opened("file"));
    EXPECT_TRUE(RunUntil(loop_, [&open] { return open.Count() == 0; }));
}

}  // namespace
}  // namespace zam_service
