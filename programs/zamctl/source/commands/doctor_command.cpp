#include "commands/doctor_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <optional>
#include <vector>

#include "command_set.h"
#include "fast_channel.h"
#include "finding.h"
#include "printable.h"
#include "round_trip.h"
#include "runtime_directory_check.h"
#include "version.h"
#include "vocabulary/state_names.h"
#include "wait_for_state.h"

namespace zamctl {
namespace {

/// A few, of which the median is shown: the first one also pays for what is made once.
constexpr std::size_t kRoundTrips = 5;

/// Many more than it takes until calls go through memory, as long as they are quick.
constexpr std::size_t kBurstCalls = 500;
constexpr std::chrono::milliseconds kBurstTime{50};

const char* StatusName(FindingStatus status) {
    switch (status) {
        case FindingStatus::Ok:
            return "ok";
        case FindingStatus::Warning:
            return "warning";
        case FindingStatus::Problem:
            break;
    }
    return "problem";
}

std::string LinesOf(const Finding& finding) {
    std::string lines = fmt::format("{:<8} {:<12}  {}\n", StatusName(finding.status), finding.check,
                                    PrintableLine(finding.text));
    if (!finding.remedy.empty()) {
        lines += fmt::format("{:21}  {}\n", "", PrintableLine(finding.remedy));
    }
    return lines;
}

Fields DocumentOf(const Finding& finding) {
    Fields check = {
        {"check", finding.check}, {"status", StatusName(finding.status)}, {"text", finding.text}};
    if (!finding.remedy.empty()) {
        check["remedy"] = finding.remedy;
    }
    check.Append(finding.details);
    return check;
}

/// What was found. As text each finding is printed as it comes: the next check may wait for a
/// service that answers nothing.
class Report {
public:
    /// `output` must outlive the object.
    explicit Report(Output& output) : output_(output) {}

    void Add(const Finding& finding) {
        worst_ = std::max(worst_, finding.status);
        if (output_.IsJson()) {
            checks_.push_back(DocumentOf(finding));
        } else if (!output_.IsQuiet() || finding.status != FindingStatus::Ok) {
            output_.Content(LinesOf(finding));
        }
    }

    bool HasProblem() const noexcept { return worst_ == FindingStatus::Problem; }

