#include "server/server_slot.h"

#include <algorithm>
#include <array>
#include <utility>

#include "shared/step.h"

namespace zam_platform {

void ServerSlot::Tell(Polling state) noexcept {
    if (state_ != state) {
        state_ = state;
        Reach(Step::ServiceTells);
        memory_.answers->polling.store(state);
    }
}

std::size_t ServerSlot::FindAnswerRoom() noexcept {
    // Once: a client that wants large answers has touched all of the pages by its first request.
    if (!std::exchange(hasFoundRoom_, true)) {
        const std::size_t present = PresentBytes(memory_.answers);
        answerRoom_ =
            std::clamp(present, kSharedPage, offsetof(AnswerPages, slot) + kAnswerSlotBytes) -
            offsetof(AnswerPages, slot);
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
