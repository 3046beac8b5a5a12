#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace zam_service {

/// Most memory that one upload may take, its records and what they rebuild to, in bytes: over a
/// million nodes.
inline constexpr std::size_t kMaxUploadBytes = std::size_t{512} << 20U;

/// Most memory that the unfinished uploads of one user may take together, in bytes.
inline constexpr std::size_t kMaxUserUploadBytes = std::size_t{1} << 30U;

/// What one upload takes of its user's quota, which gets it back when the object goes. The quota
/// need not outlive it. On the loop thread only.
class UploadShare {
public:
    UploadShare() = default;
    UploadShare(UploadShare&& other) noexcept;
    UploadShare& operator=(UploadShare&& other) noexcept;
    ~UploadShare() { Return(); }

    /// Takes more. False, with nothing taken, when the upload or its user would have too much.
    bool Grow(std::size_t bytes);

    /// Which limit so many bytes more would exceed, and by what; empty when none.
    std::string Excess(std::size_t bytes) const;

    /// Gives everything back.
    void Return() noexcept;

private:
    friend class UploadQuota;
    using Usage = std::map<uid_t, std::size_t>;
    UploadShare(std::shared_ptr<Usage> usage, uid_t user, std::size_t perUpload,
                std::size_t perUser)
        : usage_(std::move(usage)), user_(user), perUpload_(perUpload), perUser_(perUser) {}

    std::shared_ptr<Usage> usage_;
    uid_t user_ = 0;
    std::size_t perUpload_ = 0;
    std::size_t perUser_ = 0;
    std::size_t taken_ = 0;
};

/// The memory that users' unfinished uploads take. On the loop thread only.
class UploadQuota {
public:
    explicit UploadQuota(std::size_t perUpload = kMaxUploadBytes,
                         std::size_t perUser = kMaxUserUploadBytes)
        : perUpload_(perUpload), perUser_(perUser) {}

    /// The share, still empty, of a new upload.
    UploadShare Begin(uid_t user) const { return {usage_, user, perUpload_, perUser_}; }

    /// Bytes that a user's uploads have taken.
    std::size_t TakenBy(uid_t user) const;

private:
    std::shared_ptr<UploadShare::Usage> usage_ = std::make_shared<UploadShare::Usage>();
    std::size_t perUpload_;
    std::size_t perUser_;
};

}  // namespace zam_service
