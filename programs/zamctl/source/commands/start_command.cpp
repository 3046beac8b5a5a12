#include "commands/start_command.h"

#include <fmt/format.h>

#include <limits>

#include "codes.h"
#include "command_set.h"
#include "values.h"
#include "vocabulary/state_names.h"

namespace zamctl {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kMostMilliseconds = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMostPort = std::numeric_limits<std::uint16_t>::max();

}  // namespace

using zam_connector::ZamConnectorState;

void StartCommand::Declare(Options& options) {
    const auto address = [this](const std::string& text) {
        if (text.empty()) {
            throw UsageError("--server: the value is empty; a host name or an address is needed");
        }
        parameters_.serverAddress = text;
    };
    options.Value("--server", "HOST", address, "Host name or address").Required();
    const auto port = [this](std::uint64_t value) {
        parameters_.serverPort = static_cast<std::uint16_t>(value);
    };
    options.Number("--port", "N", {1, kMostPort}, port, "Port of the server").Required();
    options.Text("--product", "NAME", parameters_.productName, "What the device is registered as");
    options.Text("--device", "NAME", parameters_.deviceName,
                 "Name that the server shows for the device");
    const auto proxy = [this](const std::string& text) {
        CheckProxyUrl("--proxy", text);
        parameters_.proxyUrl = text;
    };
    options.Value("--proxy", "URL", proxy, "Proxy on the way, http://[user:password@]host:port");
    const auto time = [&options](const char* name, milliseconds& target, const char* description) {
        options.Number(
            name, "MS", {0, kMostMilliseconds},
            [&target](std::uint64_t value) { target = milliseconds(value); }, description);
    };
    time("--connect-timeout", parameters_.connectTimeout,
         "For one attempt to connect, 0 leaves it to the service");
    time("--request-timeout", parameters_.requestTimeout,
         "For one request, 0 leaves it to the service");
    time("--keep-alive", parameters_.keepAlivePeriod,
         "Between signs of life, 0 leaves it to the service");
    options.Flag("--wait", waits_, "Wait until connected");
}

void StartCommand::CheckTexts() const {
    const std::size_t bytes = parameters_.serverAddress.size() + parameters_.productName.size() +
                              parameters_.deviceName.size() + parameters_.proxyUrl.size();
    if (bytes > kMaxStartTextBytes) {
        throw UsageError(
            fmt::format("--server, --product, --device and --proxy together have {} bytes; at "
                        "most {} are allowed",
                        bytes, kMaxStartTextBytes));
    }
}

void StartCommand::Run(Context& context) {
    CheckTexts();
    const ConnectorInterfaces connector = context.Connector();
    const int code = context.Checked("start the connection",
                                     [&] { return connector.controller.Start(parameters_); });
    if (!waits_) {
        context.output.Confirmation(
            SuccessText(code,
                        fmt::format("started: connecting to {}:{}", parameters_.serverAddress,
                                    parameters_.serverPort),
                        "already started; nothing to do"),
            {{"result", code}});
        return;
    }
    WaitForState(context, connector.controller,
                 {.target = ZamConnectorState::Connected, .hopeless = ZamConnectorState::Refused});
    context.output.Confirmation(
        SuccessText(code, "connected", "already started; connected"),
        {{"result", code}, {"state", zam_vocabulary::StateName(ZamConnectorState::Connected)}});
}

void DeclareStart(CommandSet& commands) {
    commands.Add("start", "Start the connection to the server", std::make_shared<StartCommand>());
}

}  // namespace zamctl
