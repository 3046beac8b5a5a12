#include "shared/cpu_share.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "zam_platform/unique_fd.h"

namespace zam_platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLookPeriod{2};
constexpr double kLeastCpus = 2;
constexpr std::string_view kGroups = "/sys/fs/cgroup";
constexpr std::string_view kFile = "/cpu.max";

/// A path or a short file's text, in no memory but its own.
struct Text {
    std::array<char, 4096> bytes{};
    std::size_t size = 0;

    std::string_view View() const noexcept { return {bytes.data(), size}; }

    /// False when it does not fit, with room for a final zero.
    bool Append(std::string_view more) noexcept {
        if (more.size() >= bytes.size() - size) {
            return false;
        }
        std::memcpy(bytes.data() + size, more.data(), more.size());
        size += more.size();
        bytes[size] = '\0';
        return true;
    }
};

Text Read(const char* path) noexcept {
    Text text;
    const UniqueFd file(::open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t got = file ? ::read(file.Get(), text.bytes.data(), text.bytes.size()) : 0;
    text.size = got > 0 ? static_cast<std::size_t>(got) : 0;
    return text;
}

/// The path of the process's group below the root of groups: "0::/a/b" in a line of its own.
std::string_view GroupIn(std::string_view text) noexcept {
    constexpr std::string_view kUnified = "0::/";
    const std::size_t at = text.find(kUnified);
    if (at == std::string_view::npos) {
        return {};
    }
    text.remove_prefix(at + kUnified.size() - 1);
    return text.substr(0, text.find('\n'));
}

/// A group has no more than those above it.
bool LooksAtGroups() noexcept {
    const Text own = Read("/proc/self/cgroup");
    for (std::string_view group = GroupIn(own.View()); !group.empty();
         group = group.substr(0, group.rfind('/'))) {
        Text path;
        if (!path.Append(kGroups) || !path.Append(group) || !path.Append(kFile)) {
            continue;
        }
        const auto quota = CpuQuota(Read(path.bytes.data()).View());
        if (quota && *quota < kLeastCpus) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::optional<double> CpuQuota(std::string_view cpuMax) noexcept {
    std::int64_t quota = 0;
    std::int64_t period = 0;
    const char* const end = cpuMax.data() + cpuMax.size();
    const auto first = std::from_chars(cpuMax.data(), end, quota);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != ' ') {
        return std::nullopt;
    }
    const auto second = std::from_chars(first.ptr + 1, end, period);
    if (second.ec != std::errc() || quota <= 0 || period <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(quota) / static_cast<double>(period);
}

bool HasCpuForPolling(Clock::time_point now) noexcept {
    static std::atomic<Clock::rep> nextLook{0};
    static std::atomic<bool> isEnough{true};
    Clock::rep due = nextLook.load(std::memory_order_relaxed);
    const Clock::rep ticks = now.time_since_epoch().count();
    if (ticks >= due &&
        nextLook.compare_exchange_strong(due, ticks + Clock::duration(kLookPeriod).count(),
                                         std::memory_order_relaxed)) {
        isEnough.store(LooksAtGroups(), std::memory_order_relaxed);
    }
    return isEnough.load(std::memory_order_relaxed);
}

}  // namespace zam_platform
