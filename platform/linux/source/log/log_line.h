#pragma once

#include <array>
#include <cstddef>
#include <ctime>
#include <string_view>

#include "zor/logger.h"

/// How the default logger's lines look: `TIME PID LEVEL [FILE:LINE FUNCTION] TEXT`. Nothing here
/// allocates or throws.

namespace zam_platform {

/// One record, as `ZORLogger::LogImpl` takes it.
struct LogRecord {
    int level;
    const char* file;
    int line;
    const char* function;
    std::string_view text;
};

/// A text of at most `capacity` bytes; what does not fit is left out.
class BoundedText {
public:
    BoundedText(char* begin, std::size_t capacity) noexcept : begin_(begin), capacity_(capacity) {}

    void Put(char character) noexcept {
        if (size_ < capacity_) {
            begin_[size_++] = character;
        }
    }
    void Put(std::string_view text) noexcept;
    void Put(long long number) noexcept;

    /// The number with zeroes in front of it, up to `digits` digits.
    void PutPadded(int number, int digits) noexcept;

    std::size_t Size() const noexcept { return size_; }
    std::string_view View() const noexcept { return {begin_, size_}; }

private:
    char* begin_;
    std::size_t capacity_;
    std::size_t size_ = 0;
};

/// Most bytes of names of a file and of a function in a line.
inline constexpr std::size_t kMaxLogNameBytes = 256;

/// Most bytes of `PutHead` and of `PutBody`, whatever the record.
inline constexpr std::size_t kMaxLogHeadBytes = 64;
inline constexpr std::size_t kMaxLogBodyBytes =
    // A byte is escaped as four.
    4 * zor::logger::kMaxLogTextBytes + 2 * kMaxLogNameBytes + 128;

/// What tells when and who: `2026-02-28T09:05:07.042 4711 `, in local time.
void PutHead(BoundedText& out, const timespec& time, int process) noexcept;

/// What tells one record from others: `E [file:12 Function] text`. Of the file the last component
/// is written; of the text `kMaxLogTextBytes`, whole characters only, with what terminals act upon
/// escaped.
void PutBody(BoundedText& out, const LogRecord& record) noexcept;

}  // namespace zam_platform
