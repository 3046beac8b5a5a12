#include "channels/channel_ids.h"

#include <random>

namespace zam_service {
namespace {

/// Numbers of one run: enough for a channel each microsecond for over an hour, and for ever in
/// practice.
constexpr unsigned kRunBits = 32;
constexpr std::uint32_t kMaxRun = 0x3FFFFFFF;

}  // namespace

ChannelIds::ChannelIds() : last_(0) {
    std::random_device random;
    last_ = static_cast<std::int64_t>(random() & kMaxRun) << kRunBits;
}

}  // namespace zam_service
