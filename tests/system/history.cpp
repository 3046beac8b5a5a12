#include "history.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "support/history_lines.h"

namespace zam_connector::test {

std::vector<nlohmann::json> HistoryOf(const testing::ServiceProcess& service,
                                      const std::string& kind) {
    std::vector<nlohmann::json> lines;
    for (nlohmann::json& line : zam_test::HistoryLines(service.ReadData("uploads/history.jsonl"))) {
        if (line.at("kind") == kind) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

std::vector<std::string> EventsOf(const testing::ServiceProcess& service) {
    std::vector<std::string> texts;
    for (const nlohmann::json& line : HistoryOf(service, "event")) {
        texts.push_back(line.at("text"));
    }
    return texts;
}

}  // namespace zam_connector::test
