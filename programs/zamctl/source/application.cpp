#include "application.h"

#include <fmt/format.h>

#include <ostream>

#include "call_timeout.h"
#include "command_line.h"
#include "printable.h"

namespace zamctl {
namespace {

std::string RemedyOf(const Failure& failure, const std::string& commandName) {
    if (!failure.Remedy().empty() || failure.Status() != kExitUsage) {
        return failure.Remedy();
    }
    return fmt::format("See 'zamctl {}{}--help'.", commandName, commandName.empty() ? "" : " ");
}

void PrintFailure(std::ostream& err, const Failure& failure, const std::string& commandName) {
    // Messages quote arguments and what the service says: none of it may steer a terminal.
    err << fmt::format("zamctl{}{}: {}\n", commandName.empty() ? "" : " ", commandName,
                       PrintableLine(failure.what()));
    const std::string remedy = RemedyOf(failure, commandName);
    if (!remedy.empty()) {
        err << PrintableLine(remedy) << '\n';
    }
    err << std::flush;
}

/// What bounds a command, in words.
std::string BoundOf(const Command& command, const Globals& globals) {
    if (globals.timeout) {
        return "--timeout alone bounds the command";
    }
    const auto seconds = std::chrono::floor<std::chrono::seconds>(command.CallTimeout()).count();
    return seconds == 0 ? "calls have no time-out" : fmt::format("each call has {} s", seconds);
}

}  // namespace

void Application::RunCommand(Command& command, const Globals& globals) {
    const std::string wrong = TakeWrongCallTimeout(surroundings_.system, BoundOf(command, globals));
    if (!wrong.empty() && command.HasMessages()) {
        // Also when nobody reads it.
        if (const auto time = command.Limit(globals.timeout)) {
            surroundings_.clock.LimitRun(*time + kGrace, "", kExitFailed);
        }
        surroundings_.err << fmt::format("zamctl: {}\n", PrintableLine(wrong)) << std::flush;
    }
    // Who says how long the whole may take may want longer than a call has.
    SetCallTimeout(surroundings_.system,
                   globals.timeout ? std::chrono::milliseconds(0) : command.CallTimeout());
    Context context(surroundings_, globals.format, globals.timeout, command.Limit(globals.timeout));
    command.Run(context);
}

int Application::Run(const std::vector<std::string>& arguments) {
    Invocation invocation;
    // The message of a failure may be what nobody reads: the failure's status stays.
    const auto limit = [this, &invocation](int status) {
        const std::optional<std::chrono::milliseconds> timeout = invocation.globals.timeout;
        const auto time = invocation.command ? invocation.command->Limit(timeout) : timeout;
        if (time) {
            surroundings_.clock.LimitRun(*time + kGrace, "", status);
        }
    };
    try {
        ParseCommandLine(arguments, invocation);
        surroundings_.records.SetVerbose(invocation.globals.verbose);
        if (invocation.command == nullptr) {
            limit(kExitFailed);
            surroundings_.out << invocation.information << '\n' << std::flush;
        } else {
            RunCommand(*invocation.command, invocation.globals);
        }
        // A full disk shows only here; a script must not take half a result for the whole.
        if (!surroundings_.out) {
            throw Failure(kExitFailed, "the result could not be written to standard output",
                          "What was asked for has been done all the same.");
        }
        return kExitDone;
    } catch (const ReaderGone&) {
        return kExitDone;
    } catch (const Failure& failure) {
        limit(failure.Status());
        PrintFailure(surroundings_.err, failure, invocation.commandName);
        return failure.Status();
    } catch (const std::exception& exception) {
        limit(kExitFailed);
        PrintFailure(surroundings_.err, Failure(kExitFailed, exception.what()),
                     invocation.commandName);
        return kExitFailed;
    }
}

}  // namespace zamctl
