#pragma once

#include <memory>

#include "zam_connector/i_zam_locale_info.h"
#include "zam_connector/i_zam_location_info.h"

namespace zam_connector::zam_locale {

/// Makes the locale tables of one system of locale identifiers. Thread-safe.
class IZamLocaleFactory {
public:
    virtual ~IZamLocaleFactory() = default;

    /// A new table, never null. Throws `std::bad_alloc`, and `qel::ResultCodeException` with code
    /// 0x80000046 for a table with two locales of one name or two default locales.
    virtual std::unique_ptr<IZamLocaleInfo> CreateZamLocaleInfo() const = 0;

    /// Never null. Throws `std::bad_alloc`.
    virtual std::unique_ptr<IZamLocationInfo> CreateZamLocationInfo() const = 0;
};

}  // namespace zam_connector::zam_locale
