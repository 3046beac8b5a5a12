#pragma once

namespace zam_descriptors {

/// Opens those of the descriptors 0 to 2 that are closed, on `/dev/null`: 0 for writing only, 1 and
/// 2 for reading only, so that using them fails as on a closed one. Else whatever is opened next
/// would take their places, and input and output would go to sockets and files. To be called before
/// anything else opens a descriptor.
void OccupyStandardDescriptors() noexcept;

}  // namespace zam_descriptors
