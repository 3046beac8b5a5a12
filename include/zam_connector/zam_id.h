#pragma once

#include <array>
#include <cstddef>

namespace zam_connector {

/// Identifier of an update or of a licence agreement: sixteen opaque bytes, compared and carried as
/// they stand. In a tree it is a blob of 17 bytes, these sixteen and a zero byte.
using ZamId = std::array<std::byte, 16>;

}  // namespace zam_connector
