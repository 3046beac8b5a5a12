#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "clock.h"

namespace zamctl {

/// Shows how far a download is: a bar that is drawn over and over on a terminal, else a line for
/// each tenth. One thread at a time.
class Progress {
public:
    enum class Style { None, Lines, Bar };

    /// How often a bar is drawn anew.
    static constexpr std::chrono::milliseconds kRedraw{100};

    /// What is referred to must outlive the object.
    Progress(std::ostream& err, const Clock& clock, Style style);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Ends the line of a bar.
    ~Progress();

    void Show(std::uint64_t bytes, std::uint64_t totalBytes);

    /// A line of its own, which does not disturb the bar.
    void Note(const std::string& text);

private:
    void DrawBar(std::uint64_t bytes, std::uint64_t totalBytes);
    std::string Rate(std::uint64_t bytes) const;

    std::ostream& err_;
    const Clock& clock_;
    const Style style_;
    bool hasBegun_ = false;
    bool hasBar_ = false;
    std::uint64_t firstBytes_ = 0;
    unsigned tenths_ = 0;
    Clock::TimePoint start_{};
    Clock::TimePoint drawn_{};
};

/// "1.5 MiB".
std::string BytesText(std::uint64_t bytes);

}  // namespace zamctl
