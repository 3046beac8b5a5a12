#pragma once

#include <cstdint>

#include "call_scope.h"
#include "common/check_vd_proxy.h"
#include "common/log.h"
#include "data_handler/i_data_provider.h"
#include "qel/result_code.h"

namespace zam_connector::proxy {

/// A provider over one of the service's two notifier endpoints, whose operations carry the same
/// messages. `Notifier` names the types, the waiting operation, and what is logged.
///
/// `Register` must not run beside the other two; these may run at once in two threads. The
/// destructor ends no registration.
template <typename Notifier>
class NotifierProvider final : public IDataProvider<typename Notifier::Value> {
public:
    using Proxy = typename Notifier::Proxy;
    using Value = typename Notifier::Value;

    /// Copies the record; its transport is not owned and must outlive this object. Throws
    /// `qel::InvalidArgumentException` when the record is not usable.
    explicit NotifierProvider(const Proxy& proxy) : proxy_(proxy) { common::CheckVdProxy(proxy_); }

    /// 0x8000004B, with the registration as it was, when the service could not be reached or
    /// refused.
    int Register() override {
        typename Notifier::RegisterRequest request{};
        typename Notifier::RegisterResponse response{};
        const SetUpScope scope;
        const int status = proxy_.ops->Register(&proxy_, &request, nullptr, &response, nullptr);
        if (status != 0) {
            return common::Failure(Site("Register"), Notifier::kRegisterTransport, status);
        }
        if (response.error != 0) {
            return common::Failure(Site("Register"), Notifier::kRegisterRefused,
                                   static_cast<int>(response.error));
        }
        registrationId_ = response.registrationId;
        return qel::kNoError;
    }

    /// Blocks in the service. 0: `value` is a notice; 1: there is nothing to tell; 0x8000004B, with
    /// `value` unchanged, for every failure.
    int GetData(Value& value) override {
        typename Notifier::WaitRequest request{};
        typename Notifier::WaitResponse response{};
        request.registrationId = registrationId_;
        const int status =
            (proxy_.ops->*Notifier::kWait)(&proxy_, &request, nullptr, &response, nullptr);
        if (status != 0) {
            common::Log(Notifier::kWaitTransportLevel, Site("GetData"), Notifier::kWaitTransport,
                        status);
            return qel::kUnspecifiedError;
        }
        if (response.status != kTold && response.status != kNothing) {
            return common::Failure(Site("GetData"), Notifier::kWaitRefused,
                                   static_cast<int>(static_cast<std::int8_t>(response.status)));
        }
        value = static_cast<Value>(response.value);
        return response.status;
    }

    int Unregister() override {
        typename Notifier::UnregisterRequest request{};
        typename Notifier::UnregisterResponse response{};
        request.registrationId = registrationId_;
        const int status = proxy_.ops->Unregister(&proxy_, &request, nullptr, &response, nullptr);
        if (status != 0) {
            return common::Failure(Site("Unregister"), Notifier::kUnregisterTransport, status);
        }
        return qel::kNoError;
    }

private:
    static constexpr std::uint8_t kTold = 0;
    static constexpr std::uint8_t kNothing = 1;

    static constexpr common::LogSite Site(const char* function, int line = __builtin_LINE()) {
        return common::Here(Notifier::kSourceFile, function, line);
    }

    const Proxy proxy_;
    std::uint32_t registrationId_ = 0;
};

}  // namespace zam_connector::proxy
