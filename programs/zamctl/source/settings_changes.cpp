#include "settings_changes.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "failure.h"
#include "nearest.h"
#include "values.h"

namespace zamctl {
namespace {

using Json = nlohmann::ordered_json;
using zam_connector::ZamConnectorSettings;
using zam_vocabulary::IsFlag;

/// `where` stands before the message about an unknown name.
const SettingsField& FindField(std::string_view name, const std::string& where) {
    std::vector<std::string> names;
    for (const SettingsField& field : SettingsFields()) {
        if (name == field.name) {
            return field;
        }
        names.emplace_back(field.name);
    }
    throw UsageError(
        fmt::format("{}'{}' is no setting{}", where, name, SuggestName(name, names, "settings")));
}

SettingsValue ParseValue(const SettingsField& field, std::string_view text) {
    if (!IsFlag(field)) {
        return ParseInRange(field.name, text, 0, field.most);
    }
    for (const char* const yes : {"true", "yes", "on"}) {
        if (text == yes) {
            return true;
        }
    }
    for (const char* const no : {"false", "no", "off"}) {
        if (text == no) {
            return false;
        }
    }
    throw UsageError(fmt::format("{}: '{}' is neither true nor false", field.name, text));
}

SettingsValue ValueOf(const SettingsField& field, const Json& value, const std::string& source) {
    if (IsFlag(field)) {
        if (value.is_boolean()) {
            return value.get<bool>();
        }
        throw UsageError(
            fmt::format("{}: {}: {} is neither true nor false", source, field.name, value.dump()));
    }
    if (value.is_number_unsigned() && value.get<std::uint64_t>() <= field.most) {
        return value.get<std::uint64_t>();
    }
    throw UsageError(fmt::format("{}: {}: {} is not a whole number from 0 to {}", source,
                                 field.name, value.dump(), field.most));
}

/// Parses with two things refused that the parser lets through: a key that comes twice, of which
/// it would silently take the last, and depth that settings never have.
Json ParseStrictly(const std::string& text, const std::string& source) {
    constexpr int kMostDepth = 4;
    std::vector<std::set<std::string>> keys;
    const auto check = [&](int depth, Json::parse_event_t event, Json& parsed) {
        if (depth > kMostDepth) {
            throw UsageError(fmt::format("{}: nested deeper than {}", source, kMostDepth));
        }
        if (event == Json::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == Json::parse_event_t::object_end) {
            keys.pop_back();
        } else if (event == Json::parse_event_t::key &&
                   !keys.back().insert(parsed.get<std::string>()).second) {
            throw UsageError(
                fmt::format("{}: '{}' stands there twice", source, parsed.get<std::string>()));
        }
        return true;
    };
    try {
        return Json::parse(text, check);
    } catch (const Json::exception& exception) {
        throw UsageError(fmt::format("{}: no JSON: {}", source, exception.what()));
    }
}

}  // namespace

std::string ShowValue(SettingsValue value) {
    const bool* const flag = std::get_if<bool>(&value);
    return flag == nullptr ? std::to_string(std::get<std::uint64_t>(value))
                           : std::string(*flag ? "true" : "false");
}

SettingsChange ParseChange(std::string_view assignment) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string_view::npos) {
        throw UsageError(fmt::format("'{}' is not of the form NAME=VALUE", assignment));
    }
    const SettingsField& field = FindField(assignment.substr(0, equals), {});
    return {&field, ParseValue(field, assignment.substr(equals + 1))};
}

std::vector<SettingsChange> ParseDocument(const std::string& text, const std::string& source) {
    const Json document = ParseStrictly(text, source);
    if (!document.is_object()) {
        throw UsageError(fmt::format(
            "{}: no object of settings as 'zamctl --json settings get' prints it", source));
    }
    std::vector<SettingsChange> changes;
    for (const auto& [name, value] : document.items()) {
        // What 'settings get' printed is taken as it is, with the result of that call.
        if (name != "result") {
            const SettingsField& field = FindField(name, source + ": ");
            changes.push_back({&field, ValueOf(field, value, source)});
        }
    }
    return changes;
}

std::string SettingsTable(const ZamConnectorSettings& settings) {
    std::size_t nameWidth = 0;
    std::size_t valueWidth = 0;
    for (const SettingsField& field : SettingsFields()) {
        nameWidth = std::max(nameWidth, std::string_view(field.name).size());
        valueWidth = std::max(valueWidth, ShowValue(field.get(settings)).size());
    }
    std::string table;
    for (const SettingsField& field : SettingsFields()) {
        const SettingsValue value = field.get(settings);
        std::string line =
            fmt::format("{:<{}}  {:>{}}", field.name, nameWidth, ShowValue(value), valueWidth);
        if (*field.unit != '\0') {
            line += fmt::format(" {}", field.unit);
        }
        if (*field.whenZero != '\0' && value == SettingsValue(std::uint64_t{0})) {
            line += fmt::format(" ({})", field.whenZero);
        }
        table += (table.empty() ? "" : "\n") + line;
    }
    return table;
}

}  // namespace zamctl
