#pragma once

#include <string_view>

#include "zor/logger.h"

namespace zam_test {

/// Takes every record and keeps none, while it lives.
class QuietLogger final : public zor::logger::ZORLogger {
public:
    QuietLogger() { InstallRootLogger(this); }
    ~QuietLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int /*level*/) const override { return true; }
    void LogImpl(int /*level*/, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view /*text*/) override {}
};

}  // namespace zam_test
