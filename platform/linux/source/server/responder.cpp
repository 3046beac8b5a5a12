#include <fmt/format.h>

#include <utility>

#include "server/server_connection.h"
#include "zam_platform/report.h"
#include "zam_platform/server/endpoint.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "responder";

}  // namespace

Responder::Responder(std::shared_ptr<ServerConnection> connection, std::uint64_t callNumber,
                     const vd_message_header& header, const OperationRule& rule) noexcept
    : connection_(std::move(connection)), callNumber_(callNumber), header_(header), rule_(&rule) {}

Responder::~Responder() {
    if (connection_ != nullptr) {
        interceptor_.reset();
        ReportText(zor::logger::kLevelError, kSourceFile, "~Responder", [this] {
            return fmt::format("{} was given up without an answer", rule_->name);
        });
        Fail(kStatusUnanswered);
    }
}

void Responder::AnswerBytes(vd_message_header* message, std::uint32_t messageBytes,
                            const void* arena, std::uint32_t arenaBytes) {
    if (messageBytes != rule_->responseBytes || arenaBytes > rule_->responseArenaBytes) {
        ReportText(zor::logger::kLevelError, kSourceFile, "AnswerBytes", [&] {
            return fmt::format("{}: answer of {} and {} bytes, not {} and at most {}", rule_->name,
                               messageBytes, arenaBytes, rule_->responseBytes,
                               rule_->responseArenaBytes);
        });
        Fail(kStatusUnanswered);
        return;
    }
    message->riid = header_.riid;
    message->operation = header_.operation;
    message->fixedSize = messageBytes;
    if (interceptor_ != nullptr) {
        const auto* const first = reinterpret_cast<const unsigned char*>(message);
        const auto* const second = static_cast<const unsigned char*>(arena);
        AnswerParts parts{.status = 0,
                          .message = {first, first + messageBytes},
                          .arena = {second, second + arenaBytes}};
        const std::unique_ptr<AnswerInterceptor> interceptor = std::move(interceptor_);
        interceptor->OnAnswer(std::move(parts), std::move(*this));
        return;
    }
    std::exchange(connection_, nullptr)
        ->Send({.kind = FrameKind::Answer,
                .callNumber = callNumber_,
                .fixedBytes = messageBytes,
                .arenaBytes = arenaBytes},
               message, arena, std::exchange(watch_, nullptr));
}

void Responder::Fail(std::int32_t status) {
    if (interceptor_ != nullptr) {
        const std::unique_ptr<AnswerInterceptor> interceptor = std::move(interceptor_);
        interceptor->OnAnswer({.status = status, .message = {}, .arena = {}}, std::move(*this));
        return;
    }
    TellLost();
    std::exchange(connection_, nullptr)
        ->Send({.kind = FrameKind::Answer, .callNumber = callNumber_, .status = status}, nullptr,
               nullptr, nullptr);
}

void Responder::Drop() {
    std::exchange(connection_, nullptr)->Drop();
    TellLost();
}

void Responder::TellLost() {
    if (const DeliveryWatch watch = std::exchange(watch_, nullptr)) {
        watch(false);
    }
}

bool Responder::IsConnected() const noexcept {
    return connection_->IsOpen();
}

void Responder::Intercept(std::unique_ptr<AnswerInterceptor> interceptor) noexcept {
    interceptor_ = std::move(interceptor);
}

}  // namespace zam_platform
