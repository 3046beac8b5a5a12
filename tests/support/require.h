#pragma once

#include <cerrno>
#include <system_error>

namespace zam_test {

/// Throws the error in `errno`, with `what` failed, unless `done`.
inline void Require(bool done, const char* what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

}  // namespace zam_test
