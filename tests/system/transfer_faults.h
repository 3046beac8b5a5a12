#pragma once

#include <string>
#include <vector>

#include "data_fixture.h"
#include "support/result_codes.h"
#include "transfer_channels.h"

namespace zam_connector::test {

using Lines = std::vector<std::string>;

/// What a rule does to a call, and what the library makes of it.
struct Effect {
    const char* rule;
    int code;
    const char* line;  ///< behind "Ipc call NAME terminated with a "
};

inline constexpr Effect kEffects[] = {
    {R"("session_status": -1)", kInvalidArgument, "session error -1"},
    {R"("session_status": -2)", kInvalidResult, "session error -2"},
    {R"("session_status": -3)", kInvalidResult, "session error -3"},
    {R"("session_status": -4)", kInvalidArgument, "session error -4"},
    {R"("session_status": 7)", kUnspecifiedError, "session error 7"},
    {R"("transport_status": -9)", kUnspecifiedError, "error -9"},
    {R"("drop": true)", kUnspecifiedError, "error 3"},
};

inline std::string LineOf(const std::string& operation, const Effect& effect) {
    return "Ipc call " + operation + " terminated with a " + effect.line;
}

/// A step of a transfer: the call that a fault is done to.
struct Step {
    const char* operation;
    int call;
};

/// Transfers that a rule of the service's lets fail at one step.
class TransferFaults : public ServiceDataTest {
protected:
    void RestartWith(const std::string& rules) {
        service_.Kill();
        service_.WriteData("faults.json", R"({"rules": [)" + rules + "]}");
        StartService();
        logger_.Clear();
    }

    void RestartWith(const char* endpoint, const Step& step, const std::string& effect) {
        RestartWith(RuleOf(endpoint, step, effect));
    }

    /// The effects happen one after the other to transfers that each end with the call of the step:
    /// a start of the service takes its time.
    void RestartWithAll(const char* endpoint, const Step& step) {
        std::string rules;
        int call = 0;
        for (const Effect& effect : kEffects) {
            call += step.call;
            rules += rules.empty() ? "" : ", ";
            rules += RuleOf(endpoint, {step.operation, call}, effect.rule);
        }
        RestartWith(rules);
    }

    static std::string RuleOf(const char* endpoint, const Step& step, const std::string& effect) {
        return std::string(R"({"endpoint": ")") + endpoint + R"(", "operation": ")" +
               step.operation + R"(", "calls": )" + std::to_string(step.call) + ", " + effect + "}";
    }

    /// What was logged as an error; the platform's hint to a lost connection is none.
    Lines TakeLines() {
        Lines lines;
        for (const auto& record : logger_.Records()) {
            if (record.level >= 4) {
                lines.push_back(record.text);
            }
        }
        logger_.Clear();
        return lines;
    }
};

/// What the library sends in four pieces, which it cuts every ten records.
inline zuv::TValue FourPieces() {
    zuv::Map map;
    for (int number = 0; number < 30; ++number) {
        map["key" + std::to_string(number)] = number;
    }
    return map;
}

/// What the service serves in four pieces, which it fills: each begins with a long text (the first
/// one with the root) and ends with a number.
inline zuv::TValue FourServedPieces() {
    zuv::Map map;
    for (const char* const key : {"a", "b", "c", "d"}) {
        map[key] = std::string(600'000, 'x');
        map[std::string(key) + "1"] = 1L;
    }
    return map;
}

inline constexpr int kFirst = 1;
inline constexpr int kMiddle = 2;
inline constexpr int kLast = 4;

}  // namespace zam_connector::test
