#include "faults/fault_injector.h"

#include <algorithm>
#include <asio/dispatch.hpp>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "common/log.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/log_context.h"

namespace zam_service {

using zam_platform::AnswerParts;
using zam_platform::Request;
using zam_platform::Responder;

namespace {

constexpr char kSourceFile[] = "fault_injector";

/// Who wonders why a call fails finds it in the log, each by its number: equal lines would be one.
void LogFault(const Fault& fault, std::uint64_t number, const Endpoint& endpoint,
              std::uint16_t operation) {
    zam_connector::common::Log(
        zor::logger::kLevelInformation, zam_connector::common::Here(kSourceFile, "OnCall"),
        "{} of {} meets with a fault {} the work, number {} of the interface",
        endpoint.operations[operation].name, endpoint.shortName,
        fault.when == FaultTime::Before ? "before" : "after", number);
}

/// What a call that waits needs of its request, whose own bytes are gone by then.
struct KeptRequest {
    explicit KeptRequest(const Request& request)
        : head(request),
          message((request.rule->requestBytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t)),
          arena(request.arena.base, request.arena.base + request.arena.used) {
        std::memcpy(message.data(), request.message, request.rule->requestBytes);
    }

    Request Get() {
        Request request = head;
        request.message = reinterpret_cast<const vd_message_header*>(message.data());
        vd_arena_init(&request.arena, arena.data(), static_cast<std::uint32_t>(arena.size()));
        request.arena.used = request.arena.capacity;
        return request;
    }

    Request head;
    std::vector<std::uint64_t> message;  ///< of a type that aligns the message
    std::vector<unsigned char> arena;
};

/// Puts what the fault prescribes into an answer. The rules were checked against the operation,
/// so a field that is prescribed is there.
void Change(const Fault& fault, const qx::OperationInfo& operation,
            std::vector<unsigned char>& message) {
    if (fault.sessionStatus) {
        std::memcpy(message.data() + operation.sessionStatusOffset, &*fault.sessionStatus,
                    sizeof(*fault.sessionStatus));
    }
    if (fault.resultCode) {
        std::memcpy(message.data() + operation.resultCodeOffset, &*fault.resultCode,
                    sizeof(*fault.resultCode));
    }
}

void Send(const Fault& fault, AnswerParts answer, Responder responder) {
    if (fault.drop) {
        responder.Drop();
    } else if (answer.status != 0) {
        responder.Fail(answer.status);
    } else {
        responder.AnswerBytes(reinterpret_cast<vd_message_header*>(answer.message.data()),
                              static_cast<std::uint32_t>(answer.message.size()),
                              answer.arena.data(), static_cast<std::uint32_t>(answer.arena.size()));
    }
}

}  // namespace

/// Takes the endpoint's answer in the client's place.
class FaultInjector::Interceptor final : public zam_platform::AnswerInterceptor {
public:
    Interceptor(FaultInjector& injector, const Fault& fault) : injector_(injector), fault_(fault) {}

    void OnAnswer(AnswerParts answer, Responder responder) override {
        asio::dispatch(injector_.loop_,
                       [&injector = injector_, fault = fault_, answer = std::move(answer),
                        responder = std::move(responder)]() mutable {
                           injector.OnAnswer(fault, std::move(answer), std::move(responder));
                       });
    }

private:
    FaultInjector& injector_;
    const Fault fault_;
};

/// A call that waits. The injector owns it, not the timer's handler, so that nothing is answered
/// when the loop goes.
struct FaultInjector::Delayed {
    Delayed(asio::io_context& loop, Responder waiting, Action then, std::function<void()> ring)
        : responder(std::move(waiting)), action(std::move(then)), alarm(loop, std::move(ring)) {}

