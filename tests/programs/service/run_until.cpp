#include "run_until.h"

#include <algorithm>
#include <chrono>

#include "support/eventually.h"

namespace zam_service::testing {

bool RunUntil(asio::io_context& loop, const std::function<bool()>& condition) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + zam_test::kBound;
    while (!condition()) {
        loop.restart();
        if (Clock::now() >= end) {
            return false;
        }
        // A condition may come to hold without an event of the loop's, by a worker's doing.
        loop.run_one_until(std::min(end, Clock::now() + std::chrono::milliseconds(50)));
    }
    return true;
}

}  // namespace zam_service::testing
