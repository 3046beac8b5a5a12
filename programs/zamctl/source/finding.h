#pragma once

#include <string>

#include "fields.h"

namespace zamctl {

/// From good to bad: the worst of a report is the greatest.
enum class FindingStatus { Ok, Warning, Problem };

/// What one check found.
struct Finding {
    std::string check;  ///< snake_case
    FindingStatus status = FindingStatus::Ok;
    std::string text;
    std::string remedy;  ///< what to do; empty when nothing needs to be done
    Fields details{};
};

}  // namespace zamctl
