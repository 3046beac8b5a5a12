#pragma once

#include <stdlib.h>
#include <algorithm>
#include <asio/io_context.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zam_service::testing {

/// Longer than anything takes that works.
inline constexpr std::chrono::seconds kBound{60};

/// A folder of a test's own, removed at its end.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string path = (std::filesystem::temp_directory_path() / "zam_test.XXXXXX").string();
        if (::mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("mkdtemp " + path);
        }
        path_ = path;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string Path(std::string_view name = {}) const {
        return name.empty() ? path_.string() : (path_ / name).string();
    }

    void Write(std::string_view name, std::string_view text) const {
        std::ofstream(Path(name), std::ios::binary | std::ios::trunc) << text;
    }

    std::string Read(std::string_view name) const {
        std::ostringstream text;
        text << std::ifstream(Path(name), std::ios::binary).rdbuf();
        return text.str();
    }

private:
    std::filesystem::path path_;
};

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
