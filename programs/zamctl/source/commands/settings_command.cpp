#include "commands/settings_command.h"

#include <fmt/format.h>

#include <algorithm>

#include "codes.h"
#include "command_set.h"
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

FieldValue ValueOf(const SettingsValue& value) {
    return std::visit([](auto plain) { return FieldValue(plain); }, value);
}

/// What differs between two records, as lines and as an object.
struct Difference {
    std::string lines;
    Fields object;
};

Difference Compare(const ZamConnectorSettings& before, const ZamConnectorSettings& after) {
    Difference difference;
    for (const SettingsField& field : SettingsFields()) {
        const SettingsValue from = field.get(before);
        const SettingsValue to = field.get(after);
        if (from != to) {
            difference.lines += fmt::format("{}{}: {} -> {}", difference.lines.empty() ? "" : "\n",
                                            field.name, ShowValue(from), ShowValue(to));
            difference.object[field.name] = Fields{{"from", ValueOf(from)}, {"to", ValueOf(to)}};
        }
    }
    return difference;
}

/// Names of settings, and behind one of a flag its values. Names are those of a service that runs
/// here: without one there is nothing that could be set.
Offer OfferChanges(Context& context, const std::string& begun) {
    ConnectorInterfaces connector = context.Connector();
    int code = 0;
    const ZamConnectorSettings settings = Read(context, connector, code);
    Offer offer{.kind = Offer::Kind::Parts};
    for (const SettingsField& field : SettingsFields()) {
        const std::string name = field.name + std::string("=");
        if (!begun.starts_with(name)) {
            offer.words.push_back(name);
        } else if (std::holds_alternative<bool>(field.get(settings))) {
            offer = {.words = {name + ShowValue(true), name + ShowValue(false)}};
            break;
        }
    }
    return offer;
}

/// Reads assignments of which each names another setting. Not while the command line is parsed: an
/// option that is unknown is told of first. Throws `UsageError`.
std::vector<SettingsChange> ParseAssignments(const std::vector<std::string>& texts) {
    std::vector<SettingsChange> changes;
    for (const std::string& text : texts) {
        const SettingsChange change = ParseChange(text);
        const bool twice = std::any_of(
            changes.begin(), changes.end(),
            [&change](const SettingsChange& other) { return other.field == change.field; });
        if (twice) {
            throw UsageError(fmt::format("{} is given twice", change.field->name));
        }
        changes.push_back(change);
    }
    return changes;
}

}  // namespace

void SettingsGetCommand::Run(Context& context) {
    ConnectorInterfaces connector = context.Connector();
    int code = 0;
    const ZamConnectorSettings settings = Read(context, connector, code);
    Fields document;
    for (const SettingsField& field : SettingsFields()) {
        document[field.name] = ValueOf(field.get(settings));
    }
    document["result"] = code;
    context.output.Result(SettingsTable(settings), document);
}

void SettingsSetCommand::Declare(Options& options) {
    options
        .Values(
            "CHANGE", "NAME=VALUE",
            [this](const std::string& text) { assignments_.push_back(text); },
            "Names as 'settings get' prints them")
        .Offers(OfferChanges);
    options.File(
        "--from", [this](const std::string& file) { file_ = file; },
        "Take what 'settings get --json' printed from a file, - for standard input");
}

void SettingsSetCommand::Run(Context& context) {
    const std::vector<SettingsChange> assignments = ParseAssignments(assignments_);
    if (assignments_.empty() && !file_) {
        throw UsageError("nothing to set: give NAME=VALUE or --from FILE");
    }
    std::vector<SettingsChange> changes;
    if (file_) {
        const Input input = ReadInput("--from", *file_, context.in, kMaxDocumentBytes);
        changes = ParseDocument(input.text, input.name);
    }
    // Behind the file's, so that the command line has the last word.
    changes.insert(changes.end(), assignments.begin(), assignments.end());

    ConnectorInterfaces connector = context.Connector();
    int code = 0;
    const ZamConnectorSettings before = Read(context, connector, code);
    // The service takes all settings at once: those that are not named go back as they came.
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

void DeclareSettings(CommandSet& commands) {
    CommandSet settings = commands.Group("settings", "Print or change the connector's settings");
    settings.Add("get", "Print all settings with their units",
                 std::make_shared<SettingsGetCommand>());
    settings.Add("set", "Change settings and print what has changed",
                 std::make_shared<SettingsSetCommand>());
}

}  // namespace zamctl
