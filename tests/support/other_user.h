#pragma once

#include <sys/types.h>

namespace zam_test {

/// A user that runs nothing here, for files that belong to somebody else.
inline constexpr uid_t kSomebodyElse = 4242;

}  // namespace zam_test
