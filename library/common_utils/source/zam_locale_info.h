#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zam_connector/i_zam_locale_factory.h"
#include "zam_connector/i_zam_locale_info.h"
#include "zam_connector/i_zam_location_info.h"

namespace zam_connector::zam_locale {

/// A table of locales. Immutable.
class ZamLocaleInfo final : public IZamLocaleInfo {
public:
    /// Throws `qel::ResultCodeException` with code 0x80000046 at the first locale whose name came
    /// before, or that is the second default. There need not be a default.
    explicit ZamLocaleInfo(std::vector<ZamLocale>&& locales);
    // The index refers to elements of this very object.
    ZamLocaleInfo(const ZamLocaleInfo&) = delete;
    ZamLocaleInfo& operator=(const ZamLocaleInfo&) = delete;

    std::optional<ZamLocale> DefaultLocale() const override;
    std::optional<ZamLocale> Locale(std::string_view name) const override;
    std::vector<ZamLocale> LocaleContainer() const override;

private:
    void Index(const ZamLocale& locale);

    const std::vector<ZamLocale> locales_;
    /// Keys and values refer to `locales_`.
    std::unordered_map<std::string_view, std::reference_wrapper<const ZamLocale>> byName_;
    std::optional<std::reference_wrapper<const ZamLocale>> default_;
};

/// The rules of Microsoft's identifiers. Stateless.
class MicrosoftLocationInfo final : public IZamLocationInfo {
public:
    bool HasLocationInfo(LocaleIdType id) const override;
    LocaleIdType RemoveLocationInfo(LocaleIdType id) const override;

private:
    void CheckLocationId(LocaleIdType id) const;
};

/// The locales of the management server, by Microsoft's identifiers. Stateless.
class MicrosoftZamLocaleFactory final : public IZamLocaleFactory {
public:
    std::unique_ptr<IZamLocaleInfo> CreateZamLocaleInfo() const override;
    std::unique_ptr<IZamLocationInfo> CreateZamLocationInfo() const override;
};

}  // namespace zam_connector::zam_locale
