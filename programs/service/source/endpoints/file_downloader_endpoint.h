#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "data/folder_files.h"
#include "files/file_chunk_reader.h"
#include "files/file_hashes.h"
#include "files/open_files.h"
#include "files/sequential_reader.h"
#include "zam_connector/file_info.h"
#include "zam_platform/server/endpoint.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// Serves ZamFileDownloader: files of a folder of the data folder. What the kernel has in memory is
/// answered at once; what must come from the disk, and hashes, are left to workers.
class FileDownloaderEndpoint final : public zam_platform::EndpointHandler {
public:
    /// None of them is owned; all must outlive this object. The workers must have finished, and
    /// the loop have run what they left, before it goes.
    FileDownloaderEndpoint(asio::io_context& loop, zam_platform::WorkerPool& workers,
                           const FolderFiles& files,
                           std::chrono::milliseconds settleTime = kStampSettleTime);

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

    /// Ends hashing, and closes the files.
    void Close();

    /// How many files were hashed, and how many are open. On the loop thread.
    std::size_t Hashed() const noexcept { return hashes_.Computed(); }
    std::size_t OpenCount() const noexcept { return open_.Count(); }

private:
    /// What a worker found on the disk.
    struct Found {
        int code = 0;  ///< with a failure there is no file
        OpenFilePtr file;
        ChunkHead head;
        std::vector<unsigned char> answer;
    };
    using Responder = zam_platform::Responder;

    void GetFileInfo(const zam_platform::Request& request, Responder responder);
    void AskHash(uid_t user, const OpenFilePtr& file, const std::shared_ptr<Responder>& responder);
    void GetFileChunk(const zam_platform::Request& request, Responder responder);
    bool AnswerFromMemory(const zam_connector::FileChunkParams& params, Responder& responder,
                          OpenFilePtr& file);
    void OnChunkRead(std::uint64_t offset, Found& found, Responder& responder);
    Found Open(const std::string& path) const;
    Found Read(const zam_connector::FileChunkParams& params, const OpenFilePtr& file) const;

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    const FolderFiles& files_;
    OpenFiles open_;
    FileHashes hashes_;
    SequentialReader reader_;
    std::vector<unsigned char> answer_;  ///< the arena of the answer being made
};

}  // namespace zam_service
