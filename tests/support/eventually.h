#pragma once

#include <chrono>
#include <functional>

namespace zam_test {

/// Longest wait for what must happen; only a broken build reaches it.
inline constexpr std::chrono::seconds kBound{60};

/// Asks again and again until `condition` holds, for what has no event to wait on; false when it
/// does not within the bound.
bool Eventually(const std::function<bool()>& condition);

}  // namespace zam_test
