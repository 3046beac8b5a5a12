#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "download/file_download.h"
#include "failure.h"
#include "fakes.h"
#include "support/temporary_folder.h"

namespace zamctl::test {

namespace fs = std::filesystem;
using zam_test::Content;

class NotedDownload final : public DownloadWatcher {
public:
    void Advanced(std::uint64_t bytes, std::uint64_t /*totalBytes*/) override { last = bytes; }
    void Noted(const std::string& text) override { notes.push_back(text); }
    std::string Cause() override { return cause; }

    std::uint64_t last = 0;
    std::vector<std::string> notes;
    std::string cause;
};

/// Chunks of four bytes: 0123, 4567, 89.
class FileDownloadTest : public ::testing::Test {
protected:
    FileDownloadTest() { source_.content = "0123456789"; }

    DownloadReport Fetch() {
        FileDownload download(source_, clock_, watcher_);
        return download.Run({.path = "name", .target = target_, .timeout = timeout_});
    }

    /// Runs a download that must fail, and gives its message.
    std::string Fail() {
        try {
            Fetch();
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.Status(), kExitFailed);
            EXPECT_FALSE(fs::exists(target_));
            return failure.what();
        }
        return "nothing thrown";
    }

    /// Makes the chunk call of that number, and all behind it, fail for good.
    void BreakFrom(std::size_t call) {
        source_.onChunk = [call](std::size_t number) {
            return number < call ? 0 : static_cast<int>(0x80000045U);
        };
    }

    zam_test::TemporaryFolder folder_;
    std::string target_ = folder_.Path("file");
    FakeFileDownloader source_;
    FakeClock clock_;
    NotedDownload watcher_;
    std::optional<std::chrono::milliseconds> timeout_;
};

}  // namespace zamctl::test
