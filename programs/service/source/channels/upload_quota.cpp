#include "channels/upload_quota.h"

#include <fmt/format.h>

#include "channels/saturated.h"

namespace zam_service {
namespace {

template <typename Usage>
std::size_t TakenIn(const std::shared_ptr<Usage>& usage, uid_t user) {
    if (usage == nullptr) {
        return 0;
    }
    const auto found = usage->find(user);
    return found == usage->end() ? 0 : found->second;
}

}  // namespace

UploadShare::UploadShare(UploadShare&& other) noexcept {
    *this = std::move(other);
}

UploadShare& UploadShare::operator=(UploadShare&& other) noexcept {
    if (this != &other) {
        Return();
        usage_ = std::move(other.usage_);
        user_ = other.user_;
        perUpload_ = other.perUpload_;
        perUser_ = other.perUser_;
        taken_ = std::exchange(other.taken_, 0);
    }
    return *this;
}

bool UploadShare::Grow(std::size_t bytes) {
    if (usage_ == nullptr || !Excess(bytes).empty()) {
        return false;
    }
    (*usage_)[user_] += bytes;
    taken_ += bytes;
    return true;
}

std::string UploadShare::Excess(std::size_t bytes) const {
    if (bytes > perUpload_ - taken_) {
        return fmt::format("it would take {} bytes of memory, limit {}",
                           SaturatedSum(taken_, bytes), perUpload_);
    }
    const std::size_t ofUser = TakenIn(usage_, user_);
    if (bytes > perUser_ - ofUser) {
        return fmt::format("the uploads of user {} would take {} bytes of memory, limit {}", user_,
                           SaturatedSum(ofUser, bytes), perUser_);
    }
    return {};
}

void UploadShare::Return() noexcept {
    if (usage_ == nullptr || taken_ == 0) {
        return;
    }
    const auto ofUser = usage_->find(user_);
    ofUser->second -= std::exchange(taken_, 0);
    if (ofUser->second == 0) {
        usage_->erase(ofUser);
    }
}

std::size_t UploadQuota::TakenBy(uid_t user) const {
    return TakenIn(usage_, user);
}

}  // namespace zam_service
