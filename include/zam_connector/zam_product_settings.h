#pragma once

#include "zuv/value.h"

namespace zam_connector {

/// The product's own settings, as the product reports them and as the server sets them. A value
/// type.
struct ZamProductSettings {
    zuv::TValue tree;  ///< a map of the settings' sections; none when there are no settings
};

}  // namespace zam_connector
