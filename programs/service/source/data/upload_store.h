#pragma once

#include <sys/types.h>

#include <array>
#include <asio/io_context.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "channels/upload_quota.h"
#include "common/raw_zam_param.h"
#include "data/folder_files.h"
#include "data/history.h"
#include "data/upload_file.h"
#include "zam_platform/server/worker_pool.h"

namespace zam_service {

/// A tree on its way to the disk.
struct TreeUpload {
    UploadKind kind = UploadKind::Settings;
    uid_t user = 0;  ///< whose client sends it
    std::vector<zam_connector::common::RawZamParam> records;
    UploadShare share;  ///< what the records take of their user's quota
};

/// Keeps what clients send: on the disk, with a line in the history. Uploads are stored one after
/// the other, in the order in which they come. On the loop thread only.
class UploadStore {
public:
    /// Told on the loop thread how an upload went: 0 and the hash of the tree when it is on the
    /// disk and in the history. "Invalid argument", "Media error" or "Insufficient resources"
    /// otherwise; the upload before stands then, unless the disk or memory failed the history
    /// alone.
    using Done = std::function<void(int code, std::uint64_t hash)>;

    /// None of them is owned; all must outlive this object. Removes what an earlier run left half
    /// written and reads back what it stored. Blocks.
    UploadStore(asio::io_context& loop, zam_platform::WorkerPool& workers, const FolderFiles& files,
                History& history);

    void Store(TreeUpload upload, Done done);
    void Store(UploadKind kind, uid_t user, std::string text, Done done);

    /// Stores nothing; `done` gets 0 and the hash of the tree that stands when all that came before
    /// is stored, `kAbsentHash` when there is none.
    void Keep(UploadKind kind, uid_t user, Done done);

    /// Destroys an upload that is not stored. A large one is left to a worker, because that takes a
    /// while, and keeps its share until it is gone.
    void Discard(TreeUpload upload) noexcept;

    /// The hash of the settings that were uploaded last; `kAbsentHash` when none were.
    std::uint64_t SettingsHash() const noexcept { return StandingHash(UploadKind::Settings); }

    /// Called when settings that were uploaded stand on the disk, also when they equal those
    /// before: their client waits to hear that they have come. Must not throw.
    void OnSettings(std::function<void()> observer) { onSettings_ = std::move(observer); }

    /// Uploads whose `Done` was not called yet. The service ends when there are none.
    std::size_t Unanswered() const noexcept { return unanswered_; }

private:
    using Records = std::vector<zam_connector::common::RawZamParam>;

    /// Does `store` behind all that was posted before.
    void PostStore(UploadKind kind, uid_t user, std::function<UploadOutcome()> store, Done done);
    void DestroyDiscarded() noexcept;

    std::uint64_t& StandingHash(UploadKind kind) noexcept {
        return hashes_.at(static_cast<std::size_t>(kind));
    }
    std::uint64_t StandingHash(UploadKind kind) const noexcept {
        return hashes_.at(static_cast<std::size_t>(kind));
    }

    void End(const Done& done, int code, std::uint64_t hash);
    void OnStored(UploadKind kind, const UploadOutcome& outcome, History::Place place,
                  const Done& done);

    asio::io_context& loop_;
    zam_platform::WorkerPool& workers_;
    const FolderFiles& files_;
    History& history_;
    std::array<std::uint64_t, kUploadKinds> hashes_{};  ///< of the trees that stand, by kind
    std::deque<TreeUpload> discarded_;                  ///< the first is being destroyed
    bool isDestroying_ = false;
    std::function<void()> onSettings_;
    std::size_t unanswered_ = 0;
};

}  // namespace zam_service
