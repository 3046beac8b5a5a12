#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string_view>
#include <vector>

#include "faults/piece_damage.h"
#include "json_text/json_document.h"

namespace zam_service {

inline constexpr char kFaultsFile[] = "faults.json";

/// Most rules: every call goes through all of them.
inline constexpr std::size_t kMaxFaultRules = 1024;

/// Longest delay of an answer: a day.
inline constexpr std::chrono::milliseconds kMaxFaultDelay{86'400'000};

/// Before the work the call is not handed on, after it the answer is changed.
enum class FaultTime { Before, After };

/// What happens to one call.
struct Fault {
    FaultTime when = FaultTime::Before;
    std::optional<std::int32_t> transportStatus;  ///< other than 0; then there is no answer
    std::optional<std::int8_t> sessionStatus;
    std::optional<std::int32_t> resultCode;
    std::optional<PieceDamage> damage;  ///< after the work
    std::chrono::milliseconds delay{0};
    bool drop = false;  ///< the connection is closed; then there is no answer

    /// True when all that happens is that the call takes longer: then the work is done.
    bool IsDelayOnly() const noexcept {
        return !transportStatus && !sessionStatus && !resultCode && !damage && !drop;
    }
};

/// Which calls meet with which fault. Copies count on their own. No I/O; one thread at a time.
class FaultRules {
public:
    /// No rules.
    FaultRules();

    /// Reads `faults.json`. Throws `zam_json::JsonError`, also for a rule that names a field which
    /// the operation's answer does not have.
    static FaultRules Read(const zam_json::JsonValue& root);

    bool IsEmpty() const noexcept { return rules_.empty(); }

    /// The fault of one call, told by its interface id and operation number. Counts the call for
    /// every rule that is about the operation; the first rule that applies wins.
    std::optional<Fault> Decide(std::uint16_t riid, std::uint16_t operation);

private:
    struct Rule {
        std::uint16_t riid = 0;
        std::optional<std::uint16_t> operation;  ///< empty: every one
        std::uint64_t firstCall = 1;
        std::uint64_t lastCall = UINT64_MAX;
        std::optional<double> probability;
        Fault fault;
        std::uint64_t calls = 0;
    };

    static Rule ReadRule(const zam_json::JsonValue& value);
    static void ReadDamage(const zam_json::JsonValue& value, Rule& rule);
    static void ReadCalls(const zam_json::JsonValue& value, Rule& rule);
    static void ReadFault(const zam_json::JsonValue& value, Fault& fault);
    double Draw();

    std::vector<Rule> rules_;
    std::mt19937_64 random_;
};

}  // namespace zam_service
