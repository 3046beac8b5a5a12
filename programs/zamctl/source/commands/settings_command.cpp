#include "commands/settings_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "codes.h"
#include "input_file.h"

namespace zamctl {
namespace {

using zam_connector::ZamConnectorSettings;

/// A document of settings has less than 1 KiB; this is far more than it takes and little to hold.
constexpr std::size_t kMaxDocumentBytes = 64UL * 1024;

ZamConnectorSettings Read(Context& context, ConnectorInterfaces& connector, int& code) {
    ZamConnectorSettings settings;
    code = context.Checked("read the settings",
                           [&] { return connector.settingsHolder.Get(settings); });
    return settings;
}

/// What differs between two records, as lines and as an object.
struct Difference {
    std::string lines;
    Json object = Json::object();
};

Difference Compare(const ZamConnectorSettings& before, const ZamConnectorSettings& after) {
    Difference difference;
    for (const SettingsField& field : SettingsFields()) {
        const SettingsValue from = field.get(before);
        const SettingsValue to = field.get(after);
        if (from != to) {
            difference.lines += fmt::format("{}{}: {} -> {}", difference.lines.empty() ? "" : "\n",
                                            field.name, ShowValue(from), ShowValue(to));
            difference.object[field.name] = {{"from", ToJson(from)}, {"to", ToJson(to)}};
        }
    }
    return difference;
}

}  // namespace

void SettingsGetCommand::Run(Context& context) {
    ConnectorInterfaces connector = context.Connector();
    int code = 0;
    const ZamConnectorSettings settings = Read(context, connector, code);
    Json document = SettingsObject(settings);
    document["result"] = code;
    context.output.Result(SettingsTable(settings), document);
}

SettingsSetCommand::SettingsSetCommand(const Options& options) : file_(options.file) {
    for (const std::string& assignment : options.assignments) {
        const SettingsChange change = ParseChange(assignment);
        const bool twice = std::any_of(
            assignments_.begin(), assignments_.end(),
            [&change](const SettingsChange& other) { return other.field == change.field; });
        if (twice) {
            throw UsageError(fmt::format("{} is given twice", change.field->name));
        }
        assignments_.push_back(change);
    }
    if (assignments_.empty() && !file_) {
        throw UsageError("nothing to set: give NAME=VALUE or --from FILE");
    }
}

void SettingsSetCommand::Run(Context& context) {
    std::vector<SettingsChange> changes;
    if (file_) {
        const Input input = ReadInput("--from", *file_, context.in, kMaxDocumentBytes);
        changes = ParseDocument(input.text, input.name);
    }
    changes.insert(changes.end(), assignments_.begin(), assignments_.end());

    ConnectorInterfaces connector = context.Connector();
    int code = 0;
    const ZamConnectorSettings before = Read(context, connector, code);
    ZamConnectorSettings after = before;
    for (const SettingsChange& change : changes) {
        change.field->set(after, change.value);
    }
    code =
        context.Checked("write the settings", [&] { return connector.settingsHolder.Set(after); });

    const Difference difference = Compare(before, after);
    context.output.Confirmation(
        SuccessText(code, difference.lines.empty() ? "nothing has changed" : difference.lines,
                    "nothing to do"),
        {{"changed", difference.object}, {"result", code}});
}

}  // namespace zamctl
