#pragma once

#include <functional>
#include <string>
#include <thread>

#include "support/eventually.h"

namespace zam_platform::testing {

using zam_test::kBound;

/// Runs a function on a thread of its own and joins it at the end. What the function throws fails
/// the test.
class Background {
public:
    explicit Background(std::function<void()> work);
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;
    ~Background();

    void Join();

private:
    std::thread thread_;
};

/// `Eventually`, which fails the test when `condition` does not come to hold.
bool Await(const std::string& what, const std::function<bool()>& condition);

}  // namespace zam_platform::testing
