#pragma once

#include <asio/io_context.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "endpoints/endpoint_catalog.h"
#include "faults/fault_rules.h"
#include "faults/fault_witness.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Stands in front of an endpoint and does to its calls what the rules say. On the loop thread,
/// but for answers, which may come from any thread.
class FaultInjector final : public zam_platform::EndpointHandler {
public:
    /// None of them is owned; all must outlive this object. `rules` may be assigned to at any
    /// time on the loop thread. `witness` may be null; it is told of every fault that is more than
    /// a delay.
    FaultInjector(asio::io_context& loop, FaultRules& rules, const Endpoint& endpoint,
                  zam_platform::EndpointHandler& inner, FaultWitness* witness = nullptr);
    FaultInjector(const FaultInjector&) = delete;
    FaultInjector& operator=(const FaultInjector&) = delete;
    ~FaultInjector() override;

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

    /// Closes the connections of the calls that are being delayed, and of those to come.
    void Close();

private:
    using Action = std::function<void(zam_platform::Responder)>;
    class Interceptor;
    struct Delayed;

    void OnAnswer(const Fault& fault, zam_platform::AnswerParts answer,
                  zam_platform::Responder responder);
    /// Runs `action` with `responder` after a delay, at once when that is 0.
    void Delay(std::chrono::milliseconds delay, zam_platform::Responder responder, Action action);
    void EndDelay(std::uint64_t number);
    void ActBefore(const Fault& fault, const zam_platform::Request& request,
                   zam_platform::Responder responder);

    asio::io_context& loop_;
    FaultRules& rules_;
    const Endpoint& endpoint_;
    zam_platform::EndpointHandler& inner_;
    FaultWitness* const witness_;
    std::map<std::uint64_t, std::unique_ptr<Delayed>> delayed_;
    std::uint64_t lastDelayed_ = 0;
    std::uint64_t faults_ = 0;  ///< that calls have met with
    bool isClosed_ = false;
};

}  // namespace zam_service
