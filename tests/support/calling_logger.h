#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "zor/logger.h"

namespace zam_test {

/// Makes a call for each record of level 4, or of a lower one on, as a logger of an application
/// may, while it lives.
class CallingLogger final : public zor::logger::ZORLogger {
public:
    explicit CallingLogger(std::function<void()> call, int least = zor::logger::kLevelError)
        : call_(std::move(call)), least_(least) {
        InstallRootLogger(this);
    }
    CallingLogger(const CallingLogger&) = delete;
    CallingLogger& operator=(const CallingLogger&) = delete;
    ~CallingLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int level) const override { return level >= least_; }
    void LogImpl(int /*level*/, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view /*text*/) override {
        ++records;
        call_();
    }

    int records = 0;

private:
    const std::function<void()> call_;
    const int least_;
};

}  // namespace zam_test
