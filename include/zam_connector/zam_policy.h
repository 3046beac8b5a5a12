#pragma once

#include "zuv/value.h"

namespace zam_connector {

/// The policy that the management server set for this product. A value type.
struct ZamPolicy {
    zuv::TValue tree;  ///< a map of the policy's sections; none when there is no policy
};

}  // namespace zam_connector
