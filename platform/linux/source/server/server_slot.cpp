#include "server/server_slot.h"

#include <algorithm>
#include <array>
#include <cstddef>
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

bool ServerSlot::Answer(const Prelude& prelude, const void* message, const void* arena) noexcept {
    AnswerPages& pages = *memory_.answers.operator->();
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    EncodePrelude(prelude, head.data());
    Reach(Step::ServiceWrites);
    std::size_t offset = WriteSlot(pages.slot.data(), 0, head.data(), head.size());
    offset = WriteSlot(pages.slot.data(), offset, message, prelude.fixedBytes);
    offset = WriteSlot(pages.slot.data(), offset, arena, prelude.arenaBytes);
    answerEnd_ = offsetof(AnswerPages, slot) + offset;
    answered_ = prelude.callNumber;
    Reach(Step::ServiceAnswers);
    pages.answer.store(prelude.callNumber);
    Reach(Step::ServiceLooksWhoWaits);
    // A client that has gone on to another call has got this answer.
    return memory_.requests->waiting.load() >= prelude.callNumber;
}

void ServerSlot::FreeSlots() noexcept {
    memory_.answers->answer.store(0);
    FreePages(memory_.requestFile, 0, kRequestFileBytes);
    FreeAnswer(memory_.answerFile);
}

UniqueFd ServerSlot::FreeButLastAnswer() noexcept {
    FreePages(memory_.requestFile, 0, kRequestFileBytes);
    const std::size_t kept = std::max(kSharedPage, RoundToPages(answerEnd_));
    FreePages(memory_.answerFile, kept, kAnswerFileBytes);
    return kept == kSharedPage ? UniqueFd() : std::move(memory_.answerFile);
}

}  // namespace zam_platform
