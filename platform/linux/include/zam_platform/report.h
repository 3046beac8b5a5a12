#pragma once

#include <new>
#include <string>
#include <string_view>

#include "zor/logger.h"

namespace zam_platform {

/// Writes a record of the platform's own to the root logger, when the level is on. `file` is the
/// stem of the source file. Refusals and broken rules are level 4; in calls, a service that is not
/// there, or went away, is level 3, since the library logs the failed call as well. Thread-safe.
inline void Report(int level, const char* file, const char* function, std::string_view text,
                   int line = __builtin_LINE()) noexcept {
    zor::logger::ZORLogger& logger = zor::logger::ZORLogger::RootLogger();
    if (logger.IsEnabled(level)) {
        logger.LogImpl(level, file, line, function, text);
    }
}

/// The same with the text that `text()` makes, which is called only when the level is on. Where
/// there is no memory for it, the record tells of that.
template <typename Text>
void ReportText(int level, const char* file, const char* function, Text&& text,
                int line = __builtin_LINE()) noexcept {
    zor::logger::ZORLogger& logger = zor::logger::ZORLogger::RootLogger();
    if (!logger.IsEnabled(level)) {
        return;
    }
    std::string made;
    std::string_view shown = "no memory for the text of this record";
    try {
        made = text();
        shown = made;
    } catch (const std::bad_alloc&) {
    }
    logger.LogImpl(level, file, line, function, shown);
}

}  // namespace zam_platform
