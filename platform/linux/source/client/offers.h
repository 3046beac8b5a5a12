#pragma once

#include <cstdint>

#include "zam_platform/channel.h"

namespace zam_platform {

/// Asks the process at the other end of a channel what it offers, by a lookup of this number: its
/// predecessor may have offered other things. The channel keeps it. False when it is gone. Throws
/// `PlatformError`.
bool AskForOffers(Channel& channel, std::uint64_t number, const Deadline& deadline);

/// What the answer to a lookup offers.
std::uint16_t OffersIn(const IncomingFrame& lookupAnswer) noexcept;

}  // namespace zam_platform
