#pragma once

namespace zamctl {

inline constexpr const char* kVersion = ZAMCTL_VERSION;

}  // namespace zamctl
