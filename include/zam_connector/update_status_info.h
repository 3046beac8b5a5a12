#pragma once

#include <cstdint>
#include <string>

#include "qor/types/timestamp.h"
#include "zam_connector/zam_id.h"

namespace zam_connector {

/// What became of one update on the device. A value type: copies are independent, and a constant
/// one may be read from several threads.
///
/// All fields are carried as they stand: the meaning of the numbers, and what times count, is
/// agreed between the product and its server. Texts are UTF-8 by convention, which is not checked.
/// Behind each field stand its key in a tree and the kind of the value there.
struct UpdateStatusInfo {
    ZamId id{};                         ///< of the update: "id", blob
    qor::types::Timestamp installTime;  ///< of the installation: "installtime", timestamp
    std::int32_t status = 0;            ///< of the update here: "updstatus", int32
    std::int32_t installErrorCode = 0;  ///< of the installation: "installerrorcode", int32
    std::string installErrorText;       ///< of the installation: "installerrortext", string
    qor::types::Timestamp releaseTime;  ///< of the update: "releasetime", timestamp
};

/// Equal in every field.
inline bool operator==(const UpdateStatusInfo& left, const UpdateStatusInfo& right) {
    return left.id == right.id && left.installTime == right.installTime &&
           left.status == right.status && left.installErrorCode == right.installErrorCode &&
           left.installErrorText == right.installErrorText && left.releaseTime == right.releaseTime;
}

inline bool operator!=(const UpdateStatusInfo& left, const UpdateStatusInfo& right) {
    return !(left == right);
}

}  // namespace zam_connector
