#include "data/upload_store.h"

#include <fmt/format.h>

#include <chrono>
#include <new>
#include <optional>
#include <utility>

#include "common/log.h"
#include "data/content_hash.h"
#include "data/history_line.h"
#include "lanes.h"
#include "result_codes.h"

namespace zam_service {
namespace {

constexpr char kSourceFile[] = "upload_store";

/// Records that are destroyed in well under a millisecond.
constexpr std::size_t kFewRecords = 1000;
/// The workers had no memory to store it, nor to say so.
const UploadOutcome& Lacking() noexcept {
    static const UploadOutcome lacking{
        .code = kInsufficientResources, .hash = kAbsentHash, .error = "out of memory"};
    return lacking;
}

std::string LineOf(UploadKind kind, const UploadOutcome& outcome) {
    HistoryLine line("upload", std::chrono::system_clock::now());
    line.Add("upload", NameOf(kind));
    if (outcome.hash != kAbsentHash) {
        line.Add("hash", fmt::format("{:#018x}", outcome.hash));
    }
    return line.Text();
}

}  // namespace

UploadStore::UploadStore(asio::io_context& loop, zam_platform::WorkerPool& workers,
                         const FolderFiles& files, History& history)
    : loop_(loop), workers_(workers), files_(files), history_(history) {
    RemoveUnfinished(files_);
    settingsHash_ = StoredHash(files_, UploadKind::Settings);
}

void UploadStore::Store(TreeUpload upload, Done done) {
    // Kept until the end has come back to the loop: the quota counts on that thread.
    auto kept = std::make_shared<TreeUpload>(std::move(upload));
    PostStore(
        kept->kind, kept->user,
        [this, kept] { return StoreTree(files_, kept->kind, std::move(kept->records)); },
        [kept, done = std::move(done)](int code, std::uint64_t hash) {
            kept->share.Return();
            done(code, hash);
        });
}

void UploadStore::Store(UploadKind kind, uid_t user, std::string text, Done done) {
    PostStore(
        kind, user, [this, kind, text = std::move(text)] { return StoreText(files_, kind, text); },
        std::move(done));
}

void UploadStore::Discard(TreeUpload upload) noexcept {
    if (upload.records.size() <= kFewRecords) {
        return;
    }
    try {
        auto kept = std::make_shared<TreeUpload>(std::move(upload));
        // Where there is no room for it, or the service ends, it goes here.
        workers_.PostTo(
            loop_, kUploadLane,
            [kept] {
                kept->records = std::vector<zam_connector::common::RawZamParam>();
                return true;
            },
            [kept](std::optional<bool> /*done*/) { kept->share.Return(); });
    } catch (const std::bad_alloc&) {
        // It goes here as well.
    }
}

void UploadStore::Keep(UploadKind kind, uid_t user, Done done) {
    Post(
        user,
        [this, kind] {
            return UploadOutcome{.code = kNoError, .hash = StoredHash(files_, kind), .error = {}};
        },
        [this](const UploadOutcome& outcome, const Done& end) {
            End(end, outcome.code, outcome.hash);
        },
        std::move(done));
}

void UploadStore::PostStore(UploadKind kind, uid_t user, std::function<UploadOutcome()> store,
                            Done done) {
    Post(
        user, std::move(store),
        [this, kind](const UploadOutcome& outcome, const Done& end) {
            OnStored(kind, outcome, end);
        },
        std::move(done));
}

void UploadStore::Post(uid_t user, std::function<UploadOutcome()> work,
                       std::function<void(const UploadOutcome&, const Done&)> then, Done done) {
    auto end = std::make_shared<Done>(std::move(done));
    const bool posted =
        workers_.PostTo(loop_, kUploadLane, user, std::move(work),
                        [then = std::move(then), end](const std::optional<UploadOutcome>& outcome) {
                            then(outcome ? *outcome : Lacking(), *end);
                        });
    ++unanswered_;
    if (!posted) {
        End(*end, kInsufficientResources, kAbsentHash);
    }
}

void UploadStore::TellSettings() noexcept {
    try {
        if (onSettings_) {
            onSettings_();
        }
    } catch (const std::bad_alloc&) {
        zam_connector::common::Log(zor::logger::kLevelError,
                                   zam_connector::common::Here(kSourceFile, "TellSettings"),
                                   "out of memory: not everybody was told of the settings");
    }
}

void UploadStore::End(const Done& done, int code, std::uint64_t hash) {
    --unanswered_;
    done(code, hash);
}

void UploadStore::OnStored(UploadKind kind, const UploadOutcome& outcome, const Done& done) {
    if (outcome.code != kNoError) {
        zam_connector::common::Log(
            zor::logger::kLevelError, zam_connector::common::Here(kSourceFile, "OnStored"),
            "{} upload refused: {}; the one before stays", NameOf(kind), outcome.error);
        End(done, outcome.code, kAbsentHash);
        return;
    }
    if (kind == UploadKind::Settings) {
        settingsHash_ = outcome.hash;
        TellSettings();
    }
    std::string line;
    History::Done told;
    try {
        line = LineOf(kind, outcome);
        told = [this, done, hash = outcome.hash](int code) {
            End(done, code, code == kNoError ? hash : kAbsentHash);
        };
    } catch (const std::bad_alloc&) {
        End(done, kInsufficientResources, kAbsentHash);
        return;
    }
    history_.Append(std::move(line), std::move(told));
}

}  // namespace zam_service
