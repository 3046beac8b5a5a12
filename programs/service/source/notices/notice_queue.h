#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace zam_service {

/// What is told to one registration: a value, and its place among the others.
struct Notice {
    std::uint64_t number = 0;
    std::uint32_t value = 0;
};

/// How notices of one sort are kept for a client that does not fetch them.
struct NoticeRules {
    std::string_view sort;        ///< names them in the log; of static storage
    bool coalesces = false;       ///< a value that waits already is not queued again
    std::size_t maxQueued = 128;  ///< 2 KiB of notices that nobody fetches; then the oldest goes
};

/// The notices that wait for one registration, in the order in which they came. One thread at a
/// time.
class NoticeQueue {
public:
    /// `rules` is not owned and must outlive this object.
    explicit NoticeQueue(const NoticeRules& rules) noexcept : rules_(rules) {}

    /// False when the oldest was dropped for it.
    bool Push(std::uint32_t value);

    /// Puts a notice that was taken back into its place, in front of those that came after it.
    /// False when the oldest was dropped for it.
    bool PutBack(const Notice& notice);

    /// The oldest; empty when none waits.
    std::optional<Notice> Oldest() const;
    void TakeOldest() { notices_.erase(notices_.begin()); }

    bool IsEmpty() const noexcept { return notices_.empty(); }

private:
    bool Insert(const Notice& notice);

    const NoticeRules& rules_;
    std::vector<Notice> notices_;  ///< by number
    std::uint64_t lastNumber_ = 0;
};

}  // namespace zam_service
