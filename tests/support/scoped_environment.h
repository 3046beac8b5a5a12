#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace zam_platform::testing {

/// A directory of its own for one test, with mode 0700; removed with what is in it.
class TempDirectory {
public:
    TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory();

    const std::string& Path() const noexcept { return path_; }
    std::string operator/(const std::string& name) const { return path_ + '/' + name; }

    /// Makes a directory in this one, with exactly that mode, and gives its path.
    std::string Make(const std::string& name, mode_t mode = 0700) const;

    /// Makes an empty file in this one and gives its path.
    std::string MakeFile(const std::string& name) const;

private:
    std::string path_;
};

/// Sets an environment variable, or removes it, until the end of the scope. No other thread may
/// be running that uses the environment.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value);
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment();

private:
    const char* name_;
    std::optional<std::string> before_;
};

}  // namespace zam_platform::testing
