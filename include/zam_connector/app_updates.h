#pragma once

#include <vector>

#include "zam_connector/update_info.h"
#include "zam_connector/update_status_info.h"

namespace zam_connector {

/// The updates of a product and what became of them on the device. The two lists are independent of
/// each other. A value type: copies are independent, and a constant one may be read from several
/// threads.
struct AppUpdates {
    std::vector<UpdateInfo> updates;         ///< "static_info" of a tree, in its order
    std::vector<UpdateStatusInfo> statuses;  ///< "dynamic_info" of a tree, in its order
};

/// The same records in the same order.
inline bool operator==(const AppUpdates& left, const AppUpdates& right) {
    return left.updates == right.updates && left.statuses == right.statuses;
}

inline bool operator!=(const AppUpdates& left, const AppUpdates& right) {
    return !(left == right);
}

}  // namespace zam_connector
