#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "zam_connector/app_eula.h"
#include "zam_connector/zam_converter.h"
#include "zam_converter_guard.h"
#include "zam_converter_lists.h"
#include "zam_converter_tree.h"

namespace zam_connector::zam_converter {
namespace {

constexpr char kSourceFile[] = "zam_converter_eula";
constexpr char kIdKey[] = "updeulaid";
constexpr char kReleaseTimeKey[] = "updeulareleasetime";
constexpr char kTextKey[] = "updeula";
constexpr char kLocaleInfoKey[] = "updlocinfo";

/// The agreement text under a key that has to be there.
std::string GetText(const zuv::TValue& tree, const char* key) {
    const zuv::TValue& node = GetTreeNode(tree, key);
    // Asked first: a node of another kind is not a text that was rejected.
    if (!node.Is<std::string>()) {
        static_cast<void>(node.Get<zuv::Vector>());
    }
    std::optional<std::string> text = ParseStringFromZamParams(node);
    if (!text) {
        FailParse(key);
    }
    return *std::move(text);
}

}  // namespace

std::optional<zuv::TValue> ConvertEulaData(const AppEula& eula, int pieceSize) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertEulaData");
    return Guarded(site, "ConvertEulaData failed with exception [{} : {}]",
                   [&]() -> std::optional<zuv::TValue> {
                       zuv::Map map;
                       std::optional<zuv::Blob> id = ConvertZamIdTypeToBlob(eula.id);
                       if (!id) {
                           return LogFailed(site, "ConvertEulaData: Could not convert eula id");
                       }
                       map.emplace(kIdKey, *std::move(id));
                       const std::optional<long> releaseTime = ConvertTimeStamp(eula.releaseTime);
                       if (!releaseTime) {
                           return LogFailed(site, "ConvertEulaData: Could not convert timestamp");
                       }
                       map.emplace(kReleaseTimeKey, *releaseTime);
                       std::optional<zuv::TValue> text =
                           ConvertStringToZamParams(eula.text, pieceSize);
                       if (!text) {
                           return LogFailed(site, "ConvertEulaData: Could not convert eula text");
                       }
                       map.emplace(kTextKey, *std::move(text));
                       map.emplace(kLocaleInfoKey, eula.localeInfo);
                       return zuv::TValue(std::move(map));
                   });
}

std::optional<zuv::TValue> ConvertEulaIdentityInfo(const AppEula& eula) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertEulaIdentityInfo");
    return Guarded(site, "ConvertEulaIdentityInfo failed with exception [{} : {}]",
                   [&]() -> std::optional<zuv::TValue> {
                       zuv::Map map;
                       std::optional<zuv::Blob> id = ConvertZamIdTypeToBlob(eula.id);
                       if (!id) {
                           return LogFailed(
                               site, "ConvertEulaIdentityInfo: Could not convert eula Id to BLOB");
                       }
                       map.emplace(kIdKey, *std::move(id));
                       map.emplace(kReleaseTimeKey, ConvertTimeStamp(eula.releaseTime).value());
                       return zuv::TValue(std::move(map));
                   });
}

std::optional<zuv::TValue> ConvertEulas(const std::vector<AppEula>& eulas, int pieceSize) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertEulas");
    return Guarded(
        site, "ConvertEulas failed with exception [{} : {}]", [&]() -> std::optional<zuv::TValue> {
            std::optional<zuv::TValue> trees = ConvertList(
                eulas, [&](const AppEula& eula) { return ConvertEulaData(eula, pieceSize); });
            if (!trees) {
                return LogFailed(site, "ConvertEulas: Convert eulas failed");
            }
            return trees;
        });
}

std::optional<AppEula> ParseEula(const zuv::TValue& node) noexcept {
    return Guarded(common::Here(kSourceFile, "ParseEula"),
                   "ParseEula failed with exception [{} : {}]", [&]() -> std::optional<AppEula> {
                       AppEula eula;
                       eula.id = GetTreeNodeValue<ZamId>(node, kIdKey);
                       eula.releaseTime =
                           ParseTimeStamp(GetTreeNodeValue<long>(node, kReleaseTimeKey)).value();
                       eula.text = GetText(node, kTextKey);
                       eula.localeInfo = GetTreeNodeValue<std::int32_t>(node, kLocaleInfoKey);
                       return eula;
                   });
}

std::optional<std::vector<AppEula>> ParseEulas(const zuv::TValue& node) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ParseEulas");
    return Guarded(site, "ParseEulas failed with exception [{} : {}]",
                   [&]() -> std::optional<std::vector<AppEula>> {
                       std::optional<std::vector<AppEula>> eulas = ParseList(node, ParseEula);
                       if (!eulas) {
                           // The prefix is the writer's: the text is the contract's.
                           return LogFailed(site, "ConvertEulaData: Could not parse eulas");
                       }
                       return eulas;
                   });
}

std::optional<zuv::TValue> ConvertStringToZamParams(std::string_view text,
                                                    long pieceSize) noexcept {
    return Guarded(
        common::Here(kSourceFile, "ConvertStringToZamParams"),
        "ConvertStringToZamParams failed with exception [{} : {}]",
        [&]() -> std::optional<zuv::TValue> {
            if (pieceSize <= 0) {
                throw std::invalid_argument(fmt::format("piece size {} is not above 0", pieceSize));
            }
            const auto pieceBytes = static_cast<std::size_t>(pieceSize);
            zuv::Vector pieces;
            pieces.reserve(text.size() / pieceBytes + 1);
            for (std::string_view rest = text; !rest.empty();
                 rest.remove_prefix(std::min(pieceBytes, rest.size()))) {
                pieces.emplace_back(rest.substr(0, pieceBytes));
            }
            return zuv::TValue(std::move(pieces));
        });
}

std::optional<std::string> ParseStringFromZamParams(const zuv::TValue& node) noexcept {
    return Guarded(common::Here(kSourceFile, "ParseStringFromZamParams"),
                   "ParseStringFromZamParams failed with exception [{} : {}]",
                   [&]() -> std::optional<std::string> {
                       if (const auto* const whole = node.GetIf<std::string>()) {
                           return *whole;
                       }
                       std::string text;
                       for (const zuv::TValue& piece : node.Get<zuv::Vector>()) {
                           text += piece.Get<std::string>();
                       }
                       return text;
                   });
}

}  // namespace zam_connector::zam_converter
