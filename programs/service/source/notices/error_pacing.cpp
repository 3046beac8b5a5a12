#include "notices/error_pacing.h"

#include <algorithm>

namespace zam_service {

ErrorPacing::TimePoint ErrorPacing::Next(const zam_platform::SessionToken& client, std::uint32_t id,
                                         TimePoint now) {
    if (last_.size() >= forgetAt_) {
        Forget(now);
    }
    const auto [entry, isFirst] = last_.try_emplace({client, id}, now);
    if (!isFirst) {
        entry->second = std::max(now, entry->second + kErrorPause);
    }
    return entry->second;
}

/// What is remembered is bounded by what can be answered in one pause.
void ErrorPacing::Forget(TimePoint now) {
    std::erase_if(last_, [now](const auto& entry) { return entry.second + kErrorPause <= now; });
    forgetAt_ = std::max(kLeastForgetting, 2 * last_.size());
}

}  // namespace zam_service
