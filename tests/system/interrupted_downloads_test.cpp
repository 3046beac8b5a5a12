// Files that are fetched chunk by chunk while the service is killed, connections break and chunks
// come damaged: what a client loses, and that it loses no more.

#include <zlib.h>

#include <atomic>
#include <iostream>
#include <thread>
#include <vector>

#include "chunk_faults.h"
#include "connector_fixture.h"

namespace zam_connector::test {
namespace {

/// How much of everything.
struct Size {
    std::uint64_t kills;
    std::uint64_t chunks;
    std::uint64_t step;  ///< chunks between two kills, which all rules have applied in
};

constexpr Size kUsualSize = {3, 600, 100};
constexpr Size kFullSize = {50, 16384, 250};
static_assert(kUsualSize.step > kLastFaultyCall && kFullSize.step > kLastFaultyCall);

class InterruptedDownloads : public ServiceConnectorTest {
protected:
    ~InterruptedDownloads() override {
        EndKilling();
        ::unsetenv("ZAM_LOG_LEVEL");
    }

    static std::string Content(std::uint64_t chunks) {
        std::string content(chunks * kChunkBytes - 1, '\0');
        std::uint64_t state = 20261121;
        FillNext(content, state);
        return content;
    }

    /// Serves the content, with a log of each call.
    void StartServing(const std::string& content) {
        service_.WriteData("files/large", content);
        service_.WriteData("faults.json", ChunkFaults(0));
        ::setenv("ZAM_LOG_LEVEL", "2", 1);
        service_.Start();
    }

    /// Kills and restarts the service each time that so much more has come, amid the calls.
    void BeginKilling(const Size& size) {
        killer_ = std::thread([this, size] {
            for (std::uint64_t kill = 1; kill <= size.kills; ++kill) {
                if (!WaitForChunks(size.step)) {
                    return;
                }
                service_.Kill();
                service_.Start();
                ++kills_;
            }
        });
    }

    void EndKilling() {
        SetFetched(kEnded);
        if (killer_.joinable()) {
            killer_.join();
        }
    }

    /// Until so many more have come; false when no more will.
    bool WaitForChunks(std::uint64_t chunks) const {
        std::uint64_t fetched = fetched_;
        const std::uint64_t wanted = fetched + chunks * kChunkBytes;
        for (; fetched != kEnded && fetched < wanted; fetched = fetched_) {
            fetched_.wait(fetched);
        }
        return fetched != kEnded;
    }

    void SetFetched(std::uint64_t bytes) {
        fetched_ = bytes;
        fetched_.notify_all();
    }

    /// Asks for a chunk until it comes whole.
    void FetchChunk(IZamFileDownloader& downloader, std::string& content) {
        const auto deadline = std::chrono::steady_clock::now() + kBound;
        while (std::chrono::steady_clock::now() < deadline) {
            FileChunk chunk;
            if (downloader.GetFileChunk({"large", content.size(), 0}, chunk) != 0) {
                ++failures_;
                continue;
            }
            const auto* const bytes = reinterpret_cast<const Bytef*>(chunk.data.data());
            if (::crc32_z(0, bytes, chunk.data.size()) != chunk.crc32) {
                ++damaged_;
                continue;
            }
            EXPECT_EQ(chunk.offset, content.size());
            content.append(reinterpret_cast<const char*>(bytes), chunk.data.size());
            SetFetched(content.size());
            return;
        }
        FAIL() << "no chunk at " << content.size();
    }

    static constexpr std::uint64_t kEnded = ~0ULL;

    std::atomic<std::uint64_t> fetched_{0};  ///< bytes
    std::atomic<std::uint64_t> kills_{0};
    std::uint64_t failures_ = 0;
    std::uint64_t damaged_ = 0;
    std::thread killer_;
};

TEST_F(InterruptedDownloads, FetchAtMostOneChunkAgainForEachInterruption) {
    const Size size = IsFullSize() ? kFullSize : kUsualSize;
    const std::string content = Content(size.chunks);
    StartServing(content);
    const auto connector = Connector();
    const auto downloader = Interfaces(*connector).fileDownloader;

    const auto start = std::chrono::steady_clock::now();
    BeginKilling(size);
    std::string fetched;
    fetched.reserve(content.size());
    while (fetched.size() < content.size() && !HasFatalFailure()) {
        FetchChunk(*downloader, fetched);
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    EndKilling();
    EXPECT_TRUE(fetched == content);
    EXPECT_EQ(kills_, size.kills);

    const ChunkCalls calls(service_.Log());
    EXPECT_GE(calls.dropped, size.kills);
    EXPECT_GE(damaged_, size.kills * kDamagesOfARun);
    EXPECT_GE(calls.all, size.chunks) << "the log does not show every call";
    EXPECT_LE(calls.all, size.chunks + size.kills + calls.dropped + damaged_);
    if (IsFullSize()) {
        std::cout << fetched.size() << " bytes in " << time.count() << " s: " << size.kills
                  << " kills, " << calls.dropped << " broken connections, " << damaged_
                  << " damaged chunks; " << calls.all - size.chunks << " chunks asked for again, "
                  << failures_ << " calls failed\n";
    }
}

}  // namespace
}  // namespace zam_connector::test
