#include "support/temp_directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "support/require.h"
#include "zam_platform/unique_fd.h"

namespace zam_platform::testing {
namespace {

void SetVariable(const char* name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name, value->c_str(), 1);
    } else {
        ::unsetenv(name);
    }
}

}  // namespace

TempDirectory::TempDirectory() : path_("/tmp/zam_platform_test.XXXXXX") {
    Require(::mkdtemp(path_.data()) != nullptr, "mkdtemp");
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDirectory::Make(const std::string& name, mode_t mode) const {
    std::string path = *this / name;
    Require(::mkdir(path.c_str(), 0700) == 0, "mkdir");
    Require(::chmod(path.c_str(), mode) == 0, "chmod");
    return path;
}

std::string TempDirectory::MakeFile(const std::string& name) const {
    std::string path = *this / name;
    const UniqueFd file(::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    Require(static_cast<bool>(file), "open");
    return path;
}

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<std::string>& value)
    : name_(name) {
    if (const char* const before = std::getenv(name); before != nullptr) {
        before_ = before;
    }
    SetVariable(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    SetVariable(name_, before_);
}

}  // namespace zam_platform::testing
