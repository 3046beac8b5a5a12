// What a download has on the disk at any moment: what is left of it when the process is killed.

#include "download_fixture.h"

namespace zamctl::test {
namespace {

TEST_F(FileDownloadTest, HasWrittenEachChunkWhenItAsksForTheNext) {
    constexpr std::size_t kChunks = 200;
    constexpr std::size_t kChunkBytes = 4;
    source_.content = std::string(kChunks * kChunkBytes, 'x');
    std::size_t late = 0;
    source_.onChunk = [&](std::size_t call) {
        late += fs::file_size(target_ + ".part") < (call - 1) * kChunkBytes ? 1U : 0U;
        return 0;
    };
    EXPECT_EQ(Fetch().fetchedBytes, source_.content.size());
    EXPECT_EQ(late, 0U) << "more than one chunk would be fetched again";
}

}  // namespace
}  // namespace zamctl::test
