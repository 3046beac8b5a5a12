#include "support/background.h"

#include <gtest/gtest.h>

#include <exception>
#include <utility>

namespace zam_platform::testing {

Background::Background(std::function<void()> work)
    : thread_([work = std::move(work)] {
          try {
              work();
          } catch (const std::exception& exception) {
              ADD_FAILURE() << "on another thread: " << exception.what();
          }
      }) {}

Background::~Background() {
    Join();
}

void Background::Join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool Await(const std::string& what, const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + kBound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= limit) {
            ADD_FAILURE() << "did not come about: " << what;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace zam_platform::testing
