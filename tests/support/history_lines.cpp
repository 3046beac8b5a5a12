#include "support/history_lines.h"

#include <nlohmann/json.hpp>
#include <utility>

namespace zam_test {

std::vector<nlohmann::json> HistoryLines(const std::string& text) {
    std::vector<nlohmann::json> lines;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos;
         begin = end + 1) {
        auto line =
            nlohmann::json::parse(text.begin() + static_cast<std::ptrdiff_t>(begin),
                                  text.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
        if (!line.is_discarded()) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

}  // namespace zam_test
