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
    const bool holds = zam_test::Eventually(condition);
    EXPECT_TRUE(holds) << "did not come about: " << what;
    return holds;
}

}  // namespace zam_platform::testing
