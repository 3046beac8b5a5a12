#include "commands/doctor_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <optional>
#include <vector>

#include "command_set.h"
#include "finding.h"
#include "round_trip.h"
#include "runtime_directory_check.h"
#include "version.h"
#include "vocabulary/state_names.h"

namespace zamctl {
namespace {

/// A few, of which the median is shown: the first one also pays for what is made once.
constexpr std::size_t kRoundTrips = 5;

using Findings = std::vector<Finding>;

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

/// The version that a library's file is named after: "0.1.0" of "libzam_platform.so.0.1.0".
std::string VersionOf(const std::string& path) {
    constexpr std::string_view kMark = ".so.";
    const std::string name = std::filesystem::path(path).filename().string();
    const std::size_t mark = name.find(kMark);
    return mark == std::string::npos ? std::string() : name.substr(mark + kMark.size());
}

void CheckVersions(Findings& findings, const SystemView& system) {
    findings.push_back({"zamctl",
                        FindingStatus::Ok,
                        fmt::format("version {}", kVersion),
                        {},
                        {{"version", kVersion}}});
    const std::vector<LoadedLibrary> libraries = system.Libraries();
    if (libraries.empty()) {
        findings.push_back({"library",
                            FindingStatus::Ok,
                            fmt::format("version {}, part of zamctl", kVersion),
                            {},
                            {{"version", kVersion}}});
    }
    for (const LoadedLibrary& library : libraries) {
        const std::string version = VersionOf(library.path);
        const bool same = version == kVersion;
        findings.push_back(
            {"library",
             same ? FindingStatus::Ok : FindingStatus::Warning,
             fmt::format("version {}, {}", version.empty() ? "unknown" : version, library.path),
             same ? "" : "Install zamctl and the libraries of one version.",
             {{"version", version}, {"path", library.path}}});
    }
}

void CheckLogLevel(Findings& findings, const SystemView& system) {
    constexpr const char* kVariable = "ZAM_LOG_LEVEL";
    constexpr int kDefault = zor::logger::kLevelError;
    const std::optional<std::string> text = system.Variable(kVariable);
    int level = kDefault;
    if (!text) {
        findings.push_back({"log_level",
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
        findings.push_back(
            {"log_level",
             FindingStatus::Warning,
             fmt::format("{}, as {} is '{}', which is no number", kDefault, kVariable, *text),
             fmt::format("Set {} to a number from 0 (everything) to 4 (failures), "
                         "or unset it.",
                         kVariable),
             {{"level", kDefault}}});
        return;
    }
    findings.push_back({"log_level",
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

bool HasProblem(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.status == FindingStatus::Problem;
    });
}

void AddFailure(Findings& findings, const char* check, const ConnectorFailure& failure,
                const std::string& remedy) {
    // What is wrong with the directory, or an endpoint that is missing, stands above with its own
    // advice.
    const std::string advice = HasProblem(findings) ? std::string() : remedy;
    findings.push_back({check, FindingStatus::Problem, failure.what(), advice, {}});
}

/// Connects to a service and looks its endpoints up. False when it cannot be reached.
bool CheckService(Findings& findings, Context& context, const std::string& service) {
    try {
        const std::vector<EndpointReport> endpoints =
            context.Reach([&service](ConnectorProvider& from) { return from.Endpoints(service); });
        findings.push_back({"service",
                            FindingStatus::Ok,
                            fmt::format("'{}' connected", service),
                            {},
                            {{"name", service}}});
        for (const EndpointReport& endpoint : endpoints) {
            findings.push_back(EndpointFinding(endpoint));
        }
        return true;
    } catch (const ConnectorFailure& failure) {
        AddFailure(findings, "service", failure, ConnectRemedy(context.system, service));
        return false;
    }
}

/// False when the connector cannot be made.
bool CheckConnector(Findings& findings, Context& context) {
    try {
        context.Connector();
        return true;
    } catch (const ConnectorFailure& failure) {
        AddFailure(findings, "connector", failure,
                   "Look into the log of zam_connectord; 'zamctl -v doctor' prints the library's "
                   "own records.");
        return false;
    }
}

/// Times some calls. Gives the failure in which that ends.
std::optional<CallFailure> CheckCalls(Findings& findings, Context& context) {
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
        findings.push_back(
            {"round_trip",
             FindingStatus::Ok,
             fmt::format("{:.1f} us, median of {} calls; state {}", median, kRoundTrips, state),
             {},
             {{"median_us", median}, {"calls", kRoundTrips}, {"state", state}}});
        return std::nullopt;
    } catch (const CallFailure& failure) {
        findings.push_back(
            {"round_trip", FindingStatus::Problem, failure.what(), failure.Remedy(), {}});
        return failure;
    }
}

void PrintReport(Output& output, const Findings& findings) {
    FindingStatus worst = FindingStatus::Ok;
    std::string lines;
    FieldList checks;
    for (const Finding& finding : findings) {
        worst = std::max(worst, finding.status);
        Fields check = {{"check", finding.check},
                        {"status", StatusName(finding.status)},
                        {"text", finding.text}};
        if (!finding.remedy.empty()) {
            check["remedy"] = finding.remedy;
        }
        check.Append(finding.details);
        checks.push_back(std::move(check));
        if (output.IsQuiet() && finding.status == FindingStatus::Ok) {
            continue;
        }
        lines += fmt::format("{}{:<8} {:<11}  {}", lines.empty() ? "" : "\n",
                             StatusName(finding.status), finding.check, finding.text);
        if (!finding.remedy.empty()) {
            lines += fmt::format("\n{:20}  {}", "", finding.remedy);
        }
    }
    if (lines.empty()) {
        output.Confirmation(lines, {{"status", StatusName(worst)}, {"checks", checks}});
    } else {
        output.Result(lines, {{"status", StatusName(worst)}, {"checks", checks}});
    }
}

}  // namespace

void DoctorCommand::Run(Context& context) {
    Findings findings;
    CheckVersions(findings, context.system);
    CheckLogLevel(findings, context.system);
    const std::vector<std::string> services = context.provider.ServiceNames();
    const Findings directory = CheckRuntimeDirectory(context.system, services);
    findings.insert(findings.end(), directory.begin(), directory.end());
    bool isReached = true;
    for (const std::string& service : services) {
        // The call stands first, so that every service is looked at.
        isReached = CheckService(findings, context, service) && isReached;
    }
    std::optional<CallFailure> failedCall;
    if (isReached && CheckConnector(findings, context)) {
        failedCall = CheckCalls(findings, context);
    }
    // Whole, also before a failure: the report is what was asked for.
    PrintReport(context.output, findings);
    if (failedCall) {
        throw CallFailure(*failedCall);
    }
    if (HasProblem(findings)) {
        throw ConnectorFailure("the connector cannot be made",
                               "The lines of the report that begin with 'problem' say what to do.");
    }
}

void DeclareDoctor(CommandSet& commands) {
    commands.Add("doctor", "Check what is installed and can be reached",
                 std::make_shared<DoctorCommand>());
}

}  // namespace zamctl
