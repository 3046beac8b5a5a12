#include "channels/upload_quota.h"

namespace zam_service {

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
    if (usage_ == nullptr || bytes > perUpload_ - taken_) {
        return false;
    }
    std::size_t& ofUser = (*usage_)[user_];
    if (bytes > perUser_ - ofUser) {
        return false;
    }
    ofUser += bytes;
    taken_ += bytes;
    return true;
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
    const auto found = usage_->find(user);
    return found == usage_->end() ? 0 : found->second;
}

}  // namespace zam_service
