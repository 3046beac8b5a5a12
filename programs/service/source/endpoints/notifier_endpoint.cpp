#include "endpoints/notifier_endpoint.h"

#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "endpoints/session_statuses.h"
#include "qx/conn_state_notifier.h"
#include "qx/zam_data_notifier.h"

namespace zam_service {

using zam_platform::Request;
using zam_platform::Responder;
using zam_platform::SessionToken;

namespace {

/// The operations by the data notifier's names.
using Operation = qx_zam_connector_ZamDataNotifier_operation;
using StateOperation = qx_zam_connector_ConnStateNotifier_operation;

template <typename Left, typename Right>
constexpr bool AreSame(Left left, Right right) {
    return static_cast<std::uint16_t>(left) == static_cast<std::uint16_t>(right);
}

static_assert(AreSame(Operation::Register, StateOperation::Register) &&
              AreSame(Operation::GetChangedDataType, StateOperation::GetState) &&
              AreSame(Operation::Unregister, StateOperation::Unregister));

/// Statuses of a notice, by the session statuses that stand for the same.
constexpr auto kNoticeGiven = static_cast<std::uint8_t>(kSessionMore);
constexpr auto kNoticeNone = static_cast<std::uint8_t>(kSessionLast);
constexpr auto kNoticeInvalid = static_cast<std::uint8_t>(kSessionInvalid);
constexpr auto kNoticeFull = static_cast<std::uint8_t>(kSessionFull);

constexpr std::uint8_t StatusOf(WaitEnd reason) {
    switch (reason) {
        case WaitEnd::Invalid:
            return kNoticeInvalid;
        case WaitEnd::Full:
            return kNoticeFull;
        default:
            return kNoticeNone;
    }
}

std::uint32_t IdOf(const Request& request) {
    return request.As<qx::RegistrationRequest>().registrationId;
}

bool IsWait(const Request& request) {
    return AreSame(static_cast<Operation>(request.operation), Operation::GetChangedDataType);
}

void Answer(Responder responder, std::uint32_t value, std::uint8_t status) {
    qx::NoticeResponse response{};
    response.value = value;
    response.status = status;
    responder.Answer(response);
}

}  // namespace

/// Keeps a call's responder.
class NotifierEndpoint::Waiter final : public NoticeWaiter {
public:
    Waiter(NotifierEndpoint& endpoint, const SessionToken& client, std::uint32_t id,
           Responder responder)
        : endpoint_(endpoint), client_(client), id_(id), responder_(std::move(responder)) {}
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;
    ~Waiter() override {
        if (responder_) {
            responder_->Drop();
        }
    }

    void Give(std::uint32_t value, OnDelivery onDelivery) override {
        Responder responder = Take();
        responder.Watch(std::move(onDelivery));
        Answer(std::move(responder), value, kNoticeGiven);
    }

    void End(WaitEnd reason) override {
        if (reason == WaitEnd::Unregistered) {
            Answer(Take(), 0, kNoticeNone);
        } else {
            endpoint_.AnswerPaced(client_, id_, Take(), StatusOf(reason));
        }
    }

private:
    Responder Take() {
        Responder responder = std::move(*responder_);
        responder_.reset();
        return responder;
    }

    NotifierEndpoint& endpoint_;
    const SessionToken client_;
    const std::uint32_t id_;
    std::optional<Responder> responder_;
};

NotifierEndpoint::NotifierEndpoint(asio::io_context& loop, NoticeBoard& board,
                                   NoticeBroken noticeBroken)
    : alarm_(loop, [this] { AnswerHeld(); }),
      board_(board),
      noticeBroken_(std::move(noticeBroken)) {}

NotifierEndpoint::~NotifierEndpoint() {
    Close();
}

void NotifierEndpoint::OnCall(const Request& request, Responder responder) {
    if (!responder.IsConnected()) {
        // A fault has delayed the call for so long that the client has gone, perhaps with its
        // session: nothing would end what is begun for it now.
        responder.Drop();
        return;
    }
    switch (static_cast<Operation>(request.operation)) {
        case Operation::Register:
            Register(request, std::move(responder));
            break;
        case Operation::GetChangedDataType:
            Wait(request, std::move(responder));
            break;
        case Operation::Unregister: {
            board_.Unregister(request.client, IdOf(request));
            qx::EmptyResponse response{};
            responder.Answer(response);
            break;
        }
        default:
            break;  // the server lets through no other
    }
}

void NotifierEndpoint::Register(const Request& request, Responder responder) {
    const std::optional<std::uint32_t> id = board_.Register(request.client);
    if (id) {
        responder.Watch(
            [here = std::weak_ptr(here_), client = request.client, id = *id](bool wasTaken) {
                if (const auto board = wasTaken ? nullptr : here.lock()) {
                    (*board)->EndUntold(client, id);
                }
            });
    }
    qx::RegisterResponse response{};
    response.registrationId = id.value_or(0);
    response.error = id ? kSessionMore : kSessionFull;
    responder.Answer(response);
}

void NotifierEndpoint::Wait(const Request& request, Responder responder) {
    const SessionToken& client = request.client.token;
    const std::uint32_t id = IdOf(request);
    if (board_.HasInFlight(client, id)) {
        // A notice that was lost with another connection comes before younger ones, although the
        // loop has not seen the end of that connection yet.
        noticeBroken_(client);
    }
    board_.Wait(request.client, id,
                std::make_unique<Waiter>(*this, client, id, std::move(responder)));
}

std::chrono::milliseconds NotifierEndpoint::HoldBack(const Request& request) {
    if (!IsWait(request)) {
        return std::chrono::milliseconds(0);
    }
    const auto now = ErrorPacing::TimePoint::clock::now();
    return std::chrono::ceil<std::chrono::milliseconds>(
        pacing_.Next(request.client.token, IdOf(request), now) - now);
}

void NotifierEndpoint::AnswerPaced(const SessionToken& client, std::uint32_t id,
                                   Responder responder, std::uint8_t status) {
    const auto now = ErrorPacing::TimePoint::clock::now();
    const auto due = pacing_.Next(client, id, now);
    if (due <= now) {
        Answer(std::move(responder), 0, status);
        return;
    }
    held_.emplace(due, HeldAnswer{.responder = std::move(responder), .status = status});
    Arm();
}

void NotifierEndpoint::AnswerHeld() {
    const auto now = ErrorPacing::TimePoint::clock::now();
    while (!held_.empty() && held_.begin()->first <= now) {
        HeldAnswer answer = std::move(held_.begin()->second);
        held_.erase(held_.begin());
        try {
            Answer(std::move(answer.responder), 0, answer.status);
        } catch (const std::bad_alloc&) {
            // Its responder has failed the call; the others are answered.
        }
    }
    Arm();
}

void NotifierEndpoint::Arm() noexcept {
    if (!held_.empty()) {
        alarm_.RingAt(held_.begin()->first);
    }
}

void NotifierEndpoint::Close() {
    alarm_.Cancel();
    board_.Clear();
    for (auto& [due, answer] : std::exchange(held_, {})) {
        answer.responder.Drop();
    }
}

}  // namespace zam_service
