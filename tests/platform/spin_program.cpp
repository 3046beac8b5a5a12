#include <sys/auxv.h>

#include <chrono>
#include <cstdlib>
#include <string_view>

#include "zam_platform/spin_setting.h"

/// zam_spin_program client|service: how long this process looks, in microseconds, as its exit
/// status; 100 more when the kernel takes it for one that has got more rights than its caller.
int main(int argc, char** argv) {
    constexpr int kIsSecure = 100;
    const bool isClient = argc == 2 && std::string_view(argv[1]) == "client";
    const auto cap = isClient ? zam_platform::ClientSpinCap() : zam_platform::SpinCap();
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(cap).count();
    std::_Exit(static_cast<int>(us) + (::getauxval(AT_SECURE) != 0 ? kIsSecure : 0));
}
