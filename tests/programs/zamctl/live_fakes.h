#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zam_connector/i_zam_client_certs_downloader.h"
#include "zam_connector/i_zam_conn_state_subscriber.h"
#include "zam_connector/i_zam_data_change_subscriber.h"
#include "zam_connector/i_zam_file_downloader.h"
#include "zam_connector/i_zam_locale_info.h"
#include "zam_connector/i_zam_location_info.h"

namespace zamctl::test {

/// The observers of one kind.
template <typename Value>
class FakeTopic {
public:
    using Observer = qor::observer::IChangeObserver<Value, int>;

    void Add(std::weak_ptr<Observer> observer) { observers_.push_back(std::move(observer)); }

    void Tell(const Value& value) const {
        for (const std::weak_ptr<Observer>& observer : observers_) {
            if (const auto alive = observer.lock()) {
                alive->OnChange(value);
            }
        }
    }

    std::size_t Size() const { return observers_.size(); }

private:
    std::vector<std::weak_ptr<Observer>> observers_;
};

/// Tells its observers what it is told to, on the thread that says so.
class FakeDataChangeSubscriber final : public zam_connector::IZamDataChangeSubscriber {
public:
    using Cookie = zam_connector::SubscriptionCookie;

    int SubscribeOnPolicyChange(std::weak_ptr<zam_connector::IPolicyObserver> observer,
                                Cookie& cookie) noexcept override {
        return Add(policy, std::move(observer), cookie);
    }
    int SubscribeOnProductSettingsChange(
        std::weak_ptr<zam_connector::IProductSettingsObserver> observer,
        Cookie& cookie) noexcept override {
        return Add(settings, std::move(observer), cookie);
    }
    int SubscribeOnSubscriptionsChange(
        std::weak_ptr<zam_connector::ISubscriptionsObserver> observer,
        Cookie& cookie) noexcept override {
        return Add(subscriptions, std::move(observer), cookie);
    }
    int SubscribeOnZamServerDataChange(
        std::weak_ptr<zam_connector::IZamServerDataObserver> observer,
        Cookie& cookie) noexcept override {
        return Add(serverData, std::move(observer), cookie);
    }
    int SubscribeOnZamReserveCertChange(
        std::weak_ptr<zam_connector::IZamReserveCertObserver> observer,
        Cookie& cookie) noexcept override {
        return Add(cert, std::move(observer), cookie);
    }
    int SubscribeOnZamUpdatesStatusChange(
        std::weak_ptr<zam_connector::IZamUpdatesStatusObserver> observer,
        Cookie& cookie) noexcept override {
        return Add(updates, std::move(observer), cookie);
    }
    int SubscribeOnSettingsSynced(std::weak_ptr<zam_connector::ISettingsSyncedObserver> observer,
                                  Cookie& cookie) noexcept override {
        return Add(synced, std::move(observer), cookie);
    }
    int Unsubscribe(const Cookie& cookie) noexcept override {
        unsubscribed.push_back(cookie.Value());
        return 0;
    }

    FakeTopic<std::pair<std::uint64_t, zam_connector::ZamPolicy>> policy;
    FakeTopic<std::pair<std::uint64_t, zam_connector::ZamProductSettings>> settings;
    FakeTopic<std::pair<std::uint64_t, zam_connector::ZamSubscriptions>> subscriptions;
    FakeTopic<zam_connector::ZamServerData> serverData;
    FakeTopic<std::string> cert;
    FakeTopic<std::pair<std::uint64_t, zam_connector::ZamUpdatesStatus>> updates;
    FakeTopic<std::uint64_t> synced;

    int code = 0;
    std::uint64_t subscribed = 0;  ///< subscriptions made; their cookies count from 1
    std::vector<std::uint64_t> unsubscribed;

private:
    template <typename Topic, typename Observer>
    int Add(Topic& topic, Observer observer, Cookie& cookie) {
        topic.Add(std::move(observer));
        cookie = Cookie(++subscribed);
        return code;
    }
};

class FakeStateSubscriber final : public zam_connector::IZamConnStateSubscriber {
public:
    int SubscribeOnStateChange(std::weak_ptr<zam_connector::IZamConnStateObserver> observer,
                               zam_connector::SubscriptionCookie& cookie) noexcept override {
        state.Add(std::move(observer));
        cookie = zam_connector::SubscriptionCookie(1);
        return code;
    }
    int Unsubscribe(const zam_connector::SubscriptionCookie& cookie) noexcept override {
        unsubscribed.push_back(cookie.Value());
        return 0;
    }

    FakeTopic<zam_connector::ZamConnectorState> state;
    int code = 0;
    std::vector<std::uint64_t> unsubscribed;
};

/// A file at a server that can be made to misbehave.
class FakeFileDownloader final : public zam_connector::IZamFileDownloader {
public:
    int GetFileInfo(zam_connector::FileInfoParams params,
                    zam_connector::FileInfo& info) noexcept override;
    int GetFileChunk(zam_connector::FileChunkParams params,
                     zam_connector::FileChunk& chunk) noexcept override;

    /// Puts another content in place.
    void Replace(std::string newContent);

    std::string content;
    std::string version = "v1";
    std::uint64_t chunkSizeBytes = 4;
    std::int64_t modificationTime = 0;
    std::optional<std::string> sha256;  ///< in place of the content's own
    int infoCode = 0;
    /// Runs before the chunk call of that number, counted from 1, and may change anything. What it
    /// gives, when it is a failure, is answered.
    std::function<int(std::size_t call)> onChunk;
    /// Runs on the answer of the chunk call of that number.
    std::function<void(std::size_t call, zam_connector::FileChunk& chunk)> damage;

    std::vector<std::string> described;
    std::vector<zam_connector::FileChunkParams> asked;
};

class FakeCertsDownloader final : public zam_connector::IZamClientCertsDownloader {
public:
    int GetClientCertificates(const zam_connector::ClientCertParams& params,
                              std::vector<zam_connector::ClientCertInfo>& certs) noexcept override {
        asked = params;
        certs = answer;
        return code;
    }

    std::vector<zam_connector::ClientCertInfo> answer;
    int code = 0;
    std::optional<zam_connector::ClientCertParams> asked;
};

class FakeLocaleInfo final : public zam_connector::zam_locale::IZamLocaleInfo {
public:
    using Locales = std::vector<zam_connector::zam_locale::ZamLocale>;

    std::optional<zam_connector::zam_locale::ZamLocale> DefaultLocale() const override {
        return std::nullopt;
    }
    std::optional<zam_connector::zam_locale::ZamLocale> Locale(
        std::string_view /*name*/) const override {
        return std::nullopt;
    }
    Locales LocaleContainer() const override { return locales; }

    Locales locales;
};

/// The location is what stands above the lowest byte.
class FakeLocationInfo final : public zam_connector::zam_locale::IZamLocationInfo {
public:
    bool HasLocationInfo(zam_connector::LocaleIdType id) const override { return id > 0xFF; }
    zam_connector::LocaleIdType RemoveLocationInfo(zam_connector::LocaleIdType id) const override {
        return id & 0xFFU;
    }
};

/// The SHA-256 of a text, in hexadecimal digits.
std::string Sha256Of(const std::string& text);

}  // namespace zamctl::test
