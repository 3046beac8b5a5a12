#include "history.h"

#include <sstream>

namespace zam_connector::test {

std::vector<nlohmann::json> HistoryOf(const testing::ServiceProcess& service,
                                      const std::string& kind) {
    std::vector<nlohmann::json> lines;
    std::istringstream history(service.ReadData("uploads/history.jsonl"));
    for (std::string line; std::getline(history, line);) {
        nlohmann::json parsed = nlohmann::json::parse(line);
        if (parsed.at("kind") == kind) {
            lines.push_back(std::move(parsed));
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
