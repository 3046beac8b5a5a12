#pragma once

#include "qel/exception.h"
#include "zam_connector/zam_locale.h"

namespace zam_connector::zam_locale {

/// Takes locale identifiers apart into language and location. Nothing here blocks.
///
/// Both operations throw `qel::ResultCodeException` with code 0x80000046 when the identifier is
/// above 0xFFFF or has no language, that is when its bits 0 to 7 are 0. Stateless, so any number of
/// threads may call at once.
class IZamLocationInfo {
public:
    virtual ~IZamLocationInfo() = default;

    /// Whether the identifier has a location.
    virtual bool HasLocationInfo(LocaleIdType id) const = 0;

    /// The identifier of the language alone: 1033 ("en-US") gives 9 ("en").
    virtual LocaleIdType RemoveLocationInfo(LocaleIdType id) const = 0;
};

}  // namespace zam_connector::zam_locale
