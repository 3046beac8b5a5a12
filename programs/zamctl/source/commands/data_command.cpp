#include "commands/data_command.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "output_file.h"
#include "printable.h"

namespace zamctl {

void DataCommand::Run(Context& context) {
    std::optional<OutputFile> file;
    if (options_.output && *options_.output != "-") {
        file.emplace(*options_.output);
    }
    const ConnectorInterfaces connector = context.Connector();
    const std::string content = fetch_(context, connector.dataProvider,
                                       {.json = context.output.IsJson(),
                                        .treeOnly = options_.treeOnly,
                                        .path = options_.path,
                                        .toFile = file.has_value()});
    if (!file) {
        context.output.Content(content);
        return;
    }
    file->Commit(content);
    // With JSON the one document stands in the file.
    if (!context.output.IsJson()) {
        context.output.Confirmation(
            fmt::format("{} bytes written to {}", content.size(), Quote(*options_.output)), {});
    }
}

void HashCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    unsigned long hash = 0;
    const int code = context.Checked(action_, [&] { return (connector.dataProvider.*ask_)(hash); });
    context.output.Result(HashText(hash), {{"hash", HashText(hash)}, {"result", code}});
}

}  // namespace zamctl
