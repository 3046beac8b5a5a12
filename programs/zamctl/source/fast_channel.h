#pragma once

#include <string>

#include "connector_provider.h"
#include "fields.h"
#include "system_view.h"

namespace zamctl {

/// Of calls that are made one behind the other.
inline constexpr char kWhatItNeeds[] =
    "it is for calls within some 50 us of one another, from another CPU than the service's";

/// Whether calls may go through memory: it is turned off nowhere, as far as is known.
bool MayBeFast(const FastChannelUse& use) noexcept;

/// What calls have made of the fast channel, for people and as the members of a document.
struct FastChannelReport {
    std::string text;  ///< without a line's end
    Fields fields;
};

/// Of the calls between `before` and `after`. `whenNone` says what it is for, and stands behind the
/// counts when none of the calls went through memory although they might have.
FastChannelReport ReportFastChannel(const FastChannelUse& before, const FastChannelUse& after,
                                    const SystemView& system, const std::string& whenNone);

}  // namespace zamctl
