#pragma once

#include <vector>

#include "zam_connector/zam_id.h"

namespace zam_connector {

/// Which updates the server has decided about, by what it decided, each list in the server's
/// order. A value type.
struct ZamUpdatesStatus {
    std::vector<ZamId> approved;  ///< kind 0: may be installed
    std::vector<ZamId> declined;  ///< kind 1: must not be installed
    std::vector<ZamId> revoked;   ///< kind 2: must be taken off where it is installed
};

inline bool operator==(const ZamUpdatesStatus& left, const ZamUpdatesStatus& right) {
    return left.approved == right.approved && left.declined == right.declined &&
           left.revoked == right.revoked;
}
inline bool operator!=(const ZamUpdatesStatus& left, const ZamUpdatesStatus& right) {
    return !(left == right);
}

}  // namespace zam_connector
