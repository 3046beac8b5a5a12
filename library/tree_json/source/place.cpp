#include "place.h"

#include <algorithm>
#include <vector>

#include "json_text/json_token.h"

namespace zam_connector::tree_json {

std::string Place::Pointer() const {
    std::vector<const Place*> steps;
    for (const Place* place = this; place->parent_ != nullptr; place = place->parent_) {
        steps.push_back(place);
    }
    std::reverse(steps.begin(), steps.end());
    std::string pointer;
    for (const Place* const step : steps) {
        if (step->isMember_) {
            pointer += zam_json::PointerStep(step->key_);
        } else {
            pointer += '/';
            pointer += std::to_string(step->index_);
        }
    }
    return pointer;
}

}  // namespace zam_connector::tree_json
