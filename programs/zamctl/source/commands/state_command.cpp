#include "commands/state_command.h"

#include <nlohmann/json.hpp>

#include "vocabulary/state_names.h"

namespace zamctl {

void StateCommand::Run(Context& context) {
    const ConnectorInterfaces connector = context.Connector();
    const StateAnswer answer =
        options_.waitFor
            ? WaitForState(
                  context, connector.controller,
                  {.target = *options_.waitFor, .timeout = options_.timeout, .hopeless = {}})
            : AskState(context, connector.controller);
    const std::string name = zam_vocabulary::StateName(answer.state);
    context.output.Result(name, {{"state", name}, {"result", answer.code}});
}

}  // namespace zamctl
