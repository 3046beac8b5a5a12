#include "data/history_line.h"

#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>

#include "json_text/base64.h"
#include "qel/utf.h"

namespace zam_service {

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

HistoryLine::HistoryLine(std::string_view kind, std::chrono::system_clock::time_point time) {
    Add("time", Rfc3339(time));
    Add("kind", kind);
}

HistoryLine& HistoryLine::Add(std::string_view name, std::string_view text) {
    if (qel::IsUtf8(text)) {
        AddRaw(name, nlohmann::json(text).dump());
    } else {
        AddRaw(fmt::format("{}_base64", name), nlohmann::json(zam_json::EncodeBase64(text)).dump());
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
