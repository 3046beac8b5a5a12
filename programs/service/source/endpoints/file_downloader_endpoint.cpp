#include "endpoints/file_downloader_endpoint.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/arena.h"
#include "common/download_casts.h"
#include "common/log.h"
#include "files/beneath.h"
#include "lanes.h"
#include "qx/zam_file_downloader.h"
#include "result_codes.h"

namespace zam_service {

using zam_connector::FileChunkParams;
using zam_connector::common::CastFromVd;
using zam_connector::common::Here;
using zam_connector::common::Log;
using zam_platform::Request;
using zam_platform::Responder;

namespace {

using Operation = qx_zam_connector_ZamFileDownloader_operation;

constexpr char kSourceFile[] = "file_downloader_endpoint";

static_assert(kChunkDataOffset % 4 == 0);
static_assert(kChunkAnswerBytes <= qx_zam_connector_ZamFileDownloader_GetFileChunk_response_arena);

/// The parameters of a request; empty when they cannot be read or name nothing that could be a
/// file. Texts of clients are not shown: only a path that is one tells something.
template <typename Message>
auto ParamsOf(const Request& request)
    -> std::optional<decltype(CastFromVd(request.As<Message>().params, &request.arena))> {
    try {
        auto params = CastFromVd(request.As<Message>().params, &request.arena);
        if (IsFilePath(params.path)) {
            return params;
        }
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "ParamsOf"),
            "{}: '{}' cannot be the path of a file", request.rule->name, params.path);
    } catch (const std::out_of_range& error) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "ParamsOf"), "{}: {}", request.rule->name,
            error.what());
    }
    return std::nullopt;
}

void AnswerInfo(Responder& responder, const HashedFile& hashed) {
    zam_connector::common::StackArena<qx_zam_connector_ZamFileDownloader_GetFileInfo_response_arena>
        arena;
    qx_zam_connector_ZamFileDownloader_GetFileInfo_rsp response{};
    if (hashed.code == kNoError) {
        response.info = zam_connector::common::CastToVd(
            zam_connector::FileInfo{
                .sha256 = hashed.sha256,
                .sizeBytes = hashed.stamp.sizeBytes,
                .modificationTime = qor::types::Timestamp(hashed.stamp.modifiedS),
                .chunkSizeBytes = zam_connector::kMaxFileChunkBytes},
            arena.Get());
    }
    response.resultCode = hashed.code;
    responder.Answer(response, arena.Get()->base, arena.Get()->used);
}

void FailInfo(Responder& responder, int code) {
    AnswerInfo(responder, {.code = code, .stamp = {}, .sha256 = {}});
}

/// `answer` holds the data behind the place of the version.
void AnswerChunk(Responder& responder, std::uint64_t offset, const ChunkHead& head,
                 unsigned char* answer) {
    qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp response{};
    WriteVersion(head.stamp, answer);
    response.chunk.crc32 = head.crc32;
    response.chunk.version = {0, kVersionBytes};
    response.chunk.offset.Set(offset);
    response.chunk.totalSizeBytes.Set(head.stamp.sizeBytes);
    if (head.sizeBytes != 0) {
        response.chunk.data = {kChunkDataOffset, head.sizeBytes};
    }
    response.resultCode = head.code;
    responder.Answer(response, answer, kChunkDataOffset + head.sizeBytes);
}

/// Nothing is known of the file.
void FailChunk(Responder& responder, int code) {
    qx_zam_connector_ZamFileDownloader_GetFileChunk_rsp response{};
    response.resultCode = code;
    responder.Answer(response);
}

/// What a client got wrong is no failure of the service.
int LogFileError(const FileError& error) {
    const bool isClients = error.Code() == kNotFound;
    Log(isClients ? zor::logger::kLevelInformation : zor::logger::kLevelError,
        Here(kSourceFile, "LogFileError"), "{}", error.what());
    return error.Code();
}

}  // namespace

FileDownloaderEndpoint::FileDownloaderEndpoint(asio::io_context& loop,
                                               zam_platform::WorkerPool& workers,
                                               const FolderFiles& files,
                                               std::chrono::milliseconds settleTime)
    : loop_(loop),
      workers_(workers),
      files_(files),
      open_(loop, files),
      hashes_(loop, workers, settleTime),
      reader_(loop),
      answer_(kChunkAnswerBytes) {}

void FileDownloaderEndpoint::Close() {
    hashes_.Close();
    reader_.Close();
    open_.Close();
}

void FileDownloaderEndpoint::OnCall(const Request& request, Responder responder) {
    switch (static_cast<Operation>(request.operation)) {
        case Operation::GetFileInfo:
            GetFileInfo(request, std::move(responder));
            break;
        case Operation::GetFileChunk:
            GetFileChunk(request, std::move(responder));
            break;
        default:
            break;  // the server lets through no other
    }
}

