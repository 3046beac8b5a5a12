#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace zam_test {

/// The lines of a history (`uploads/history.jsonl`), oldest first. The end of a text that has no
/// newline yet is being written, and a line that is no JSON is what a killed service left of one:
/// both are left out.
std::vector<nlohmann::json> HistoryLines(const std::string& text);

}  // namespace zam_test
