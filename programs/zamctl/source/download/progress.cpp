#include "download/progress.h"

#include <fmt/format.h>

#include <array>
#include <ostream>

#include "printable.h"

namespace zamctl {
namespace {

constexpr unsigned kBarWidth = 30;

/// Clears from the cursor to the end of the line.
constexpr char kClearLine[] = "\r\x1b[K";

/// `parts` of `whole`, rounded down; all of them of nothing.
unsigned Share(std::uint64_t bytes, std::uint64_t totalBytes, unsigned parts) {
    if (totalBytes == 0) {
        return parts;
    }
    // Not as whole numbers: their product could exceed 64 bits.
    return static_cast<unsigned>(static_cast<double>(bytes) / static_cast<double>(totalBytes) *
                                 parts);
}

}  // namespace

std::string BytesText(std::uint64_t bytes) {
    constexpr std::array kUnits = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double kStep = 1024;
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= kStep && unit + 1 < kUnits.size()) {
        value /= kStep;
        ++unit;
    }
    return unit == 0 ? fmt::format("{} bytes", bytes)
                     : fmt::format("{:.1f} {}", value, kUnits[unit]);
}

Progress::Progress(std::ostream& err, const Clock& clock, Style style)
    : err_(err), clock_(clock), style_(style) {}

Progress::~Progress() {
    if (hasBar_) {
        err_ << '\n' << std::flush;
    }
}

void Progress::Show(std::uint64_t bytes, std::uint64_t totalBytes) {
    if (style_ == Style::None) {
        return;
    }
    // Fewer than before: the download began anew, and its rate does with it.
    if (!hasBegun_ || bytes < firstBytes_) {
        hasBegun_ = true;
        firstBytes_ = bytes;
        start_ = clock_.Now();
        tenths_ = Share(bytes, totalBytes, 10);
    }
    if (style_ == Style::Bar) {
        DrawBar(bytes, totalBytes);
        return;
    }
    const unsigned tenths = Share(bytes, totalBytes, 10);
    if (tenths > tenths_) {
        tenths_ = tenths;
        err_ << fmt::format("{:3} %  {} of {}  {}\n", tenths * 10, BytesText(bytes),
                            BytesText(totalBytes), Rate(bytes))
             << std::flush;
    }
}

void Progress::DrawBar(std::uint64_t bytes, std::uint64_t totalBytes) {
    const Clock::TimePoint now = clock_.Now();
    // A terminal is slower than a fast download; the full bar is drawn in any case.
    if (hasBar_ && bytes < totalBytes && now - drawn_ < kRedraw) {
        return;
    }
    drawn_ = now;
    hasBar_ = true;
    const unsigned filled = Share(bytes, totalBytes, kBarWidth);
    err_ << kClearLine
         << fmt::format("[{:<{}}] {:3} %  {} of {}  {}", std::string(filled, '='), kBarWidth,
                        Share(bytes, totalBytes, 100), BytesText(bytes), BytesText(totalBytes),
                        Rate(bytes))
         << std::flush;
}

std::string Progress::Rate(std::uint64_t bytes) const {
    const double seconds = std::chrono::duration<double>(clock_.Now() - start_).count();
    if (seconds <= 0) {
        return "";
    }
    return BytesText(
               static_cast<std::uint64_t>(static_cast<double>(bytes - firstBytes_) / seconds)) +
           "/s";
}

void Progress::Note(const std::string& text) {
    if (style_ == Style::None) {
        return;
    }
    err_ << (hasBar_ ? kClearLine : "") << PrintableLine(text) << '\n' << std::flush;
    hasBar_ = false;
}

}  // namespace zamctl
