#include "commands/state_command.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "command_set.h"
#include "nearest.h"
#include "vocabulary/state_names.h"

namespace zamctl {

void StateCommand::Declare(Options& options) {
    const auto parse = [this](const std::string& text) {
        waitFor_ = zam_vocabulary::StateOfName(text);
        if (!waitFor_) {
            throw UsageError(
                fmt::format("--wait: '{}' is no state{}", text,
                            SuggestName(text, zam_vocabulary::StateNames(), "states")));
        }
    };
    const Option wait = options
                            .Value("--wait", "STATE", parse,
                                   fmt::format("Wait until the state is one of: {}",
                                               fmt::join(zam_vocabulary::StateNames(), ", ")))
                            .Offers(OfferWords(zam_vocabulary::StateNames()));
    const Option watch =
        options.Flag("--watch", watches_, "Print each change as it comes, until interrupted")
            .Excludes(wait);
    watch_.DeclareCount(options).Needs(watch);
}

void StateCommand::Run(Context& context) {
    if (watches_) {
        watch_.Run(context);
        return;
    }
    const ConnectorInterfaces connector = context.Connector();
    const StateAnswer answer = waitFor_ ? WaitForState(context, connector.controller,
                                                       {.target = *waitFor_, .hopeless = {}})
                                        : AskState(context, connector.controller);
    const std::string name = zam_vocabulary::StateName(answer.state);
    context.output.Result(name, {{"state", name}, {"result", answer.code}});
}

void DeclareState(CommandSet& commands) {
    commands.Add("state", "Print the state of the connection", std::make_shared<StateCommand>());
}

}  // namespace zamctl
