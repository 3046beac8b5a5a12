#pragma once

namespace zam_platform {

/// Where tests stop a side of the fast channel, or end it: each step stands before one access to
/// what both sides see, or before the work that it announces.
enum class Step : unsigned {
    // A client's call, in its order.
    ClientWrites,  ///< its bytes
    ClientWaits,   ///< stores its number in `waiting`
    ClientAsks,    ///< and in `request`
    ClientLooksWhoPolls,
    ClientRings,         ///< sends a look
    ClientLooks,         ///< for the answer, over and over
    ClientStopsWaiting,  ///< stores 0 in `waiting`
    ClientLooksAgain,
    ClientSleeps,          ///< on the socket
    ClientJudgesEnd,       ///< reads `taken` when the connection has ended
    ClientTakes,           ///< copies the answer
    ClientTellsThatItHas,  ///< what it found by its last look
    // The service.
    ServiceTells,  ///< stores `polling`
    ServiceLooks,  ///< for a request
    ServiceTakes,  ///< stores `taken`
    ServiceReads,  ///< copies the request
    ServiceHandles,
    ServiceDecides,  ///< whether to look for the next one
    ServiceWrites,   ///< the answer's bytes
    ServiceAnswers,  ///< stores `answer`
    ServiceLooksWhoWaits,
    ServiceRings,  ///< sends a look
};

/// Says that the calling thread is about to take a step.
#ifdef ZAM_TEST_STEPS
void Reach(Step step) noexcept;  // in the tests that are built with it
#else
constexpr void Reach(Step /*step*/) noexcept {}
#endif

}  // namespace zam_platform
