#include "link/connection_plan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>

#include "data/result_code_json.h"
#include "vocabulary/state_names.h"

namespace zam_service {

using zam_json::JsonValue;

namespace {

using std::chrono::milliseconds;
using zam_connector::ZamConnectorState;

milliseconds ReadDelay(const JsonValue& value, milliseconds least) {
    return milliseconds(value.Signed(least.count(), kMaxLinkDelay.count()));
}

ZamConnectorState ReadState(const JsonValue& value) {
    const auto state = value.IsText() ? zam_vocabulary::StateOfName(value.Text()) : std::nullopt;
    if (!state) {
        value.Refuse(fmt::format("one of {}", fmt::join(zam_vocabulary::StateNames(), ", ")));
    }
    return *state;
}

std::vector<LinkStep> ReadSteps(const JsonValue& value) {
    std::vector<LinkStep> steps;
    for (const JsonValue& element : value.Elements(1, kMaxLinkSteps)) {
        element.CheckMembers({"state", "after_ms"});
        LinkStep step;
        step.state = ReadState(element.At("state"));
        if (const auto after = element.Find("after_ms")) {
            step.after = ReadDelay(*after, milliseconds(0));
        }
        steps.push_back(step);
    }
    return steps;
}

FlapPlan ReadFlap(const JsonValue& value) {
    value.CheckMembers({"up_ms", "down_ms"});
    // Without a pause the link would change its state without end at one point in time.
    return {.up = ReadDelay(value.At("up_ms"), milliseconds(1)),
            .down = ReadDelay(value.At("down_ms"), milliseconds(1))};
}

}  // namespace

ConnectionPlan ReadConnectionPlan(const JsonValue& root) {
    root.CheckMembers({"start", "stop", "refuse", "flap", "start_result", "sync_ms"});
    ConnectionPlan plan;
    if (const auto start = root.Find("start")) {
        plan.start = ReadSteps(*start);
    }
    if (const auto stop = root.Find("stop")) {
        plan.stop = ReadSteps(*stop);
    }
    if (const auto refuse = root.FindSet("refuse")) {
        refuse->CheckMembers({"after_ms"});
        plan.refuseAfter = ReadDelay(refuse->At("after_ms"), milliseconds(0));
    }
    if (const auto flap = root.FindSet("flap")) {
        plan.flap = ReadFlap(*flap);
        if (plan.refuseAfter) {
            flap->Fail("a link that is refused cannot flap; set one of refuse and flap to null");
        }
        if (plan.start.back().state != ZamConnectorState::Connected) {
            flap->Fail("only a link that was connected can flap; let start end with connected");
        }
    }
    if (const auto result = root.FindSet("start_result")) {
        plan.startResult = ReadResultCode(*result);
    }
    if (const auto sync = root.Find("sync_ms")) {
        plan.sync = ReadDelay(*sync, milliseconds(0));
    }
    return plan;
}

}  // namespace zam_service
