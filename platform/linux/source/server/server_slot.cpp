#include "server/server_slot.h"

#include <array>

#include "shared/step.h"

namespace zam_platform {

void ServerSlot::Tell(Polling state) noexcept {
    if (state_ != state) {
        state_ = state;
        Reach(Step::ServiceTells);
        memory_.answers->polling.store(state);
    }
}

void ServerSlot::CloseFiles() noexcept {
    memory_.requestFile.Reset();
    if (memory_.canPagesOfAnswersGo) {
        memory_.answerFile.Reset();
    }
}

std::size_t ServerSlot::FindAnswerRoom() noexcept {
    // A page that is there stays.
    if (AreAnswersThere(memory_.answerFile)) {
        answerRoom_ = kAnswerSlotBytes;
        memory_.answerFile.Reset();
    }
    return answerRoom_;
}

bool ServerSlot::Answer(const Prelude& prelude, const void* message, const void* arena) noexcept {
    AnswerPages& pages = *memory_.answers.operator->();
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    EncodePrelude(prelude, head.data());
    Reach(Step::ServiceWrites);
    std::size_t offset = WriteSlot(pages.slot.data(), 0, head.data(), head.size());
    offset = WriteSlot(pages.slot.data(), offset, message, prelude.fixedBytes);
    WriteSlot(pages.slot.data(), offset, arena, prelude.arenaBytes);
    answered_ = prelude.callNumber;
    Reach(Step::ServiceAnswers);
    pages.answer.store(prelude.callNumber);
    Reach(Step::ServiceLooksWhoWaits);
    // A client that has gone on to another call has got this answer.
    return memory_.requests->waiting.load() >= prelude.callNumber;
}

}  // namespace zam_platform
