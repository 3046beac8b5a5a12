#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace zam_platform::testing {

/// Longest wait for what must happen; only a broken build reaches it.
inline constexpr std::chrono::seconds kBound{60};

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

/// Asks again and again until `condition` holds, for what has no event to wait on. Fails the test
/// and gives false when `kBound` has passed.
bool Await(const std::string& what, const std::function<bool()>& condition);

}  // namespace zam_platform::testing
