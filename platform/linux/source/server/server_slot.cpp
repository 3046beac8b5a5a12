#include "server/server_slot.h"

#include <array>

namespace zam_platform {

void ServerSlot::Tell(Polling state) noexcept {
    if (state_ != state) {
        state_ = state;
        memory_.answers->polling.store(state);
    }
}

bool ServerSlot::Answer(const Prelude& prelude, const void* message, const void* arena) noexcept {
    AnswerPages& pages = *memory_.answers.operator->();
    alignas(8) std::array<unsigned char, kPreludeBytes> head;
    EncodePrelude(prelude, head.data());
    std::size_t offset = WriteSlot(pages.slot.data(), 0, head.data(), head.size());
    offset = WriteSlot(pages.slot.data(), offset, message, prelude.fixedBytes);
    WriteSlot(pages.slot.data(), offset, arena, prelude.arenaBytes);
    answered_ = prelude.callNumber;
    pages.answer.store(prelude.callNumber);
    // A client that has gone on to another call has got this answer.
    return memory_.requests->waiting.load() >= prelude.callNumber;
}

}  // namespace zam_platform
