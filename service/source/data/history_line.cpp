#include "data/history_line.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <ctime>
#include <nlohmann/json.hpp>

namespace zam_service {
namespace {

/// How many bytes follow the first byte of a UTF-8 sequence, and the range of the second byte,
/// which is where overlong forms, surrogates and numbers beyond U+10FFFF show.
struct Sequence {
    int more = -1;  ///< -1: no sequence begins with this byte
    unsigned least = 0x80;
    unsigned most = 0xBF;
};

Sequence SequenceOf(unsigned first) noexcept {
    if (first < 0x80) {
        return {.more = 0};
    }
    if (first >= 0xC2 && first <= 0xDF) {
        return {.more = 1};
    }
    if (first >= 0xE0 && first <= 0xEF) {
        return {.more = 2,
                .least = first == 0xE0 ? 0xA0U : 0x80U,
                .most = first == 0xED ? 0x9FU : 0xBFU};
    }
    if (first >= 0xF0 && first <= 0xF4) {
        return {.more = 3,
                .least = first == 0xF0 ? 0x90U : 0x80U,
                .most = first == 0xF4 ? 0x8FU : 0xBFU};
    }
    return {};
}

}  // namespace

std::string Rfc3339(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time).time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const std::time_t whole = seconds.count();
    std::tm parts{};
    ::gmtime_r(&whole, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900,
                       parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                       (sinceEpoch - seconds).count());
}

std::string Base64(std::string_view bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t offset = 0; offset < bytes.size(); offset += 3) {
        const std::string_view group = bytes.substr(offset, 3);
        std::uint32_t bits = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            const auto byte = index < group.size() ? static_cast<unsigned char>(group[index]) : 0U;
            bits = (bits << 8U) | byte;
        }
        for (std::size_t index = 0; index < 4; ++index) {
            const bool isPadding = index > group.size();
            text += isPadding ? '=' : kDigits[(bits >> (18U - 6U * index)) & 0x3FU];
        }
    }
    return text;
}

bool IsUtf8(std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const Sequence sequence = SequenceOf(static_cast<unsigned char>(bytes.front()));
        bytes.remove_prefix(1);
        unsigned least = sequence.least;
        unsigned most = sequence.most;
        if (sequence.more < 0) {
            return false;
        }
        for (int left = sequence.more; left > 0; --left) {
            const unsigned byte = bytes.empty() ? 0U : static_cast<unsigned char>(bytes.front());
            if (byte < least || byte > most) {
                return false;
            }
            bytes.remove_prefix(1);
            least = 0x80;
            most = 0xBF;
        }
    }
    return true;
}

HistoryLine::HistoryLine(std::string_view kind, std::chrono::system_clock::time_point time) {
    Add("time", Rfc3339(time));
    Add("kind", kind);
}

HistoryLine& HistoryLine::Add(std::string_view name, std::string_view text) {
    if (IsUtf8(text)) {
        AddRaw(name, nlohmann::json(text).dump());
    } else {
        AddRaw(fmt::format("{}_base64", name), nlohmann::json(Base64(text)).dump());
    }
    return *this;
}

HistoryLine& HistoryLine::Add(std::string_view name, std::uint64_t number) {
    AddRaw(name, std::to_string(number));
    return *this;
}

void HistoryLine::AddRaw(std::string_view name, std::string_view json) {
    members_ += fmt::format("{}\"{}\":{}", members_.empty() ? "" : ",", name, json);
}

std::string HistoryLine::Text() const {
    return "{" + members_ + "}\n";
}

}  // namespace zam_service
