#include "endpoints/answer.h"

#include <memory>
#include <utility>

#include "qx/messages.h"

namespace zam_service {

using zam_platform::Responder;

void AnswerResult(Responder responder, int code) {
    qx::ResultResponse response{};
    response.resultCode = code;
    responder.Answer(response);
}

std::function<void(int code)> ResultAnswer(Responder responder) {
    return [kept = std::make_shared<Responder>(std::move(responder))](int code) {
        AnswerResult(std::move(*kept), code);
    };
}

}  // namespace zam_service
