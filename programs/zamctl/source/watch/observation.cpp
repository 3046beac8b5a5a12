#include "watch/observation.h"

#include "zam_connector/result_code.h"

namespace zamctl {
namespace {

using zam_connector::IZamDataChangeSubscriber;
using zam_connector::SubscriptionCookie;

/// Describes what it is told and hands it on.
template <typename Value>
class Reporter final : public qor::observer::IChangeObserver<Value, int> {
public:
    Reporter(NoticeKind kind, NoticeQueue& queue) : kind_(kind), queue_(queue) {}

    int OnChange(const Value& value) override {
        queue_.Push(Describe(kind_, value));
        return 0;
    }

private:
    const NoticeKind kind_;
    NoticeQueue& queue_;
};

/// Is there, and says nothing.
class Anchor final : public zam_connector::IPolicyObserver {
public:
    int OnChange(const std::pair<std::uint64_t, zam_connector::ZamPolicy>& /*policy*/) override {
        return 0;
    }
};

/// The notifications of data go on only while policy, product settings or subscriptions have an
/// observer.
bool NeedsAnchor(const std::vector<NoticeKind>& kinds) {
    bool isAboutData = false;
    for (const NoticeKind kind : kinds) {
        if (kind == NoticeKind::Policy || kind == NoticeKind::ProductSettings ||
            kind == NoticeKind::Subscriptions) {
            return false;
        }
        isAboutData = isAboutData || kind != NoticeKind::State;
    }
    return isAboutData;
}

template <typename Value>
using SubscribeTo = int (IZamDataChangeSubscriber::*)(
    std::weak_ptr<qor::observer::IChangeObserver<Value, int>>, SubscriptionCookie&) noexcept;

/// A subscription to data succeeds though its notifications could not be started: the next one
/// tries again. Here there is none.
template <typename Call>
void SubscribeToData(Context& context, Call&& call) {
    constexpr char kAction[] = "subscribe to changes";
    context.Checked(kAction, call);
    const zam_connector::TransportStatus status = zam_connector::LastTransportStatus();
    if (status.failure != zam_connector::TransportFailure::None) {
        throw CallFailure(kAction, zam_connector::kUnspecifiedError, context.TakeCause(),
                          status.failure);
    }
}

}  // namespace

Observation::Observation(Context& context, const ConnectorInterfaces& connector,
                         const std::vector<NoticeKind>& kinds, NoticeQueue& queue)
    : data_(connector.dataChangeSubscriber), state_(connector.stateSubscriber), queue_(queue) {
    try {
        if (NeedsAnchor(kinds)) {
            SubscribeAnchor(context);
        }
        for (const NoticeKind kind : kinds) {
            Subscribe(context, kind, queue);
        }
    } catch (...) {
        End();
        throw;
    }
}

Observation::~Observation() {
    End();
}

void Observation::SubscribeAnchor(Context& context) {
    auto anchor = std::make_shared<Anchor>();
    observers_.push_back(anchor);
    SubscribeToData(context, [&] {
        return data_.SubscribeOnPolicyChange(anchor, dataCookies_.emplace_back());
    });
}

void Observation::Subscribe(Context& context, NoticeKind kind, NoticeQueue& queue) {
    const auto subscribe = [&]<typename Value>(SubscribeTo<Value> to) {
        auto observer = std::make_shared<Reporter<Value>>(kind, queue);
        observers_.push_back(observer);
        SubscribeToData(context,
                        [&] { return (data_.*to)(observer, dataCookies_.emplace_back()); });
    };
    switch (kind) {
        case NoticeKind::Policy:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnPolicyChange);
        case NoticeKind::ProductSettings:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnProductSettingsChange);
        case NoticeKind::Subscriptions:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnSubscriptionsChange);
        case NoticeKind::ServerData:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnZamServerDataChange);
        case NoticeKind::ReserveCert:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnZamReserveCertChange);
        case NoticeKind::UpdatesStatus:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnZamUpdatesStatusChange);
        case NoticeKind::SettingsSynced:
            return subscribe(&IZamDataChangeSubscriber::SubscribeOnSettingsSynced);
        case NoticeKind::State:
            break;
    }
    auto observer = std::make_shared<Reporter<zam_connector::ZamConnectorState>>(kind, queue);
    // Kept before the call: the observer is subscribed even when the code is a failure.
    observers_.push_back(observer);
    context.Checked("subscribe to changes of the state", [&] {
        return state_.SubscribeOnStateChange(observer, stateCookies_.emplace_back());
    });
}

void Observation::End() noexcept {
    // First: an observer that waits for room would hold up the end of its subscription.
    queue_.Close();
    for (const SubscriptionCookie& cookie : dataCookies_) {
        data_.Unsubscribe(cookie);
    }
    for (const SubscriptionCookie& cookie : stateCookies_) {
        state_.Unsubscribe(cookie);
    }
    dataCookies_.clear();
    stateCookies_.clear();
}

}  // namespace zamctl
