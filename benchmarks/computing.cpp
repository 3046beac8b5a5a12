#include "computing.h"

#include <cstdint>

namespace zam_bench {
namespace {

/// Less than a tenth of a microsecond.
constexpr int kSteps = 20;

/// Volatile, or a compiler would see that nobody wants the result.
volatile std::uint64_t g_state = 1;

void ComputeABit() {
    std::uint64_t state = g_state;
    for (int step = 0; step < kSteps; ++step) {
        state ^= state << 13U;
        state ^= state >> 7U;
        state ^= state << 17U;
    }
    g_state = state;
}

}  // namespace

void Compute(std::chrono::nanoseconds time) {
    if (time.count() == 0) {
        return;
    }
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
        ComputeABit();
    }
}

void ComputeForever() {
    for (;;) {
        ComputeABit();
    }
}

}  // namespace zam_bench
