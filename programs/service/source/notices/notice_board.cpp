#include "notices/notice_board.h"

#include <algorithm>
#include <new>
#include <random>
#include <utility>

#include "common/log.h"

namespace zam_service {

using zam_platform::ClientIdentity;
using zam_platform::SessionToken;

namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

constexpr char kSourceFile[] = "notice_board";

/// Ids of one run begin with 1 in their lower half.
constexpr std::uint32_t kMaxSequence = (1U << kNoticeEpochShift) - 1;

NoticeEpoch EpochOf(std::uint32_t id) noexcept {
    return id >> kNoticeEpochShift;
}

bool IsPossible(std::uint32_t id) noexcept {
    return EpochOf(id) != 0 && EpochOf(id) <= kMaxNoticeEpoch;
}

}  // namespace

NoticeEpoch NewNoticeEpoch() {
    std::random_device random;
    return std::uniform_int_distribution<NoticeEpoch>(1, kMaxNoticeEpoch)(random);
}

NoticeBoard::NoticeBoard(NoticeRules rules, NoticeEpoch epoch, Missed missed, NoticeLimits limits)
    : rules_(rules), epoch_(epoch), missed_(std::move(missed)), limits_(limits) {}

std::optional<std::uint32_t> NoticeBoard::Register(const ClientIdentity& client) {
    if (!HasRoom(client)) {
        return std::nullopt;
    }
    const std::uint32_t id = NextId(client.token);
    Add(client, id);
    return id;
}

void NoticeBoard::Wait(const ClientIdentity& client, std::uint32_t id,
                       std::unique_ptr<NoticeWaiter> waiter) {
    auto registration = Find(client.token, id);
    if (registration == nullptr) {
        if (!IsPossible(id)) {
            return waiter->End(WaitEnd::Invalid);
        }
        if (!MayTakeUp(client.token, id)) {
            return waiter->End(WaitEnd::Unknown);
        }
        if (!HasRoom(client)) {
            return waiter->End(WaitEnd::Full);
        }
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "Wait"),
            "{} registration {:#010x} of a run before is taken up again", rules_.sort, id);
        registration = Add(client, id);
        registration->HasMissed(true);
    }
    if (registration->HasMissed()) {
        TellMissed(*registration);
    }
    if (registration->HasMissed()) {
        return;  // once more; the call is given up, so that its client comes again
    }
    registration->Wait(std::move(waiter));
}

void NoticeBoard::Unregister(const ClientIdentity& client, std::uint32_t id) {
    if (!IsPossible(id)) {
        return;
    }
    // Also for a client that has registered nothing in this run, which then counts as one that
    // knows this run.
    Session& session = sessions_[client.token];
    session.user = client.user;
    if (!IsOfThisRun(id)) {
        RememberEnd(session, id);
    }
    const auto entry = session.registrations.find(id);
    if (entry == session.registrations.end()) {
        return;
    }
    const std::shared_ptr<Registration> registration = std::move(entry->second);
    session.registrations.erase(entry);
    --perUser_[client.user];
    --count_;
    registration->End();
}

void NoticeBoard::EndUntold(const ClientIdentity& client, std::uint32_t id) {
    const auto registration = Find(client.token, id);
    if (registration != nullptr && !registration->HasBeenWaitedFor()) {
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "EndUntold"),
            "{} registration {:#010x} ended: its client went before it was told", rules_.sort, id);
        Unregister(client, id);
    }
}

void NoticeBoard::TellMissed(Registration& registration) const {
    const std::vector<std::uint32_t> values = missed_();
    registration.HasMissed(false);
    for (const std::uint32_t value : values) {
        registration.Tell(value);
    }
}

void NoticeBoard::Tell(std::uint32_t value) noexcept {
    for (const auto& [client, session] : sessions_) {
        for (const auto& [id, registration] : session.registrations) {
            registration->Tell(value);
        }
    }
}

void NoticeBoard::EndSession(const SessionToken& client) {
    const auto entry = sessions_.find(client);
    if (entry == sessions_.end()) {
        return;
    }
    const Session session = std::move(entry->second);
    sessions_.erase(entry);
    const std::size_t ended = session.registrations.size();
    count_ -= ended;
    if (ended != 0) {
        perUser_.find(session.user)->second -= ended;
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "EndSession"),
            "{} {} registrations ended with their client", ended, rules_.sort);
    }
}

void NoticeBoard::Clear() {
    const auto sessions = std::exchange(sessions_, {});
    perUser_.clear();
    count_ = 0;
}

bool NoticeBoard::HasInFlight(const SessionToken& client, std::uint32_t id) const {
    const auto registration = Find(client, id);
    return registration != nullptr && registration->InFlight() != 0;
}

bool NoticeBoard::IsOfThisRun(std::uint32_t id) const noexcept {
    return EpochOf(id) == epoch_;
}

bool NoticeBoard::HasRoom(const ClientIdentity& client) {
    const auto session = sessions_.find(client.token);
    const std::size_t ofClient =
        session == sessions_.end() ? 0 : session->second.registrations.size();
    const std::size_t ofUser = perUser_[client.user];
    if (ofClient < limits_.perClient && ofUser < limits_.perUser) {
        return true;
    }
    Log(zor::logger::kLevelError, Here(kSourceFile, "Register"),
        "{} registration refused: the client has {} of {} and user {} has {} of {} allowed",
        rules_.sort, ofClient, limits_.perClient, client.user, ofUser, limits_.perUser);
    return false;
}

std::uint32_t NoticeBoard::NextId(const SessionToken& client) {
    std::uint32_t id = 0;
    do {
        // Numbers are used again one day; far fewer than there are can be in use at once.
        lastSequence_ = lastSequence_ == kMaxSequence ? 1 : lastSequence_ + 1;
        id = epoch_ << kNoticeEpochShift | lastSequence_;
    } while (Find(client, id) != nullptr);
    return id;
}

/// Behind `HasRoom`, which has the user counted. A client that nothing is added for is not known.
std::shared_ptr<Registration> NoticeBoard::Add(const ClientIdentity& client, std::uint32_t id) {
    auto registration = std::make_shared<Registration>(rules_, id);
    const auto [entry, isNew] = sessions_.try_emplace(client.token);
    try {
        entry->second.registrations.emplace(id, registration);
    } catch (const std::bad_alloc&) {
        if (isNew) {
            sessions_.erase(entry);
        }
        throw;
    }
    entry->second.user = client.user;
    ++perUser_.at(client.user);
    ++count_;
    return registration;
}

bool NoticeBoard::MayTakeUp(const SessionToken& client, std::uint32_t id) const {
    const auto entry = sessions_.find(client);
    // The session of a client that is not known here has ended, and its registrations of this run
    // with it, or was of a run before. Either way it has missed what there was to tell.
    if (entry == sessions_.end()) {
        return true;
    }
    const auto& ended = entry->second.ended;
    return !IsOfThisRun(id) && std::find(ended.begin(), ended.end(), id) == ended.end();
}

void NoticeBoard::RememberEnd(Session& session, std::uint32_t id) {
    std::erase(session.ended, id);
    if (session.ended.size() >= limits_.endedPerClient) {
        session.ended.erase(session.ended.begin());
    }
    session.ended.push_back(id);
}

std::shared_ptr<Registration> NoticeBoard::Find(const SessionToken& client,
                                                std::uint32_t id) const {
    const auto session = sessions_.find(client);
    if (session == sessions_.end()) {
        return nullptr;
    }
    const auto entry = session->second.registrations.find(id);
    return entry == session->second.registrations.end() ? nullptr : entry->second;
}

}  // namespace zam_service
