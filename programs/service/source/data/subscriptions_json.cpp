#include "data/subscriptions_json.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/arena.h"
#include "common/server_data_casts.h"

namespace zam_service {

using zam_json::JsonValue;

namespace {

using zam_connector::ZamEventSubscription;
using zam_connector::ZamSubscriptions;

constexpr char kEvents[] = "events";
constexpr char kMinSeverity[] = "min_severity";
constexpr char kMaxDelay[] = "max_delay_s";

constexpr std::uint64_t kMaxNumber = std::numeric_limits<std::uint32_t>::max();

std::uint32_t ReadNumber(const JsonValue& event, const char* name) {
    const auto member = event.Find(name);
    return member ? static_cast<std::uint32_t>(member->Unsigned(0, kMaxNumber)) : 0;
}

}  // namespace

SubscriptionsSnapshot ReadSubscriptions(const JsonValue& root) {
    root.CheckMembers({kEvents});
    const JsonValue events = root.At(kEvents);
    std::pair<unsigned long, ZamSubscriptions> subscriptions;
    for (const auto& [type, event] : events.Members(0, kSubscriptionsBytes)) {
        event.CheckMembers({kMinSeverity, kMaxDelay});
        ZamEventSubscription& subscription = subscriptions.second.events[type];
        subscription.minSeverity = ReadNumber(event, kMinSeverity);
        subscription.maxDelay = std::chrono::duration<std::uint32_t>(ReadNumber(event, kMaxDelay));
    }
    subscriptions.first = HashOf(subscriptions.second);
    SubscriptionsSnapshot snapshot;
    zam_connector::common::HeapArena arena(kSubscriptionsBytes);
    try {
        snapshot.message = zam_connector::common::CastToVd(subscriptions, arena.Get());
    } catch (const std::length_error& error) {
        events.Fail(error.what());
    }
    snapshot.arena.assign(arena.Get()->base, arena.Get()->base + arena.Get()->used);
    return snapshot;
}

std::uint64_t HashOf(const ZamSubscriptions& subscriptions) {
    std::vector<const std::pair<const std::string, ZamEventSubscription>*> events;
    for (const auto& event : subscriptions.events) {
        events.push_back(&event);
    }
    std::sort(events.begin(), events.end(),
              [](const auto* left, const auto* right) { return left->first < right->first; });
    ContentHash hash;
    for (const auto* const event : events) {
        hash.AddBytes(event->first);
        hash.AddNumber(event->second.minSeverity);
        hash.AddNumber(event->second.maxDelay.count());
    }
    return hash.Value();
}

}  // namespace zam_service
