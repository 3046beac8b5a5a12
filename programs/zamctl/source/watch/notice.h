#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "clock.h"
#include "fields.h"
#include "vocabulary/notice_kinds.h"
#include "zam_connector/i_zam_data_change_subscriber.h"
#include "zam_connector/zam_connector_state.h"

namespace zamctl {

using zam_vocabulary::NoticeKind;
using zam_vocabulary::NoticeKindName;
using zam_vocabulary::NoticeKinds;
using zam_vocabulary::ParseNoticeKind;

/// One change that an observer was told of.
struct Notice {
    NoticeKind kind = NoticeKind::Policy;
    std::optional<std::uint64_t> hash;
    std::string size;             ///< for people: "17 nodes", or what else there is to say
    Fields details;               ///< the same as members of a document
    Clock::TimePoint received{};  ///< when the observer was called
    Clock::WallTime receivedAtWall{};
};

/// The functions below describe what an observer is given, without the time. Thread-safe.
Notice Describe(NoticeKind kind, const std::pair<std::uint64_t, zam_connector::ZamPolicy>& data);
Notice Describe(NoticeKind kind,
                const std::pair<std::uint64_t, zam_connector::ZamProductSettings>& data);
Notice Describe(NoticeKind kind,
                const std::pair<std::uint64_t, zam_connector::ZamSubscriptions>& data);
Notice Describe(NoticeKind kind, const zam_connector::ZamServerData& data);
Notice Describe(NoticeKind kind, const std::string& cert);
Notice Describe(NoticeKind kind,
                const std::pair<std::uint64_t, zam_connector::ZamUpdatesStatus>& data);
Notice Describe(NoticeKind kind, std::uint64_t hash);
Notice Describe(NoticeKind kind, zam_connector::ZamConnectorState state);

/// A notice as a line. `sincePrevious` is the time since the notice of that kind before; none for
/// the first.
std::string NoticeLine(const Notice& notice, std::optional<std::chrono::nanoseconds> sincePrevious);

/// The same as a document.
Fields NoticeDocument(const Notice& notice, std::optional<std::chrono::nanoseconds> sincePrevious);

}  // namespace zamctl
