#include "faults/fault_rules.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <limits>
#include <span>
#include <string>

#include "data/result_code_json.h"
#include "endpoints/endpoint_catalog.h"

namespace zam_service {

using zam_json::JsonValue;

namespace {

/// Highest number of a call that a rule can name.
constexpr std::uint64_t kMaxCall = std::numeric_limits<std::uint32_t>::max();

const Endpoint& ReadEndpoint(const JsonValue& value) {
    const Endpoint* const endpoint = value.IsText() ? FindEndpoint(value.Text()) : nullptr;
    if (endpoint == nullptr) {
        std::vector<std::string_view> names;
        for (const Endpoint& known : Endpoints()) {
            names.push_back(known.shortName);
        }
        value.Refuse(fmt::format("one of {}", fmt::join(names, ", ")));
    }
    return *endpoint;
}

/// The operation named, or all of them for "*".
std::span<const qx::OperationInfo> ReadOperations(const JsonValue& value,
                                                  const Endpoint& endpoint) {
    if (value.IsText() && value.Text() == "*") {
        return endpoint.operations;
    }
    const qx::OperationInfo* const operation =
        value.IsText() ? FindOperation(endpoint, value.Text()) : nullptr;
    if (operation == nullptr) {
        std::vector<std::string_view> names;
        for (const qx::OperationInfo& known : endpoint.operations) {
            names.push_back(known.name);
        }
        value.Refuse(fmt::format("* or one of {}", fmt::join(names, ", ")));
    }
    return {operation, 1};
}

/// Refuses a field that some operation's answer does not have.
void CheckField(const JsonValue& rule, const char* name,
                std::span<const qx::OperationInfo> operations,
                std::uint32_t qx::OperationInfo::*offset) {
    const auto field = rule.Find(name);
    for (const qx::OperationInfo& operation : operations) {
        if (field && operation.*offset == qx::kNoField) {
            field->Fail(fmt::format("the answer of {} has no {}", operation.name, name));
        }
    }
}

void CheckAlone(const JsonValue& rule, const char* name,
                std::initializer_list<const char*> excluded) {
    if (!rule.Find(name)) {
        return;
    }
    for (const char* const other : excluded) {
        if (const auto member = rule.Find(other)) {
            member->Fail(fmt::format("a call with {} gets no answer that could have this", name));
        }
    }
}

}  // namespace

FaultRules::FaultRules() : random_(std::random_device()()) {}

FaultRules FaultRules::Read(const JsonValue& root) {
    root.CheckMembers({"rules", "seed"});
    FaultRules faults;
    if (const auto seed = root.Find("seed")) {
        faults.random_.seed(seed->Unsigned(0, std::numeric_limits<std::uint64_t>::max()));
    }
    if (const auto rules = root.Find("rules")) {
        for (const JsonValue& rule : rules->Elements(0, kMaxFaultRules)) {
            faults.rules_.push_back(ReadRule(rule));
        }
    }
    return faults;
}

FaultRules::Rule FaultRules::ReadRule(const JsonValue& value) {
    value.CheckMembers({"endpoint", "operation", "calls", "probability", "when", "transport_status",
                        "session_status", "result_code", "damage", "delay_ms", "drop"});
    const Endpoint& endpoint = ReadEndpoint(value.At("endpoint"));
    const auto operations = ReadOperations(value.At("operation"), endpoint);
    Rule rule;
    rule.riid = endpoint.riid;
    if (value.At("operation").Text() != "*") {
        rule.operation = operations.front().number;
    }
    ReadCalls(value, rule);
    if (const auto probability = value.Find("probability")) {
        rule.probability = probability->Number(0, 1);
    }
    ReadDamage(value, rule);
    ReadFault(value, rule.fault);
    CheckField(value, "session_status", operations, &qx::OperationInfo::sessionStatusOffset);
    CheckField(value, "result_code", operations, &qx::OperationInfo::resultCodeOffset);
    return rule;
}

void FaultRules::ReadCalls(const JsonValue& value, Rule& rule) {
    const auto calls = value.Find("calls");
    if (!calls || (calls->IsText() && calls->Text() == "all")) {
        return;
    }
    if (calls->IsArray()) {
        const std::vector<JsonValue> range = calls->Elements(2, 2);
        rule.firstCall = range[0].Unsigned(1, kMaxCall);
        rule.lastCall = range[1].Unsigned(rule.firstCall, kMaxCall);
    } else if (calls->IsNumber()) {
        rule.firstCall = calls->Unsigned(1, kMaxCall);
        rule.lastCall = rule.firstCall;
    } else {
        calls->Refuse(R"("all", the number of a call, or an array of the first and the last)");
    }
}

/// Each damage is for the answers of one operation.
void FaultRules::ReadDamage(const JsonValue& value, Rule& rule) {
    const auto damage = value.Find("damage");
    if (!damage) {
        return;
    }
    rule.fault.damage = damage->IsText() ? FindPieceDamage(damage->Text()) : std::nullopt;
    if (!rule.fault.damage) {
        damage->Refuse(fmt::format("one of {}", fmt::join(kPieceDamageNames, ", ")));
    }
    const DamagedOperation damaged = OperationOf(*rule.fault.damage);
    const Endpoint& endpoint = EndpointOf(damaged.interface);
    const qx::OperationInfo* const operation = FindOperation(endpoint, damaged.operation);
    if (rule.riid != endpoint.riid || rule.operation != operation->number) {
        damage->Fail(fmt::format("only the answer of {} of {} can have this", operation->name,
                                 endpoint.shortName));
    }
    if (!value.Find("when")) {
        rule.fault.when = FaultTime::After;
    }
}

void FaultRules::ReadFault(const JsonValue& value, Fault& fault) {
    if (const auto when = value.Find("when")) {
        const std::string text = when->IsText() ? when->Text() : "";
        if (text != "before" && text != "after") {
            when->Refuse(R"("before" or "after")");
        }
        fault.when = text == "after" ? FaultTime::After : FaultTime::Before;
    }
    if (const auto status = value.Find("transport_status")) {
        const std::int64_t number = status->Signed(std::numeric_limits<std::int32_t>::min(),
                                                   std::numeric_limits<std::int32_t>::max());
        if (number == 0) {
            status->Refuse("a whole number other than 0, which is success");
        }
        fault.transportStatus = static_cast<std::int32_t>(number);
    }
    if (const auto status = value.Find("session_status")) {
        fault.sessionStatus = static_cast<std::int8_t>(status->Signed(
            std::numeric_limits<std::int8_t>::min(), std::numeric_limits<std::int8_t>::max()));
    }
    if (const auto code = value.Find("result_code")) {
        fault.resultCode = ReadResultCode(*code);
    }
    if (const auto delay = value.Find("delay_ms")) {
        fault.delay = std::chrono::milliseconds(delay->Signed(0, kMaxFaultDelay.count()));
    }
    if (const auto drop = value.Find("drop")) {
        fault.drop = drop->Boolean();
    }
    if (fault.damage && fault.when == FaultTime::Before) {
        value.At("when").Fail("there is no answer to damage before the work");
    }
    if (fault.drop) {
        CheckAlone(value, "drop", {"transport_status", "session_status", "result_code", "damage"});
    }
    CheckAlone(value, "transport_status", {"session_status", "result_code", "damage"});
    if (fault.IsDelayOnly() && !value.Find("delay_ms")) {
        value.Fail(
            "the rule changes nothing; give it one of transport_status, session_status, "
            "result_code, damage, delay_ms, drop");
    }
}

std::optional<Fault> FaultRules::Decide(std::uint16_t riid, std::uint16_t operation) {
    std::optional<Fault> decided;
    for (Rule& rule : rules_) {
        if (rule.riid != riid || rule.operation.value_or(operation) != operation) {
            continue;
        }
        ++rule.calls;
        const bool applies = rule.calls >= rule.firstCall && rule.calls <= rule.lastCall;
        if (!decided && applies && (!rule.probability || Draw() < *rule.probability)) {
            decided = rule.fault;
        }
    }
    return decided;
}

/// From 0 up to, but not including, 1; the same for a seed with every compiler.
double FaultRules::Draw() {
    constexpr double kSteps = 1ULL << 53U;
    return static_cast<double>(random_() >> 11U) / kSteps;
}

}  // namespace zam_service
