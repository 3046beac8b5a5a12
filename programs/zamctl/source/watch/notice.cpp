#include "watch/notice.h"

#include <fmt/format.h>

#include "data_answers.h"
#include "times.h"
#include "vocabulary/state_names.h"
#include "zuv/for_each.h"

namespace zamctl {
namespace {

Notice Sized(NoticeKind kind, std::optional<std::uint64_t> hash, std::size_t count,
             const char* unit) {
    Notice notice;
    notice.kind = kind;
    notice.hash = hash;
    // The units are plurals in -s.
    std::string_view name = unit;
    if (count == 1) {
        name.remove_suffix(1);
    }
    notice.size = fmt::format("{} {}", count, name);
    notice.details[unit] = count;
    return notice;
}

std::size_t CountNodes(const zuv::TValue& tree) {
    std::size_t nodes = 0;
    zuv::Path path;
    zuv::ForEach(
        tree,
        [&nodes](const zuv::Path& /*at*/, const zuv::TValue& /*node*/) {
            ++nodes;
            return zuv::for_each::Option::Continue;
        },
        path);
    return nodes;
}

}  // namespace

Notice Describe(NoticeKind kind, const std::pair<std::uint64_t, zam_connector::ZamPolicy>& data) {
    return Sized(kind, data.first, CountNodes(data.second.tree), "nodes");
}

Notice Describe(NoticeKind kind,
                const std::pair<std::uint64_t, zam_connector::ZamProductSettings>& data) {
    return Sized(kind, data.first, CountNodes(data.second.tree), "nodes");
}

Notice Describe(NoticeKind kind,
                const std::pair<std::uint64_t, zam_connector::ZamSubscriptions>& data) {
    return Sized(kind, data.first, data.second.events.size(), "events");
}

Notice Describe(NoticeKind kind, const zam_connector::ZamServerData& data) {
    Notice notice;
    notice.kind = kind;
    notice.details = ServerDataFields(data);
    notice.size = fmt::format("version {}.{}, {}", data.versionMajor, data.versionMinor,
                              DeviceStatusName(data.deviceStatus));
    return notice;
}

Notice Describe(NoticeKind kind, const std::string& cert) {
    return Sized(kind, std::nullopt, cert.size(), "bytes");
}

Notice Describe(NoticeKind kind,
                const std::pair<std::uint64_t, zam_connector::ZamUpdatesStatus>& data) {
    const zam_connector::ZamUpdatesStatus& status = data.second;
    return Sized(kind, data.first,
                 status.approved.size() + status.declined.size() + status.revoked.size(),
                 "updates");
}

Notice Describe(NoticeKind kind, std::uint64_t hash) {
    Notice notice;
    notice.kind = kind;
    notice.hash = hash;
    return notice;
}

Notice Describe(NoticeKind kind, zam_connector::ZamConnectorState state) {
    Notice notice;
    notice.kind = kind;
    notice.size = zam_vocabulary::StateName(state);
    notice.details["state"] = notice.size;
    return notice;
}

std::string NoticeLine(const Notice& notice,
                       std::optional<std::chrono::nanoseconds> sincePrevious) {
    return fmt::format("{}  {:<16}  {:<18}  {:<22}  {}", LocalText(notice.receivedAtWall),
                       NoticeKindName(notice.kind), notice.hash ? HashText(*notice.hash) : "-",
                       notice.size.empty() ? "-" : notice.size,
                       sincePrevious ? "+" + DurationText(*sincePrevious) : "first");
}

Fields NoticeDocument(const Notice& notice, std::optional<std::chrono::nanoseconds> sincePrevious) {
    Fields document = {{"kind", NoticeKindName(notice.kind)},
                       {"time", UtcText(notice.receivedAtWall)}};
    if (notice.hash) {
        document["hash"] = HashText(*notice.hash);
    }
    document.Append(notice.details);
    document["since_previous_ms"] = nullptr;
    if (sincePrevious) {
        document["since_previous_ms"] =
            std::chrono::floor<std::chrono::milliseconds>(*sincePrevious).count();
    }
    return document;
}

}  // namespace zamctl
