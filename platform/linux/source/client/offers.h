#pragma once

#include <cstdint>
#include <optional>

#include "zam_platform/channel.h"

namespace zam_platform {

/// Asks the process at the other end of a channel what it offers (of `Offer`), by a lookup of this
/// number: its predecessor may have offered other things. None when it is gone. Throws
/// `PlatformError`.
std::optional<std::uint16_t> AskForOffers(Channel& channel, std::uint64_t number,
                                          const Deadline& deadline);

/// What the answer to a lookup offers.
std::uint16_t OffersIn(const IncomingFrame& lookupAnswer) noexcept;

}  // namespace zam_platform
