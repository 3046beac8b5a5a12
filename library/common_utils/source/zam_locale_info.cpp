#include "zam_locale_info.h"

#include <fmt/format.h>

#include <string>
#include <utility>

#include "common/log.h"
#include "qel/exception.h"
#include "qel/result_code.h"
#include "qel/utf.h"

namespace zam_connector::zam_locale {
namespace {

constexpr char kSourceFile[] = "zam_locale_info";
constexpr char kClassName[] = "ZamLocaleInfo";

constexpr LocaleIdType kLanguageBits = 0x00FF;
constexpr LocaleIdType kLocationBits = 0xFF00;
constexpr LocaleIdType kGreatestId = 0xFFFF;

/// Part of an error's text, the same whichever compiler builds this.
constexpr char kCheckSignature[] =
    "void zam_connector::zam_locale::MicrosoftLocationInfo::CheckLocationId"
    "(zam_connector::LocaleIdType) const";

[[noreturn]] void ThrowInvalidArgument(const std::string& text, int line = __builtin_LINE()) {
    throw qel::ResultCodeException(qel::kInvalidArgument, qel::ToUtf16(text)).At(kSourceFile, line);
}

}  // namespace

// The index is made once the locales are where they stay.
ZamLocaleInfo::ZamLocaleInfo(std::vector<ZamLocale>&& locales) : locales_(std::move(locales)) {
    byName_.reserve(locales_.size());
    for (const ZamLocale& locale : locales_) {
        Index(locale);
    }
}

void ZamLocaleInfo::Index(const ZamLocale& locale) {
    if (!byName_.emplace(locale.name, locale).second) {
        ThrowInvalidArgument(
            fmt::format("{}: Cannot inserts a locale info: {}", kClassName, locale.name));
    }
    if (!locale.isDefault) {
        return;
    }
    if (default_) {
        ThrowInvalidArgument(
            fmt::format("{}: Cannot inserts a locale info: {} is default but {} is already default",
                        kClassName, locale.name, default_->get().name));
    }
    default_ = locale;
}

std::optional<ZamLocale> ZamLocaleInfo::DefaultLocale() const {
    if (!default_) {
        common::Log(zor::logger::kLevelError, common::Here(kSourceFile, "DefaultLocale"),
                    "ZamLocaleManager::DefaultLocalName: LocalManager hasn't default locale");
        return std::nullopt;
    }
    return default_->get();
}

std::optional<ZamLocale> ZamLocaleInfo::Locale(std::string_view name) const {
    const auto found = byName_.find(name);
    if (found == byName_.end()) {
        return std::nullopt;
    }
    return found->second.get();
}

std::vector<ZamLocale> ZamLocaleInfo::LocaleContainer() const {
    return locales_;
}

bool MicrosoftLocationInfo::HasLocationInfo(LocaleIdType id) const {
    CheckLocationId(id);
    return (id & kLocationBits) != 0;
}

LocaleIdType MicrosoftLocationInfo::RemoveLocationInfo(LocaleIdType id) const {
    CheckLocationId(id);
    return id & ~kLocationBits;
}

void MicrosoftLocationInfo::CheckLocationId(LocaleIdType id) const {
    if (id > kGreatestId || (id & kLanguageBits) == 0) {
        ThrowInvalidArgument(fmt::format(
            "{}: localeId is out of range: value is [{}] but value is expected to be in "
            "range [0x01 - 0xFFFF] and the last 2 bytes should not be 0",
            kCheckSignature, id));
    }
}

std::unique_ptr<IZamLocaleInfo> MicrosoftZamLocaleFactory::CreateZamLocaleInfo() const {
    return std::make_unique<ZamLocaleInfo>(std::vector<ZamLocale>{
        {"en", 0x0009},           {"en-AU", 0x0C09}, {"en-CA", 0x1009},  {"en-HK", 0x3C09},
        {"en-IN", 0x4009},        {"en-AE", 0x4C09}, {"en-GB", 0x0809},  {"en-US", 0x0409, true},
        {"ru", 0x0019},           {"ru-RU", 0x0419}, {"es", 0x000A},     {"es-AR", 0x2C0A},
        {"es-CO", 0x240A},        {"es-MX", 0x080A}, {"es-419", 0x580A}, {"es-ES", 0x0C0A},
        {"es-ES_tradnl", 0x040A}, {"es-US", 0x540A}, {"de", 0x0007},     {"de-AT", 0x0C07},
        {"de-DE", 0x0407},        {"de-CH", 0x0807},
    });
}

std::unique_ptr<IZamLocationInfo> MicrosoftZamLocaleFactory::CreateZamLocationInfo() const {
    return std::make_unique<MicrosoftLocationInfo>();
}

}  // namespace zam_connector::zam_locale
