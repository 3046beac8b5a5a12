#include "qor/utils/cancellation_token.h"

#include "qel/result_code.h"

namespace qor::utils {

CancellationToken::CancellationToken(ExecutionAction state) noexcept : state_(state) {}

CancellationToken::~CancellationToken() = default;

int CancellationToken::GetExecutionAction(ExecutionAction& action) const {
    action = state_;
    return qel::kNoError;
}

int CancellationToken::GetExecutionAction(ExecutionAction& action,
                                          std::chrono::milliseconds timeout) const {
    const int result = event_.Wait(timeout);
    action = state_;
    return result;
}

int CancellationToken::Pause() {
    Tell(ExecutionAction::Pause);
    return qel::kNoError;
}

int CancellationToken::Resume() {
    Tell(ExecutionAction::Continue);
    return qel::kNoError;
}

bool CancellationToken::IsPaused() const {
    return state_ == ExecutionAction::Pause;
}

bool CancellationToken::IsCanceled() const {
    return state_ == ExecutionAction::Cancel;
}

void CancellationToken::Cancel() {
    Tell(ExecutionAction::Cancel);
}

void CancellationToken::Tell(ExecutionAction state) {
    state_ = state;
    event_.Set();
}

}  // namespace qor::utils
