#pragma once

#include <algorithm>
#include <asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace zam_service::testing {

/// Longer than anything takes that works.
inline constexpr std::chrono::seconds kBound{60};

using zam_connector::test::TemporaryFolder;

/// Runs the loop until `condition` holds; false when it does not within the bound.
inline bool RunUntil(asio::io_context& loop, const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + kBound;
    while (!condition()) {
        loop.restart();
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        loop.run_one_until(
            std::min(end, std::chrono::steady_clock::now() + std::chrono::milliseconds(50)));
    }
    return true;
}

/// Parts of a text, at every newline; what stands behind the last one counts when not empty.
inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace zam_service::testing