    /// The document, which is one.
    void End() {
        if (output_.IsJson()) {
            output_.Result({}, {{"status", StatusName(worst_)}, {"checks", checks_}});
        }
    }

private:
    Output& output_;
    FindingStatus worst_ = FindingStatus::Ok;
    FieldList checks_;
};

/// The version that a library's file is named after: "0.1.0" of "libzam_platform.so.0.1.0".
std::string VersionOf(const std::string& path) {
    constexpr std::string_view kMark = ".so.";
    const std::string name = std::filesystem::path(path).filename().string();
    const std::size_t mark = name.find(kMark);
    return mark == std::string::npos ? std::string() : name.substr(mark + kMark.size());
}

void CheckVersions(Report& report, const SystemView& system) {
    report.Add({"zamctl",
                FindingStatus::Ok,
                fmt::format("version {}", kVersion),
                {},
                {{"version", kVersion}}});
    const std::vector<LoadedLibrary> libraries = system.Libraries();
    if (libraries.empty()) {
        report.Add({"library",
                    FindingStatus::Ok,
                    fmt::format("version {}, part of zamctl", kVersion),
                    {},
                    {{"version", kVersion}}});
    }
    for (const LoadedLibrary& library : libraries) {
        const std::string version = VersionOf(library.path);
        const bool same = version == kVersion;
        report.Add(
            {"library",
             same ? FindingStatus::Ok : FindingStatus::Warning,
             fmt::format("version {}, {}", version.empty() ? "unknown" : version, library.path),
             same ? "" : "Install zamctl and the libraries of one version.",
             {{"version", version}, {"path", library.path}}});
    }
}

void CheckLogLevel(Report& report, const SystemView& system) {
    constexpr const char* kVariable = "ZAM_LOG_LEVEL";
    constexpr int kDefault = zor::logger::kLevelError;
    const std::optional<std::string> text = system.Variable(kVariable);
    int level = kDefault;
    if (!text) {
        report.Add({"log_level",
                    FindingStatus::Ok,
                    fmt::format("{}, as {} is not set", kDefault, kVariable),
                    {},
                    {{"level", kDefault}}});
        return;
    }
    const char* const end = text->data() + text->size();
    // As the library reads it: what is no number counts as not set.
    const auto [stop, error] = std::from_chars(text->data(), end, level);
    if (error != std::errc() || stop != end) {
        report.Add(
            {"log_level",
             FindingStatus::Warning,
             fmt::format("{}, as {} is '{}', which is no number", kDefault, kVariable, *text),
             fmt::format("Set {} to a number from 0 (everything) to 4 (failures), "
                         "or unset it.",
                         kVariable),
             {{"level", kDefault}}});
        return;
    }
    report.Add({"log_level",
                FindingStatus::Ok,
                fmt::format("{}, from {}", level, kVariable),
                {},
                {{"level", level}}});
}

Finding EndpointFinding(const EndpointReport& endpoint) {
    if (!endpoint.riid) {
        return {"endpoint",
                FindingStatus::Problem,
                fmt::format("{} is not known to the service", endpoint.name),
                "Restart zam_connectord, and install one of zamctl's version if that does not "
                "help.",
                {{"name", endpoint.name}}};
    }
    return {"endpoint",
            FindingStatus::Ok,
            fmt::format("{}, riid {}", endpoint.name, *endpoint.riid),
            {},
            {{"name", endpoint.name}, {"riid", *endpoint.riid}}};
}

void AddFailure(Report& report, const char* check, const ConnectorFailure& failure,
                const std::string& remedy) {
    // What is wrong with the directory, or an endpoint that is missing, stands above with its own
    // advice.
    const std::string advice = report.HasProblem() ? std::string() : remedy;
    report.Add({check, FindingStatus::Problem, failure.what(), advice, {}});
}

/// Connects to a service and looks its endpoints up. Gives the failure in which that ends.
std::optional<ConnectorFailure> CheckService(Report& report, Context& context,
                                             const std::string& service) {
    try {
        const std::vector<EndpointReport> endpoints =
            context.Reach([&service](ConnectorProvider& from) { return from.Endpoints(service); });
        report.Add({"service",
                    FindingStatus::Ok,
                    fmt::format("'{}' connected", service),
                    {},
                    {{"name", service}}});
        for (const EndpointReport& endpoint : endpoints) {
            report.Add(EndpointFinding(endpoint));
        }
        return std::nullopt;
    } catch (const ConnectorFailure& failure) {
        AddFailure(report, "service", failure,
                   failure.Status() == kExitTimedOut ? failure.Remedy()
                                                     : ConnectRemedy(context.system, service));
        return failure;
    }
}

/// Gives the failure when the connector cannot be made.
std::optional<ConnectorFailure> CheckConnector(Report& report, Context& context) {
    try {
        context.Connector();
        return std::nullopt;
    } catch (const ConnectorFailure& failure) {
        AddFailure(report, "connector", failure,
                   "Look into the log of zam_connectord; 'zamctl -v doctor' prints the library's "
                   "own records.");
        return failure;
    }
}

/// Times some calls. Gives the failure in which that ends.
std::exception_ptr CheckCalls(Report& report, Context& context) {
    try {
        const ConnectorInterfaces connector = context.Connector();
        std::array<std::chrono::nanoseconds, kRoundTrips> times{};
        StateAnswer answer{};
        for (std::chrono::nanoseconds& time : times) {
            const RoundTrip trip = TimeRoundTrip(context, connector.controller);
            time = trip.time;
            answer = trip.answer;
        }
        std::sort(times.begin(), times.end());
        const double median = Microseconds(Percentile(times, 50));
        const std::string state = zam_vocabulary::StateName(answer.state);
        report.Add(
            {"round_trip",
             FindingStatus::Ok,
             fmt::format("{:.1f} us, median of {} calls; state {}", median, kRoundTrips, state),
             {},
             {{"median_us", median}, {"calls", kRoundTrips}, {"state", state}}});
        return nullptr;
    } catch (const Failure& failure) {
        report.Add({"round_trip", FindingStatus::Problem, failure.what(), failure.Remedy(), {}});
        return std::current_exception();
    }
}

/// Makes calls that the fast channel is for.
void MakeBurst(Context& context) {
    const zam_connector::IZamConnController& controller = context.Connector().controller;
    std::chrono::nanoseconds time = kBurstTime;
    const Clock::TimePoint begin = context.clock.Now();
    if (context.timeout) {
        // Some of the time that is left, so that looking closer makes no command fail.
        time = std::min<std::chrono::nanoseconds>(time,
                                                  (context.start + *context.timeout - begin) / 2);
    }
    for (std::size_t call = 0; call < kBurstCalls && context.clock.Now() - begin < time; ++call) {
        AskState(context, controller);
    }
}

/// Looks whether calls go through memory. Gives the failure in which that ends.
std::exception_ptr CheckFastChannel(Report& report, Context& context) {
    try {
        const auto look = [](ConnectorProvider& from) { return from.FastChannel(); };
        const FastChannelUse before = context.Reach(look);
        if (MayBeFast(before)) {
            MakeBurst(context);
        }
        const FastChannelReport found =
            ReportFastChannel(before, context.Reach(look), context.system, kWhatItNeeds);
        report.Add({"fast_channel", FindingStatus::Ok, found.text, {}, found.fields});
        return nullptr;
    } catch (const Failure& failure) {
        report.Add({"fast_channel", FindingStatus::Problem, failure.what(), failure.Remedy(), {}});
        return std::current_exception();
    }
}

}  // namespace

void DoctorCommand::Run(Context& context) {
    context.Begin();
    Report report(context.output);
    CheckVersions(report, context.system);
    CheckLogLevel(report, context.system);
    const std::vector<std::string> services = context.provider.ServiceNames();
    for (const Finding& finding : CheckRuntimeDirectory(context.system, services)) {
        report.Add(finding);
    }
    std::optional<ConnectorFailure> failedService;
    for (const std::string& service : services) {
        // Every service is looked at, and the first failure counts.
        const auto failure = CheckService(report, context, service);
        failedService = failedService ? failedService : failure;
    }
    if (!failedService) {
        failedService = CheckConnector(report, context);
    }
    std::exception_ptr failedCall;
    if (!failedService) {
        failedCall = CheckCalls(report, context);
        if (!failedCall) {
            failedCall = CheckFastChannel(report, context);
        }
    }
    // Whole, also before a failure: the report is what was asked for.
    report.End();
    if (failedCall) {
        std::rethrow_exception(failedCall);
    }
    if (report.HasProblem()) {
        throw ConnectorFailure("the connector cannot be made",
                               "The lines of the report that begin with 'problem' say what to do.",
                               failedService ? failedService->Status() : kExitNoConnector);
    }
}

void DeclareDoctor(CommandSet& commands) {
    commands.Add("doctor", "Check what is installed and can be reached",
                 std::make_shared<DoctorCommand>());
}

}  // namespace zamctl
