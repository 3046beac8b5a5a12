#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "output.h"

namespace zamctl {

enum class FindingStatus { Ok, Warning, Problem };

/// What one check found.
struct Finding {
    std::string check;  ///< snake_case
    FindingStatus status = FindingStatus::Ok;
    std::string text;
    std::string remedy;  ///< what to do; empty when nothing needs to be done
    Json details = Json::object();
};

}  // namespace zamctl
