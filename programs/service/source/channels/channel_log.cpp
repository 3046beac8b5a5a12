#include "channels/channel_log.h"

#include "common/log.h"

namespace zam_service {
namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

constexpr char kSourceFile[] = "channel_table";

}  // namespace

void LogUnknownChannel(std::string_view sort, std::int64_t id) {
    Log(zor::logger::kLevelError, Here(kSourceFile, "Find"), "the client has no {} channel {} open",
        sort, id);
}

void LogEndedSession(std::string_view sort, std::size_t channels) {
    Log(zor::logger::kLevelInformation, Here(kSourceFile, "EndSession"),
        "{} {} channels ended with their client", channels, sort);
}

void LogUserFull(std::string_view sort, uid_t user, std::size_t limit) {
    Log(zor::logger::kLevelError, Here(kSourceFile, "Open"),
        "{} channel refused: the clients of user {} have {} channels open, the most allowed", sort,
        user, limit);
}

void LogCrowdedOut(std::string_view sort, std::int64_t id, std::size_t limit) {
    Log(zor::logger::kLevelError, Here(kSourceFile, "Open"),
        "{} channel {} dropped: its client has {} open, and may have no more", sort, id, limit);
}

void LogIdle(std::string_view sort, std::int64_t id, std::chrono::milliseconds limit) {
    Log(zor::logger::kLevelError, Here(kSourceFile, "DropIdle"),
        "{} channel {} dropped: not used for {} ms", sort, id, limit.count());
}

}  // namespace zam_service
