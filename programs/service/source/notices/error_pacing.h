#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Between two answers without a notice to one registration. Who waits for notices asks again at
/// once, whatever the answer: without a pause, an error that lasts would take a core on either
/// side.
inline constexpr std::chrono::milliseconds kErrorPause{250};

/// Says when the next answer without a notice may go to a registration. Told the time; no timer.
/// One thread at a time.
class ErrorPacing {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// When an answer of now may go: at once, or a pause behind the one before. It counts as gone
    /// then.
    TimePoint Next(const zam_platform::SessionToken& client, std::uint32_t id, TimePoint now);

    /// Registrations that are remembered.
    std::size_t Count() const noexcept { return last_.size(); }

private:
    static constexpr std::size_t kLeastForgetting = 64;

    void Forget(TimePoint now);

    std::map<std::pair<zam_platform::SessionToken, std::uint32_t>, TimePoint> last_;
    std::size_t forgetAt_ = kLeastForgetting;  ///< so many entries
};

}  // namespace zam_service
