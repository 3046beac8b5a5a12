#include "support/eventually.h"

#include <thread>

namespace zam_test {

bool Eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kBound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        // Only spares the processor: nothing depends on its length.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace zam_test
