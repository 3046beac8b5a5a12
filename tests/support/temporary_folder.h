#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zam_test {

/// What a file holds; empty when it cannot be read.
std::string Content(const std::filesystem::path& path);

/// A folder of a test's own, with mode 0700; removed with what is in it. What fails throws, but for
/// the removal. Thread-safe as the file system is.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    /// Its own path, or that of what is called `name` in it, be it there or not.
    std::string Path(std::string_view name = {}) const;

    /// Makes a folder in this one, with exactly that mode whatever the process's mask is, and gives
    /// its path.
    std::string MakeFolder(std::string_view name, mode_t mode = 0700) const;

    /// Makes a file in this one or replaces its content, and gives its path.
    std::string Write(std::string_view name, std::string_view text) const;

    /// What a file in this one holds; empty when it cannot be read.
    std::string Read(std::string_view name) const;

    /// The names in it, in any order.
    std::vector<std::string> Names() const;

private:
    std::string path_;
};

}  // namespace zam_test
