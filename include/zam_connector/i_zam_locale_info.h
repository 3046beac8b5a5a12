#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "zam_connector/zam_locale.h"

namespace zam_connector::zam_locale {

/// The locales that the management server knows. Nothing here blocks.
///
/// Immutable, so any number of threads may call at once. Every result is a copy; making it throws
/// `std::bad_alloc` for want of memory, and nothing else is thrown.
class IZamLocaleInfo {
public:
    virtual ~IZamLocaleInfo() = default;

    /// The default locale; empty, which is logged, when there is none.
    virtual std::optional<ZamLocale> DefaultLocale() const = 0;

    /// The locale of exactly that name, case included; empty when there is none.
    virtual std::optional<ZamLocale> Locale(std::string_view name) const = 0;

    /// All locales, in their order.
    virtual std::vector<ZamLocale> LocaleContainer() const = 0;
};

}  // namespace zam_connector::zam_locale
