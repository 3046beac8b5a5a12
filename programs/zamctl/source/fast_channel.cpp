#include "fast_channel.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <optional>

#include "round_trip.h"

namespace zamctl {
namespace {

/// Who has turned the fast channel off, and how that is told to people.
struct OffBy {
    const char* name;
    const char* text;
};

bool IsTurnedOff(const SystemView& system) {
    const std::optional<std::string> text = system.Variable("ZAM_SPIN");
    return text && !text->empty() && text->find_first_not_of('0') == std::string::npos;
}

std::optional<OffBy> WhoTurnedItOff(const FastChannelUse& use, const SystemView& system) {
    if (!use.isBuilt) {
        return OffBy{"build", "none: the library has been built without it"};
    }
    if (!use.isOn) {
        return IsTurnedOff(system)
                   ? OffBy{"ZAM_SPIN", "off in zamctl: ZAM_SPIN is 0"}
                   : OffBy{"cpus", "off in zamctl: it has fewer than two CPUs to run on"};
    }
    if (use.isOffered == false) {
        return OffBy{"service", "not offered by the service: it is turned off there, or not known"};
    }
    return std::nullopt;
}

}  // namespace

bool MayBeFast(const FastChannelUse& use) noexcept {
    return use.isBuilt && use.isOn && use.isOffered.value_or(true);
}

FastChannelReport ReportFastChannel(const FastChannelUse& before, const FastChannelUse& after,
                                    const SystemView& system, const std::string& whenNone) {
    const std::uint64_t calls = after.calls - before.calls;
    const std::uint64_t inMemory = after.memoryCalls - before.memoryCalls;
    const std::uint64_t vainPolls = after.vainPolls - before.vainPolls;
    const double vain = Microseconds(after.vainTime - before.vainTime);
    const double share =
        calls == 0 ? 0 : static_cast<double>(inMemory) / static_cast<double>(calls);
    FastChannelReport report;
    report.fields = {
        {"offered", after.isOffered ? FieldValue(*after.isOffered) : FieldValue(nullptr)},
        {"taken", after.isTaken},
        {"calls", calls},
        {"memory_calls", inMemory},
        {"memory_share", std::round(share * 1000) / 1000},
        {"vain_polls", vainPolls},
        {"vain_us", vain}};
    if (const std::optional<OffBy> offBy = WhoTurnedItOff(after, system)) {
        report.text = offBy->text;
        report.fields["off_by"] = offBy->name;
        return report;
    }
    const char* const how = after.isTaken ? "taken" : after.isOffered ? "offered" : "not asked for";
    report.text = fmt::format("{}, {} of {} calls ({:.0f} %) through memory", how, inMemory, calls,
                              share * 100);
    if (vainPolls != 0) {
        report.text += fmt::format(", {} {} in vain took {:.1f} us", vainPolls,
                                   vainPolls == 1 ? "look" : "looks", vain);
    }
    if (inMemory == 0) {
        report.text += ": " + whenNone;
    }
    return report;
}

}  // namespace zamctl
