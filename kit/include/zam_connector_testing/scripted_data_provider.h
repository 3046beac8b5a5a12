#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "zam_connector/i_zam_data_provider.h"

namespace zam_connector::testing {

/// A data provider that gives what it was told to, without any service. Thread-safe.
class ScriptedDataProvider final : public IZamDataProvider {
public:
    /// Everything that the getters give. A change takes effect with the next call.
    struct Data {
        std::pair<unsigned long, ZamPolicy> policy;
        std::pair<unsigned long, ZamProductSettings> productSettings;
        std::pair<unsigned long, ZamSubscriptions> subscriptions;
        ZamServerData serverData;
        std::string reserveCert;
        std::pair<unsigned long, ZamUpdatesStatus> updatesStatus;
        unsigned long syncedSettingsHash = 0;
        int result = 0;  ///< the code of every operation; when negative nothing is written
    };

    Data Get() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return data_;
    }

    void Set(Data data) {
        const std::lock_guard<std::mutex> lock(mutex_);
        data_ = std::move(data);
    }

    /// How many operations have been called.
    int Calls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

    int GetPolicy(std::pair<unsigned long, ZamPolicy>& policy) noexcept override {
        return Give(policy, [](const Data& data) { return data.policy; });
    }
    int GetProductSettings(
        std::pair<unsigned long, ZamProductSettings>& settings) noexcept override {
        return Give(settings, [](const Data& data) { return data.productSettings; });
    }
    int GetSubscriptions(
        std::pair<unsigned long, ZamSubscriptions>& subscriptions) noexcept override {
        return Give(subscriptions, [](const Data& data) { return data.subscriptions; });
    }
    int GetZamServerData(ZamServerData& serverData) noexcept override {
        return Give(serverData, [](const Data& data) { return data.serverData; });
    }
    int GetZamReserveCert(std::string& cert) noexcept override {
        return Give(cert, [](const Data& data) { return data.reserveCert; });
    }
    int GetZamUpdatesStatus(std::pair<unsigned long, ZamUpdatesStatus>& status) noexcept override {
        return Give(status, [](const Data& data) { return data.updatesStatus; });
    }
    int GetZamUpdatesStatusHash(unsigned long& hash) noexcept override {
        return Give(hash, [](const Data& data) { return data.updatesStatus.first; });
    }
    int GetPolicyHash(unsigned long& hash) noexcept override {
        return Give(hash, [](const Data& data) { return data.policy.first; });
    }
    int GetSettingsHash(unsigned long& hash) noexcept override {
        return Give(hash, [](const Data& data) { return data.productSettings.first; });
    }
    int GetSubscriptionHash(unsigned long& hash) noexcept override {
        return Give(hash, [](const Data& data) { return data.subscriptions.first; });
    }
    int GetSyncedSettingsHash(unsigned long& hash) noexcept override {
        return Give(hash, [](const Data& data) { return data.syncedSettingsHash; });
    }

private:
    template <typename T, typename Select>
    int Give(T& out, Select select) noexcept {
        const std::lock_guard<std::mutex> lock(mutex_);
        ++calls_;
        if (data_.result >= 0) {
            out = select(data_);
        }
        return data_.result;
    }

    mutable std::mutex mutex_;
    Data data_;
    int calls_ = 0;
};

}  // namespace zam_connector::testing
