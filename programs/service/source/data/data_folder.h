#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "data/folder_files.h"
#include "data/folder_watcher.h"
#include "data/rereader.h"
#include "json_text/json_document.h"
#include "lanes.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// How one file of the data folder is served.
struct ServedFile {
    std::string name;
    Lane lane = kReadLane;
    /// Takes the file's text, empty when there is no file, and returns what publishes its content
    /// on the loop thread. Runs on a worker; what it throws keeps the content before in force.
    std::function<std::function<void()>(std::optional<std::string> text)> read;
    std::size_t maxBytes = kMaxDataFileBytes;
};

/// A file of JSON that `read` turns into a `Content`, and whose default, while there is no file, is
/// a default-constructed `Content`. `publish` runs on the loop thread.
template <typename Content>
ServedFile ServeJson(std::string name, Lane lane, Content (*read)(const zam_json::JsonValue& root),
                     std::function<void(Content)> publish) {
    return {name, lane,
            [name, read, publish = std::move(publish)](
                std::optional<std::string> text) -> std::function<void()> {
                Content content;
                if (text) {
                    const zam_json::JsonDocument document(name, *std::move(text));
                    content = read(document.Root());
                }
                return [publish, content = std::move(content)]() mutable {
                    publish(std::move(content));
                };
            },
            kMaxDataFileBytes};
}

/// Keeps what is served equal to the data folder: reads every file at the start, and again when it
/// changes. What cannot be read or parsed is logged, and the last good version stays (the default,
/// when there was none); what memory was wanting for is read again a little later. Files are read
/// on workers and published on the loop thread; each file is read by one worker at a time. On the
/// loop thread only.
class DataFolder {
public:
    /// All of them are not owned and must outlive this object. Begins to watch. Throws
    /// `zam_platform::PlatformError`.
    DataFolder(asio::io_context& loop, zam_platform::WorkerPool& workers, FolderFiles& files);

    /// Serves one more file, and reads it now: before the loop runs.
    void Serve(ServedFile file);

    /// Called when the folder has been replaced by another that is watched and read now.
    void OnBack(std::function<void()> observer) { onBack_ = std::move(observer); }

    /// Ends watching. What is being read is still published.
    void Close();

private:
    struct Served {
        Served(DataFolder& folder, ServedFile served);

        ServedFile file;
        Rereader reader;
        bool isReturning = false;  ///< was gone, and is there again
        zam_platform::Alarm settle;
    };

    /// What a worker has made of a file.
    struct Outcome {
        std::function<void()> publish;  ///< null when reading failed
        bool exists = false;
        std::string error;
    };

    /// Throws only for want of memory, which is logged.
    Outcome Read(const ServedFile& file) const;
    void OnFile(const std::string& name);
    void OnGone(const std::string& name);
    void Settle(Served& served);
    Served* Find(const std::string& name);
    void OnLost();
    void OnFolder();
    void Reattach();
    void OnRead(const ServedFile& file, const Outcome& outcome);

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    FolderFiles& files_;
    std::list<Served> served_;
    FolderWatcher watcher_;
    zam_platform::Alarm reattach_;
    std::function<void()> onBack_;
    bool isClosed_ = false;
};

}  // namespace zam_service
