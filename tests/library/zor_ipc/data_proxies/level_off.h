#pragma once

#include <cstddef>
#include <vector>

#include "data_rig.h"

/// Failures with the logger's level on and off.
namespace zam_connector::test {

/// What a failing call is to do; without its records it does the same.
struct Failing {
    int code = kUnspecified;
    std::size_t records = 1;
    bool isWritten = false;  ///< the outputs are
};

/// What a call did.
struct Outcome {
    int code = 0;
    bool isWritten = false;
    std::vector<unsigned> operations;
    std::size_t records = 0;
};

/// Runs `act(rig, isWritten)`, which gives the code, on a rig made ready by `prepare(rig)`.
template <typename TheRig, typename Prepare, typename Act>
Outcome OutcomeWith(int threshold, const Prepare& prepare, const Act& act) {
    TheRig rig;
    rig.logger.SetThreshold(threshold);
    prepare(rig);
    Outcome outcome;
    outcome.code = act(rig, outcome.isWritten);
    outcome.operations = rig.Operations();
    outcome.records = rig.TakeLines().size();
    return outcome;
}

/// Checks the failure with the level on and off.
template <typename TheRig, typename Prepare, typename Act>
void ExpectSameWithTheLevelOff(const Failing& failing, const Prepare& prepare, const Act& act) {
    const Outcome loud = OutcomeWith<TheRig>(zor::logger::kLevelError, prepare, act);
    const Outcome quiet = OutcomeWith<TheRig>(zor::logger::kLevelError + 1, prepare, act);
    EXPECT_EQ(loud.records, failing.records);
    EXPECT_EQ(quiet.records, 0U);
    EXPECT_EQ(loud.code, failing.code);
    EXPECT_EQ(quiet.code, failing.code);
    EXPECT_EQ(loud.isWritten, failing.isWritten);
    EXPECT_EQ(quiet.isWritten, failing.isWritten);
    EXPECT_EQ(quiet.operations, loud.operations);
}

}  // namespace zam_connector::test
