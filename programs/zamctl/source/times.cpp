#include "times.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <charconv>
#include <ctime>

#include "failure.h"

namespace zamctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// Years of four digits: 0001-01-01 to 9999-12-31.
constexpr std::int64_t kFirstSecond = -62135596800;
constexpr std::int64_t kLastSecond = 253402300799;

struct Split {
    std::time_t seconds;
    std::int64_t milliseconds;
};

Split SplitTime(WallTime time) {
    // Down, so that before 1970 too the milliseconds are not negative.
    const auto whole = std::chrono::floor<seconds>(time);
    return {std::chrono::system_clock::to_time_t(whole),
            std::chrono::floor<milliseconds>(time - whole).count()};
}

}  // namespace

std::string UtcText(WallTime time) {
    const Split split = SplitTime(time);
    std::tm fields{};
    ::gmtime_r(&split.seconds, &fields);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fields, split.milliseconds);
}

std::string LocalText(WallTime time) {
    const Split split = SplitTime(time);
    std::tm fields{};
    ::localtime_r(&split.seconds, &fields);
    return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fields, split.milliseconds);
}

std::string UtcSecondsText(std::int64_t count) {
    if (count < kFirstSecond || count > kLastSecond) {
        return fmt::format("{}", count);
    }
    const std::time_t time = count;
    std::tm fields{};
    ::gmtime_r(&time, &fields);
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fields);
}

std::int64_t ParseUtcSeconds(const std::string& name, const std::string& text) {
    std::int64_t count = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, count);
    if (error == std::errc() && stop == end) {
        return count;
    }
    for (const char* const format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        std::tm fields{};
        const char* const rest = ::strptime(text.c_str(), format, &fields);
        // What is no day of the calendar comes back as another one.
        if (rest == end) {
            const std::tm asked = fields;
            const std::time_t time = ::timegm(&fields);
            if (fields.tm_mday == asked.tm_mday && fields.tm_sec == asked.tm_sec) {
                return time;
            }
        }
    }
    throw UsageError(fmt::format(
        "{}: '{}' is no time: 2026-01-31T12:00:00Z, 2026-01-31 or seconds since 1970", name, text));
}

std::string DurationText(std::chrono::nanoseconds duration) {
    const auto whole = std::chrono::floor<seconds>(duration).count();
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 3600;
    if (whole >= kHour) {
        return fmt::format("{} h {} min", whole / kHour, whole % kHour / kMinute);
    }
    if (whole >= kMinute * 2) {
        return fmt::format("{} min {} s", whole / kMinute, whole % kMinute);
    }
    const double value = std::chrono::duration<double>(duration).count();
    return whole < 10 ? fmt::format("{:.3f} s", value) : fmt::format("{:.1f} s", value);
}

}  // namespace zamctl