    Responder responder;
    Action action;
    /// Whose call it is.
    const std::optional<uid_t> user = zam_platform::LogContext::Here().user;
    zam_platform::Alarm alarm;
};

FaultInjector::FaultInjector(asio::io_context& loop, FaultRules& rules, const Endpoint& endpoint,
                             zam_platform::EndpointHandler& inner, FaultWitness* witness)
    : loop_(loop), rules_(rules), endpoint_(endpoint), inner_(inner), witness_(witness) {}

FaultInjector::~FaultInjector() {
    Close();
}

void FaultInjector::OnCall(const Request& request, Responder responder) {
    if (isClosed_) {
        responder.Drop();
        return;
    }
    std::optional<Fault> fault = rules_.Decide(endpoint_.riid, request.operation);
    if (!fault) {
        inner_.OnCall(request, std::move(responder));
        return;
    }
    LogFault(*fault, ++faults_, endpoint_, request.operation);
    if (witness_ != nullptr && !fault->IsDelayOnly()) {
        witness_->OnFault(request);
        if (!fault->drop) {
            fault->delay = std::max(fault->delay, witness_->HoldBack(request));
        }
    }
    if (fault->when == FaultTime::After) {
        responder.Intercept(std::make_unique<Interceptor>(*this, *fault));
        inner_.OnCall(request, std::move(responder));
    } else {
        ActBefore(*fault, request, std::move(responder));
    }
}

void FaultInjector::ActBefore(const Fault& fault, const Request& request, Responder responder) {
    if (fault.IsDelayOnly()) {
        Delay(fault.delay, std::move(responder),
              [this, kept = std::make_shared<KeptRequest>(request)](Responder late) {
                  inner_.OnCall(kept->Get(), std::move(late));
              });
        return;
    }
    AnswerParts answer{.status = fault.transportStatus.value_or(0), .message = {}, .arena = {}};
    answer.message.resize(request.rule->responseBytes);
    Change(fault, endpoint_.operations[request.operation], answer.message);
    Delay(fault.delay, std::move(responder),
          [fault, answer](Responder late) { Send(fault, answer, std::move(late)); });
}

void FaultInjector::OnAnswer(const Fault& fault, AnswerParts answer, Responder responder) {
    if (fault.transportStatus) {
        answer.status = *fault.transportStatus;
    }
    if (answer.status == 0) {
        vd_message_header header{};
        std::memcpy(&header, answer.message.data(), sizeof(header));
        const qx::OperationInfo& operation = endpoint_.operations[header.operation];
        if (fault.damage && !DamagePiece(*fault.damage, answer.message, answer.arena)) {
            zam_connector::common::Log(zor::logger::kLevelInformation,
                                       zam_connector::common::Here(kSourceFile, "OnAnswer"),
                                       "{} of {}: nothing there for the damage of the rule",
                                       operation.name, endpoint_.shortName);
        }
        const std::vector<unsigned char> given = answer.message;
        Change(fault, operation, answer.message);
        if (answer.message != given) {
            responder.TellLost();
        }
    }
    Delay(fault.delay, std::move(responder), [fault, answer = std::move(answer)](Responder late) {
        Send(fault, answer, std::move(late));
    });
}

void FaultInjector::Delay(std::chrono::milliseconds delay, Responder responder, Action action) {
    if (delay.count() == 0 || isClosed_) {
        action(std::move(responder));
        return;
    }
    const std::uint64_t number = ++lastDelayed_;
    auto made = std::make_unique<Delayed>(loop_, std::move(responder), std::move(action),
                                          [this, number] { EndDelay(number); });
    Delayed& delayed = *delayed_.emplace(number, std::move(made)).first->second;
    delayed.alarm.RingAfter(delay);
}

void FaultInjector::EndDelay(std::uint64_t number) {
    const auto entry = delayed_.find(number);
    if (entry == delayed_.end()) {
        return;
    }
    const std::unique_ptr<Delayed> ended = std::move(entry->second);
    delayed_.erase(entry);
    const zam_platform::LogsForUser logsForUser(ended->user);
    ended->action(std::move(ended->responder));
}

void FaultInjector::Close() {
    isClosed_ = true;
    for (const auto& [number, waiting] : std::exchange(delayed_, {})) {
        waiting->responder.Drop();
    }
}

}  // namespace zam_service
