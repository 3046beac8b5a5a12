#include "commands/locales_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "command_set.h"

namespace zamctl {
namespace {

using zam_connector::zam_locale::IZamLocationInfo;
using zam_connector::zam_locale::ZamLocale;

std::string Remarks(const ZamLocale& locale) {
    return fmt::format("{}{}", locale.isDefault ? "  default" : "",
                       locale.isRightToLeft ? "  right to left" : "");
}

/// Of the language alone; of the locale itself when it has no location.
zam_connector::LocaleIdType LanguageId(const ZamLocale& locale, const IZamLocationInfo& locations) {
    return locations.HasLocationInfo(locale.id) ? locations.RemoveLocationInfo(locale.id)
                                                : locale.id;
}

}  // namespace

void LocalesCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const std::vector<ZamLocale> locales = connector.localeInfo.LocaleContainer();
    std::size_t width = 0;
    for (const ZamLocale& locale : locales) {
        width = std::max(width, locale.name.size());
    }
    std::string lines;
    FieldList list;
    for (const ZamLocale& locale : locales) {
        const zam_connector::LocaleIdType language = LanguageId(locale, connector.locationInfo);
        lines +=
            fmt::format("{}{:<{}}  0x{:04x}  {:>5}  language 0x{:02x}{}", lines.empty() ? "" : "\n",
                        locale.name, width, locale.id, locale.id, language, Remarks(locale));
        list.push_back(Fields{{"name", locale.name},
                              {"id", locale.id},
                              {"language_id", language},
                              {"default", locale.isDefault},
                              {"right_to_left", locale.isRightToLeft}});
    }
    context.output.Result(lines, {{"locales", std::move(list)}});
}

void DeclareLocales(CommandSet& commands) {
    commands.Add("locales", "Print the locales that the server knows",
                 std::make_shared<LocalesCommand>());
}

}  // namespace zamctl
