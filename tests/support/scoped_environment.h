#pragma once

#include <optional>
#include <string>

namespace zam_test {

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

}  // namespace zam_test
