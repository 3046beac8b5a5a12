#pragma once

#include "support/scoped_environment.h"

namespace zam_bench {

/// How the calls of two processes go.
enum class Way {
    Free,    ///< as both see fit
    Socket,  ///< over the socket alone
};

/// Lets processes that start within its scope call and serve in one way. It holds for a process
/// that has not used the library before: what it reads of the environment it reads once.
zam_test::ScopedEnvironment Take(Way way);

}  // namespace zam_bench
