#pragma once

#include <cstdint>
#include <vector>

namespace zam_platform::testing {

/// The lower half of a system call's argument, as far as a mask shows it.
struct ArgumentIs {
    unsigned index;  ///< from 0
    std::uint32_t bits;
    std::uint32_t mask = ~std::uint32_t{0};
};

/// From now on the kernel refuses the calling thread, and those that it starts, this system call
/// with this error, where all of these arguments are as told. Holds until the thread ends. Throws
/// `std::system_error`.
void RefuseSystemCall(long number, int error, const std::vector<ArgumentIs>& where = {});

}  // namespace zam_platform::testing
