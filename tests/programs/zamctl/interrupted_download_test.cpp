// `zamctl file get` while the service and the program itself are killed, connections break and
// chunks come damaged.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/running_program.h"
#include "system/chunk_faults.h"
#include "zam_connector_testing/service_process.h"

namespace zamctl::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using zam_connector::test::ChunkCalls;
using zam_connector::test::CountOf;
using zam_connector::test::kChunkBytes;
using zam_connector::test::kDamagesOfARun;
using zam_connector::test::kLastFaultyCall;
using zam_connector::test::RunProgram;

/// How much of everything. In each round the program is killed, and then the service.
struct Size {
    std::uint64_t rounds;
    std::uint64_t chunks;
    std::uint64_t step;  ///< chunks between two kills
    int delayMs;         ///< of each chunk, so that a small file takes its time
};

constexpr Size kUsualSize = {2, 1024, 60, 1};
constexpr Size kFullSize = {34, 16384, 170, 0};

static_assert(kUsualSize.step > kLastFaultyCall && kFullSize.step > kLastFaultyCall);

constexpr char kDamaged[] = "came damaged; fetching it again";
constexpr char kOld[] = "what stood there before";

class InterruptedDownload : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(service_.DataDirectory() + "/files");
        service_.WriteData("faults.json", zam_connector::test::ChunkFaults(size_.delayMs));
        std::ofstream(Target()) << kOld;
        WriteSource();
        StartService();
    }

    void WriteSource() const {
        std::ofstream out(Source(), std::ios::binary);
        std::string block(kChunkBytes, '\0');
        std::uint64_t state = 20261121;
        for (std::uint64_t chunk = 0; chunk < size_.chunks; ++chunk) {
            zam_connector::test::FillNext(block, state);
            out << block;
        }
        ASSERT_TRUE(out.flush());
    }

    /// With a log of each call.
    void StartService() {
        ::setenv("ZAM_LOG_LEVEL", "2", 1);
        service_.Start();
        ::unsetenv("ZAM_LOG_LEVEL");
    }

    void StartProgram() {
        program_ = std::make_unique<RunningProgram>(
            ZAMCTL_EXECUTABLE,
            std::vector<std::string>{"--json", "file", "get", "large", "-o", Target()},
            std::vector<std::string>{"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory()});
    }

    void KillProgram() {
        program_->Signal(SIGKILL);
        EXPECT_EQ(program_->Wait(), 128 + SIGKILL) << "it ended before it was killed";
        TakeNotes();
    }

    /// Keeps all that the program wrote to standard error; it has ended, or ends now.
    void TakeNotes() {
        for (std::string line = program_->ErrLine(); line != "(nothing)";
             line = program_->ErrLine()) {
            notes_ += line + '\n';
        }
    }

    /// Waits until so many more chunks stand in the part file. Meanwhile, and at all times, the
    /// file's own name belongs to what stood there before.
    bool WaitForChunks(std::uint64_t chunks) const {
        constexpr std::chrono::seconds kPatience{120};
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        const std::uint64_t wanted = PartBytes() + chunks * kChunkBytes;
        while (PartBytes() < wanted) {
            if (Content(Target()) != kOld || std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            ::poll(nullptr, 0, 1);
        }
        return Content(Target()) == kOld;
    }

    std::uint64_t PartBytes() const {
        std::error_code error;
        const auto size = fs::file_size(Target() + ".part", error);
        return error ? 0 : size;
    }

    /// As far as what stood there before is long.
    static std::string Content(const std::string& path) {
        std::string content(sizeof(kOld), '\0');
        std::ifstream in(path, std::ios::binary);
        in.read(content.data(), static_cast<std::streamsize>(content.size()));
        content.resize(static_cast<std::size_t>(in.gcount()));
        return content;
    }

    /// By a program that has nothing to do with this one.
    static std::string Sha256Of(const std::string& path) {
        constexpr std::size_t kDigits = 64;
        return RunProgram("/usr/bin/sha256sum", {path}).out.substr(0, kDigits);
    }

    /// Ends with the report of the last run.
    json Finish() {
        json report = json::parse(program_->OutLine(), nullptr, false);
        TakeNotes();
        EXPECT_EQ(program_->Wait(), 0) << notes_;
        return report;
    }

    std::string Source() const { return service_.DataDirectory() + "/files/large"; }
    std::string Target() const { return service_.DataDirectory() + "/fetched"; }

    static bool IsFullSize() {
        const char* const wanted = std::getenv("ZAM_FULL_SIZE");
        return wanted != nullptr && std::string(wanted) == "1";
    }

    const Size size_ = IsFullSize() ? kFullSize : kUsualSize;
    zam_connector::testing::ServiceProcess service_{ZAM_CONNECTORD};
    std::unique_ptr<RunningProgram> program_;
    std::string notes_;
};

TEST_F(InterruptedDownload, EndsWithTheFileAndFetchesAtMostOneChunkAgainForEachInterruption) {
    const auto start = std::chrono::steady_clock::now();
    StartProgram();
    for (std::uint64_t round = 0; round < size_.rounds; ++round) {
        ASSERT_TRUE(WaitForChunks(size_.step)) << "round " << round;
        KillProgram();
        StartProgram();
        ASSERT_TRUE(WaitForChunks(size_.step)) << "round " << round;
        service_.Kill();
        EXPECT_EQ(Content(Target()), kOld);
        StartService();
    }
    const json report = Finish();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;

    const std::string expected = Sha256Of(Source());
    EXPECT_EQ(expected.size(), 64U);
    EXPECT_EQ(Sha256Of(Target()), expected);
    EXPECT_EQ(report.at("sha256"), expected);
    EXPECT_EQ(report.at("restarts"), 0);
    EXPECT_FALSE(fs::exists(Target() + ".part"));
    EXPECT_FALSE(fs::exists(Target() + ".part.json"));

    const ChunkCalls calls(service_.Log());
    const std::uint64_t damaged = CountOf(kDamaged, notes_);
    EXPECT_GE(calls.dropped, size_.rounds);
    // The program may be killed when it has a damaged chunk and has not said so.
    EXPECT_GE(damaged, size_.rounds * (kDamagesOfARun - 1));
    EXPECT_GE(calls.all, size_.chunks) << "the log does not show every call";
    EXPECT_LE(calls.all, size_.chunks + 2 * size_.rounds + calls.dropped + damaged);
    if (IsFullSize()) {
        std::cout << size_.chunks << " chunks in " << time.count() << " s: " << size_.rounds
                  << " kills of the program, " << size_.rounds << " of the service, "
                  << calls.dropped << " broken connections, " << damaged << " damaged chunks; "
                  << calls.all - size_.chunks << " chunks asked for again\n";
    }
}

}  // namespace
}  // namespace zamctl::test
