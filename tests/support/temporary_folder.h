#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zam_connector::test {

/// What a file holds; empty when it cannot be read.
inline std::string Content(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

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

    std::string Read(std::string_view name) const { return Content(Path(name)); }

    /// The names in it, in any order.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

private:
    std::filesystem::path path_;
};

}  // namespace zam_connector::test
