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
    for (const UploadKind kind : {UploadKind::Settings, UploadKind::Eulas, UploadKind::Updates}) {
        StandingHash(kind) = StoredHash(files_, kind);
    }
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
        discarded_.push_back(std::move(upload));
    } catch (const std::bad_alloc&) {
        return;  // it goes here
    }
    DestroyDiscarded();
}

/// One after the other, whoever's they are, so that they take one place of the workers together.
void UploadStore::DestroyDiscarded() noexcept {
    if (isDestroying_ || discarded_.empty()) {
        return;
    }
    try {
        auto records = std::make_shared<Records>();
        records->swap(discarded_.front().records);
        isDestroying_ = workers_.PostTo(
            loop_, kUploadLane,
            [records] {
                *records = Records();
                return true;
            },
            [this](std::optional<bool> /*isDone*/) {
                discarded_.pop_front();
                isDestroying_ = false;
                DestroyDiscarded();
            });
        if (!isDestroying_) {
            records->swap(discarded_.front().records);  // with the next upload's end
        }
    } catch (const std::bad_alloc&) {
        // Likewise.
    }
}

void UploadStore::Keep(UploadKind kind, uid_t user, Done done) {
    const auto end = std::make_shared<Done>(std::move(done));
    const auto tell = [this, kind, end](std::optional<bool> /*isDone*/) {
        End(*end, kNoError, StandingHash(kind));
    };
    ++unanswered_;
    // Only to come behind those that are being stored; without a place, what stands now stays.
    if (!workers_.PostTo(
            loop_, kUploadLane, user, [] { return true; }, tell)) {
        tell(true);
    }
}

void UploadStore::PostStore(UploadKind kind, uid_t user, std::function<UploadOutcome()> store,
                            Done done) {
    auto end = std::make_shared<Done>(std::move(done));
    std::optional<History::Place> place = history_.Reserve(user);
    const bool posted =
        place &&
        workers_.PostTo(loop_, kUploadLane, user, std::move(store),
                        [this, kind, end, kept = *std::move(place)](
                            const std::optional<UploadOutcome>& outcome) mutable {
                            OnStored(kind, outcome ? *outcome : Lacking(), std::move(kept), *end);
                        });
    ++unanswered_;
    if (!posted) {
        End(*end, kInsufficientResources, kAbsentHash);
    }
}

void UploadStore::End(const Done& done, int code, std::uint64_t hash) {
    --unanswered_;
    done(code, hash);
}

void UploadStore::OnStored(UploadKind kind, const UploadOutcome& outcome, History::Place place,
                           const Done& done) {
    DestroyDiscarded();
    if (outcome.code != kNoError) {
        zam_connector::common::Log(
            zor::logger::kLevelError, zam_connector::common::Here(kSourceFile, "OnStored"),
            "{} upload refused: {}; the one before stays", NameOf(kind), outcome.error);
        End(done, outcome.code, kAbsentHash);
        return;
    }
    StandingHash(kind) = outcome.hash;
    if (kind == UploadKind::Settings && onSettings_) {
        onSettings_();
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
    history_.Append(std::move(line), std::move(told), std::move(place));
}

}  // namespace zam_service
