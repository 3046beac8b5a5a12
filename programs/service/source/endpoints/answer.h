#pragma once

#include <functional>

#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Answers a call whose response is a result code and nothing else.
void AnswerResult(zam_platform::Responder responder, int code);

/// The same as a function that is called once, later; copies share the one responder.
std::function<void(int code)> ResultAnswer(zam_platform::Responder responder);

}  // namespace zam_service
