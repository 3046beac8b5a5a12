#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace zam_service {

/// UTC as RFC 3339 has it, with milliseconds: "2024-11-21T07:43:00.123Z".
std::string Rfc3339(std::chrono::system_clock::time_point time);

/// One line of the history: a JSON object whose first members are the time and the kind. Pure; one
/// thread at a time.
class HistoryLine {
public:
    HistoryLine(std::string_view kind, std::chrono::system_clock::time_point time);

    /// Adds a text; bytes that are no UTF-8 are added in Base64, under the name with `_base64`
    /// behind it.
    HistoryLine& Add(std::string_view name, std::string_view text);
    HistoryLine& Add(std::string_view name, std::uint64_t number);

    /// The line, newline included.
    std::string Text() const;

private:
    void AddRaw(std::string_view name, std::string_view json);

    std::string members_;
};

}  // namespace zam_service
