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
        pointer += step->isMember_ ? zam_json::PointerStep(step->key_)
                                   : "/" + std::to_string(step->index_);
    }
    return pointer;
}

}  // namespace zam_connector::tree_json