void FileDownloaderEndpoint::GetFileInfo(const Request& request, Responder responder) {
    const auto params = ParamsOf<qx_zam_connector_ZamFileDownloader_GetFileInfo_req>(request);
    if (!params) {
        FailInfo(responder, kInvalidArgument);
        return;
    }
    const auto kept = std::make_shared<Responder>(std::move(responder));
    const uid_t user = request.client.user;
    const bool posted = workers_.PostTo(
        loop_, kFileLane, user, [this, path = params->path] { return Open(path); },
        [this, user, kept](const std::optional<Found>& found) {
            if (!found || found->code != kNoError) {
                FailInfo(*kept, found ? found->code : kInsufficientResources);
                return;
            }
            AskHash(user, found->file, kept);
        });
    if (!posted) {
        FailInfo(*kept, kInsufficientResources);
    }
}

void FileDownloaderEndpoint::AskHash(uid_t user, const OpenFilePtr& file,
                                     const std::shared_ptr<Responder>& responder) {
    open_.Keep(file);
    try {
        hashes_.Ask(user, file,
                    [responder](const HashedFile& hashed) { AnswerInfo(*responder, hashed); });
    } catch (const FileError& error) {
        FailInfo(*responder, LogFileError(error));
    }
}

void FileDownloaderEndpoint::GetFileChunk(const Request& request, Responder responder) {
    const auto params = ParamsOf<qx_zam_connector_ZamFileDownloader_GetFileChunk_req>(request);
    if (!params) {
        FailChunk(responder, kInvalidArgument);
        return;
    }
    OpenFilePtr file;
    if (AnswerFromMemory(*params, responder, file)) {
        return;
    }
    const auto kept = std::make_shared<Responder>(std::move(responder));
    const bool posted = workers_.PostTo(
        loop_, kFileLane, request.client.user,
        [this, params = *params, file] { return Read(params, file); },
        [this, kept, offset = params->offset](std::optional<Found> found) {
            if (found) {
                OnChunkRead(offset, *found, *kept);
            } else {
                FailChunk(*kept, kInsufficientResources);
            }
        });
    if (!posted) {
        FailChunk(*kept, kInsufficientResources);
    }
}

void FileDownloaderEndpoint::OnChunkRead(std::uint64_t offset, Found& found, Responder& responder) {
    if (found.code != kNoError) {
        // The next call opens the path anew, in case it is this descriptor that is of no use.
        open_.Drop(found.file);
        FailChunk(responder, found.code);
        return;
    }
    open_.Keep(found.file);
    AnswerChunk(responder, offset, found.head, found.answer.data());
}

/// False, with the call not answered, when that takes the disk: then of `file`, when that is open.
/// Failures are left to the other way, from the path on.
bool FileDownloaderEndpoint::AnswerFromMemory(const FileChunkParams& params, Responder& responder,
                                              OpenFilePtr& file) {
    try {
        file = open_.Find(params.path);
        if (file == nullptr) {
            return false;
        }
        const auto head = reader_.Read(file, params, answer_);
        if (!head) {
            return false;
        }
        AnswerChunk(responder, params.offset, *head, answer_.data());
        return true;
    } catch (const FileError&) {
        file.reset();
        return false;
    }
}

/// Runs on a worker.
FileDownloaderEndpoint::Found FileDownloaderEndpoint::Open(const std::string& path) const {
    Found found;
    try {
        found.file = OpenServed(files_, path);
    } catch (const FileError& error) {
        found.code = LogFileError(error);
    } catch (const std::exception& exception) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Open"), "{}", exception.what());
        found.code = kInsufficientResources;
    }
    return found;
}

/// Runs on a worker. Opens the path only when no `file` is open: reading ahead goes by the open
/// file, and would begin anew with another.
FileDownloaderEndpoint::Found FileDownloaderEndpoint::Read(const FileChunkParams& params,
                                                           const OpenFilePtr& file) const {
    Found found;
    if (file != nullptr) {
        found.file = file;
    } else {
        found = Open(params.path);
    }
    if (found.code != kNoError) {
        return found;
    }
    try {
        found.answer.resize(kChunkAnswerBytes);
        found.head =
            *ReadChunk(*found.file, params, found.answer.data() + kChunkDataOffset, DiskWait::Yes);
    } catch (const FileError& error) {
        found.code = LogFileError(error);
    } catch (const std::exception& exception) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Read"), "{}", exception.what());
        found.code = kInsufficientResources;
    }
    return found;
}

}  // namespace zam_service
