#include "support/scoped_environment.h"

#include <stdlib.h>

namespace zam_test {
namespace {

void SetVariable(const char* name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name, value->c_str(), 1);
    } else {
        ::unsetenv(name);
    }
}

}  // namespace

ScopedEnvironment::ScopedEnvironment(const char* name, const std::optional<std::string>& value)
    : name_(name) {
    if (const char* const before = ::getenv(name); before != nullptr) {
        before_ = before;
    }
    SetVariable(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    SetVariable(name_, before_);
}

}  // namespace zam_test
