#pragma once

#include <cstdio>
#include <cstdlib>

namespace zam_fuzz {

/// Ends the process when `holds` is false: what a fuzzer takes for a crash. `property` says in one
/// sentence what ought to be so.
inline void Check(bool holds, const char* property, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "%s:%d: broken: %s\n", file, line, property);
        std::abort();
    }
}

}  // namespace zam_fuzz
