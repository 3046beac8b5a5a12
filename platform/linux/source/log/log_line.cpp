#include "log/log_line.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

#include "qel/character.h"

namespace zam_platform {
namespace {

constexpr std::string_view kLevelLetters = "TDIWEC";

constexpr int kMaxLevel = static_cast<int>(kLevelLetters.size()) - 1;

/// A name of the caller's, which may be missing.
std::string_view NameOf(const char* name) noexcept {
    if (name == nullptr) {
        return {};
    }
    return {name, ::strnlen(name, kMaxLogNameBytes)};
}

std::string_view LastComponent(const char* path) noexcept {
    const char* const slash = path == nullptr ? nullptr : std::strrchr(path, '/');
    return NameOf(slash == nullptr ? path : slash + 1);
}

void PutText(BoundedText& out, std::string_view text) noexcept {
    std::string_view rest = text;
    std::size_t left = zor::logger::kMaxLogTextBytes;
    while (!rest.empty()) {
        const qel::Character character = qel::FirstCharacter(rest);
        if (character.bytes > left) {
            out.Put("... (");
            out.Put(static_cast<long long>(rest.size()));
            out.Put(" bytes more)");
            return;
        }
        if (IsUnfitForTerminal(character)) {
            qel::Escape(character, [&out](char piece) { out.Put(piece); });
        } else {
            out.Put(rest.substr(0, character.bytes));
        }
        rest.remove_prefix(character.bytes);
        left -= character.bytes;
    }
}

}  // namespace

void BoundedText::Put(std::string_view text) noexcept {
    const std::size_t fitting = std::min(text.size(), capacity_ - size_);
    if (fitting != 0) {
        std::memcpy(begin_ + size_, text.data(), fitting);
        size_ += fitting;
    }
}

void BoundedText::Put(long long number) noexcept {
    std::array<char, std::numeric_limits<long long>::digits10 + 2> digits;
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    Put(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
}

void BoundedText::PutPadded(int number, int digits) noexcept {
    constexpr int kBase = 10;
    int most = kBase;
    for (int left = digits; left > 1; --left, most *= kBase) {
        if (number < most) {
            for (; left > 1; --left) {
                Put('0');
            }
            break;
        }
    }
    Put(static_cast<long long>(number));
}

void PutHead(BoundedText& out, const timespec& time, int process) noexcept {
    constexpr int kFirstYear = 1900;
    constexpr long kNanosecondsPerMillisecond = 1'000'000;
    tm local{};
    ::localtime_r(&time.tv_sec, &local);
    out.PutPadded(kFirstYear + local.tm_year, 4);
    out.Put('-');
    out.PutPadded(local.tm_mon + 1, 2);
    out.Put('-');
    out.PutPadded(local.tm_mday, 2);
    out.Put('T');
    out.PutPadded(local.tm_hour, 2);
    out.Put(':');
    out.PutPadded(local.tm_min, 2);
    out.Put(':');
    out.PutPadded(local.tm_sec, 2);
    out.Put('.');
    out.PutPadded(static_cast<int>(time.tv_nsec / kNanosecondsPerMillisecond), 3);
    out.Put(' ');
    out.Put(static_cast<long long>(process));
    out.Put(' ');
}

void PutBody(BoundedText& out, const LogRecord& record) noexcept {
    out.Put(kLevelLetters[static_cast<std::size_t>(std::clamp(record.level, 0, kMaxLevel))]);
    out.Put(" [");
    out.Put(LastComponent(record.file));
    out.Put(':');
    out.Put(static_cast<long long>(record.line));
    out.Put(' ');
    out.Put(NameOf(record.function));
    out.Put("] ");
    PutText(out, record.text);
}

}  // namespace zam_platform
