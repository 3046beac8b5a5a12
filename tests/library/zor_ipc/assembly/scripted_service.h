#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "qx/conn_state_notifier.h"
#include "qx/endpoint_names.h"
#include "zam_connector_testing/scripted_platform.h"

namespace zam_connector::test {

inline constexpr std::uint32_t kConnectorHandle = 11;
inline constexpr std::uint32_t kFilesHandle = 22;

/// The endpoints in the order in which a connector looks them up.
inline constexpr const char* kEndpoints[] = {
    qx::kConnControllerEndpoint,        qx::kConnSettingsHolderEndpoint,
    qx::kConnStateNotifierEndpoint,     qx::kConnCommandSenderEndpoint,
    qx::kZamDataProviderEndpoint,       qx::kZamDataNotifierEndpoint,
    qx::kProductDataHolderEndpoint,     qx::kFileDownloaderEndpoint,
    qx::kClientCertsDownloaderEndpoint,
};
inline constexpr std::uint16_t kFirstRiid = 100;
inline constexpr std::uint16_t kStateNotifierRiid = kFirstRiid + 2;
inline constexpr std::uint16_t kDataProviderRiid = kFirstRiid + 4;
inline constexpr std::uint16_t kDataNotifierRiid = kFirstRiid + 5;

/// Both services on a scripted platform, with everything that a connector needs. The notifiers
/// work; no other operation is answered.
class ScriptedService {
public:
    ScriptedService() {
        platform.SetHandle(qx::kConnectorService, kConnectorHandle);
        platform.SetHandle(qx::kFileDownloaderService, kFilesHandle);
        platform.SetTransport(kConnectorHandle, &connector);
        platform.SetTransport(kFilesHandle, &files);
        std::uint16_t riid = kFirstRiid;
        for (const char* const endpoint : kEndpoints) {
            platform.SetRiid(endpoint, riid++);
        }
        connector.SetResponder([this](const testing::RecordedCall& call) { return Answer(call); });
    }

    void TellState(std::uint32_t state) { states_.Tell(state); }
    void TellData(std::uint32_t kind) { data_.Tell(kind); }

    testing::ScriptedTransport connector;
    testing::ScriptedTransport files;
    testing::ScriptedPlatform platform;

private:
    /// One of the two notifiers, whose operations carry the same messages.
    class Notifier {
    public:
        void Tell(std::uint32_t value) {
            {
                const std::lock_guard<std::mutex> lock(mutex_);
                values_.push_back(value);
            }
            changed_.notify_all();
        }

        std::optional<testing::ScriptedAnswer> Answer(std::uint16_t operation) {
            using Operation = qx_zam_connector_ConnStateNotifier_operation;
            std::unique_lock<std::mutex> lock(mutex_);
            switch (static_cast<Operation>(operation)) {
                case Operation::Register: {
                    registered_ = true;
                    qx_zam_connector_ConnStateNotifier_Register_rsp response{};
                    response.registrationId = 1;
                    return testing::AnswerWith(response);
                }
                case Operation::GetState: {
                    changed_.wait(lock, [this] { return !values_.empty() || !registered_; });
                    qx_zam_connector_ConnStateNotifier_GetState_rsp response{};
                    response.status = 1;
                    if (registered_) {
                        response = {};
                        response.value = values_.front();
                        values_.pop_front();
                    }
                    return testing::AnswerWith(response);
                }
                case Operation::Unregister:
                    registered_ = false;
                    changed_.notify_all();
                    return testing::AnswerWith(qx_zam_connector_ConnStateNotifier_Unregister_rsp{});
            }
            return std::nullopt;
        }

    private:
        std::mutex mutex_;
        std::condition_variable changed_;
        std::deque<std::uint32_t> values_;
        bool registered_ = false;
    };

    std::optional<testing::ScriptedAnswer> Answer(const testing::RecordedCall& call) {
        switch (call.requestHeader.riid) {
            case kStateNotifierRiid:
                return states_.Answer(call.requestHeader.operation);
            case kDataNotifierRiid:
                return data_.Answer(call.requestHeader.operation);
            default:
                return std::nullopt;
        }
    }

    Notifier states_;
    Notifier data_;
};

}  // namespace zam_connector::test
