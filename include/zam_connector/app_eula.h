#pragma once

#include <cstdint>
#include <string>

#include "qor/types/timestamp.h"
#include "zam_connector/zam_id.h"

namespace zam_connector {

/// The text of one licence agreement. A value type: copies are independent, and a constant one may
/// be read from several threads.
///
/// All fields are carried as they stand. Behind each stand its key in a tree and the kind of the
/// value there.
struct AppEula {
    ZamId id{};                         ///< of the agreement: "updeulaid", blob
    qor::types::Timestamp releaseTime;  ///< of the agreement: "updeulareleasetime", int64: the only
                                        ///< time that is no timestamp in its tree
    std::string text;             ///< of the agreement, UTF-8 by convention: "updeula", vector
                                  ///< of strings that follow each other, or one string
    std::int32_t localeInfo = 0;  ///< locale information code: "updlocinfo", int32
};

/// Equal in every field.
inline bool operator==(const AppEula& left, const AppEula& right) {
    return left.id == right.id && left.releaseTime == right.releaseTime &&
           left.text == right.text && left.localeInfo == right.localeInfo;
}

inline bool operator!=(const AppEula& left, const AppEula& right) {
    return !(left == right);
}

}  // namespace zam_connector
