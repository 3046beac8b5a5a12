#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace zam_connector {

/// What the server wants to hear about events of one type.
struct ZamEventSubscription {
    /// Least severity that is reported: 0 everything, 1 informational, 2 warning, 3 failure, 4
    /// critical; higher ones are the product's own.
    std::uint32_t minSeverity = 0;
    /// Longest that an event may wait for others to be sent with; 0: it is sent at once.
    std::chrono::duration<std::uint32_t> maxDelay{0};
};

inline bool operator==(const ZamEventSubscription& left, const ZamEventSubscription& right) {
    return left.minSeverity == right.minSeverity && left.maxDelay == right.maxDelay;
}
inline bool operator!=(const ZamEventSubscription& left, const ZamEventSubscription& right) {
    return !(left == right);
}

/// The events that the server subscribed to. A value type.
struct ZamSubscriptions {
    /// By the type of the events, a text that product and server agree on.
    std::unordered_map<std::string, ZamEventSubscription> events;
};

inline bool operator==(const ZamSubscriptions& left, const ZamSubscriptions& right) {
    return left.events == right.events;
}
inline bool operator!=(const ZamSubscriptions& left, const ZamSubscriptions& right) {
    return !(left == right);
}

}  // namespace zam_connector
