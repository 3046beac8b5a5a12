#include "commands/event_command.h"

#include <fmt/format.h>

#include <array>
#include <istream>

#include "codes.h"
#include "command_set.h"

namespace zamctl {
namespace {

void CheckSize(std::size_t bytes) {
    if (bytes > kMaxEventBytes) {
        throw UsageError(
            fmt::format("the event has {} bytes; at most {} are allowed", bytes, kMaxEventBytes));
    }
}

/// Reads to the end, so that the message can tell the size, and keeps no more than is of use.
std::string ReadEvent(std::istream& in) {
    std::string kept;
    std::size_t bytes = 0;
    char last = '\0';
    std::array<char, 4096> buffer{};
    while (in.read(buffer.data(), buffer.size()), in.gcount() > 0) {
        const auto got = static_cast<std::size_t>(in.gcount());
        bytes += got;
        last = buffer[got - 1];
        if (kept.size() <= kMaxEventBytes) {
            kept.append(buffer.data(), got);
        }
    }
    if (in.bad()) {
        throw UsageError("the event cannot be read from standard input");
    }
    // What `echo` writes ends in a line end that is no part of the event.
    const std::size_t lineEnd = last == '\n' ? 1 : 0;
    CheckSize(bytes - lineEnd);
    kept.resize(bytes - lineEnd);
    return kept;
}

}  // namespace

void EventCommand::Declare(Options& options) {
    options
        .Text("TEXT", "TEXT", text_,
              fmt::format("At most {} bytes; - reads standard input", kMaxEventBytes))
        .Required();
}

void EventCommand::Run(Context& context) {
    CheckSize(text_.size());
    const std::string event = text_ == "-" ? ReadEvent(context.in) : text_;
    const ConnectorInterfaces connector = context.Connector();
    const int code = context.Checked("post the event",
                                     [&] { return connector.commandSender.PostZamEvent(event); });
    context.output.Confirmation(
        SuccessText(code, fmt::format("event posted ({} bytes)", event.size()), "nothing to do"),
        {{"bytes", event.size()}, {"result", code}});
}

void DeclareEvent(CommandSet& commands) {
    commands.Add("event", "Post an event to the server", std::make_shared<EventCommand>());
}

}  // namespace zamctl
