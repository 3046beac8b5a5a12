#pragma once

#include <asio/io_context.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "faults/fault_witness.h"
#include "notices/error_pacing.h"
#include "notices/notice_board.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Serves ConnStateNotifier or ZamDataNotifier, which have the same operations and messages. A call
/// that waits takes no thread: its responder is kept until there is something to tell. On the loop
/// thread only.
class NotifierEndpoint final : public zam_platform::EndpointHandler, public FaultWitness {
public:
    /// Has it noticed which connections of a client have broken.
    using NoticeBroken = std::function<void(const zam_platform::SessionToken&)>;

    /// `loop` and `board` are not owned and must outlive this object.
    NotifierEndpoint(asio::io_context& loop, NoticeBoard& board, NoticeBroken noticeBroken);
    NotifierEndpoint(const NotifierEndpoint&) = delete;
    NotifierEndpoint& operator=(const NotifierEndpoint&) = delete;
    ~NotifierEndpoint() override;

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

    void OnFault(const zam_platform::Request& /*request*/) override {}

    /// Errors out of fault rules are paced like others.
    std::chrono::milliseconds HoldBack(const zam_platform::Request& request) override;

    /// Closes the connections of all calls that wait.
    void Close();

private:
    class Waiter;
    struct HeldAnswer {
        zam_platform::Responder responder;
        std::uint8_t status = 0;
    };

    void Register(const zam_platform::Request& request, zam_platform::Responder responder);
    void Wait(const zam_platform::Request& request, zam_platform::Responder responder);
    void AnswerPaced(const zam_platform::SessionToken& client, std::uint32_t id,
                     zam_platform::Responder responder, std::uint8_t status);
    void AnswerHeld();
    void Arm() noexcept;

    zam_platform::Alarm alarm_;
    NoticeBoard& board_;
    const std::shared_ptr<NoticeBoard*> here_ = std::make_shared<NoticeBoard*>(&board_);
    const NoticeBroken noticeBroken_;
    ErrorPacing pacing_;
    std::multimap<ErrorPacing::TimePoint, HeldAnswer> held_;
};

}  // namespace zam_service
