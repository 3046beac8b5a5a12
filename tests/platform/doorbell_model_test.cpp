#include "doorbell_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zam_platform::testing {
namespace {

using ::testing::IsEmpty;
using Finding = DoorbellFinding;
using Fault = DoorbellFault;

/// Ways to keep the order that are all right.
struct SoundRules {
    const char* name;
    DoorbellRules rules;
};

class DoorbellOrder : public ::testing::TestWithParam<SoundRules> {};

TEST_P(DoorbellOrder, LosesNoCallServesNoneTwiceAndComesToAnEnd) {
    DoorbellRules rules = GetParam().rules;
    for (const auto whenGivenUp : {WhenGivenUp::Asks, WhenGivenUp::Sends}) {
        rules.whenGivenUp = whenGivenUp;
        const DoorbellModel model(rules);
        EXPECT_THAT(model.Findings(), IsEmpty()) << model.Example();
        EXPECT_GT(model.States(), 5000U) << "something keeps the model from moving";
    }
}

INSTANTIATE_TEST_SUITE_P(
    DoorbellModel, DoorbellOrder,
    ::testing::Values(
        SoundRules{"AsDescribed", {}}, SoundRules{"OfAServiceThatLives", {.canEnd = false}},
        SoundRules{"OfAServiceThatKeepsTheMemory", {.canGiveUp = false}},
        SoundRules{"OfBoth", {.canEnd = false, .canGiveUp = false}},
        SoundRules{"OfAClientThatTakesItsNumberBack", {.clearsWaiting = true}},
        SoundRules{"OfAServiceThatRingsWhoHasTheAnswer", {.ringsUnlessAwaited = true}},
        SoundRules{"OfAServiceThatReadsMoreThanItMust", {.readsAgainBehindDecision = true}}),
    [](const auto& tested) { return std::string(tested.param.name); });

/// A rule that is broken, and what comes of it.
struct BrokenRule {
    const char* name;
    Fault fault;
    Finding finding = Finding::Stuck;
    WhenGivenUp whenGivenUp = WhenGivenUp::Asks;
};

class DoorbellRule : public ::testing::TestWithParam<BrokenRule> {};

TEST_P(DoorbellRule, IsNeeded) {
    const DoorbellModel model({.fault = GetParam().fault, .whenGivenUp = GetParam().whenGivenUp});
    EXPECT_TRUE(model.Findings().contains(GetParam().finding))
        << model.States() << " states, " << model.Example();
}

INSTANTIATE_TEST_SUITE_P(
    DoorbellModel, DoorbellRule,
    ::testing::Values(
        BrokenRule{"ReadAgainWhenPollingStops", Fault::DoesNotReadAgainWhenItStopsPolling},
        BrokenRule{"ReadAgainWhenASleeperGivesUp", Fault::DoesNotReadAgainWhenItGivesUpAsleep},
        BrokenRule{"ReadAgainWhenAPollerGivesUp", Fault::DoesNotReadAgainWhenItGivesUpPolling},
        BrokenRule{"TellThatPollingStopsBeforeReadingAgain",
                   Fault::ReadsAgainBeforeItTellsThatItStops},
        BrokenRule{"TellThatMemoryIsGivenUpBeforeReadingAgain",
                   Fault::ReadsAgainBeforeItTellsThatItGivesUp},
        BrokenRule{"StopPollingBeforeTheAnswerOrReadAgain", Fault::StopsPollingBehindItsAnswer},
        BrokenRule{"GiveUpBeforeTheAnswerOrReadAgain", Fault::GivesUpBehindItsAnswer},
        BrokenRule{"RingWhoDoesNotWait", Fault::DoesNotRing},
        BrokenRule{"AnswerBeforeLookingWhoWaits", Fault::LooksWhoWaitsBeforeItAnswers},
        BrokenRule{"WriteTheAnswerBeforeItsNumber", Fault::WritesTheAnswerBehindItsNumber,
                   Finding::WrongBytes},
        BrokenRule{"TakeTheRequestBeforeHandlingIt", Fault::TakesTheRequestBehindItsHandling,
                   Finding::ServedTwice},
        BrokenRule{"SkipLooksOfServedCalls", Fault::ServesAnyLook, Finding::ServedTwice},
        BrokenRule{"SendLooksBackOnceMemoryIsGone", Fault::LeavesLooksUnansweredOnceItGaveUp},
        BrokenRule{"SendBackNoLookThatWasServed", Fault::AnswersLooksThatItHasServed,
                   Finding::ServedTwice},
        BrokenRule{"SkipACallThatWasTakenFromMemory", Fault::ServesARepeatedCall,
                   Finding::ServedTwice, WhenGivenUp::Sends},
        BrokenRule{"LookAtASleeper", Fault::DoesNotLookAtASleeper},
        BrokenRule{"AskBeforeLookingWhoPolls", Fault::LooksWhoPollsBeforeItAsks},
        BrokenRule{"WriteTheRequestBeforeItsNumber", Fault::WritesTheRequestBehindItsNumber,
                   Finding::WrongBytes},
        BrokenRule{"LookAgainWhenGivingUp", Fault::DoesNotLookAgainWhenItGivesUp},
        BrokenRule{"TellThatOneGivesUpBeforeLookingAgain",
                   Fault::LooksAgainBeforeItTellsThatItGivesUp},
        BrokenRule{"NotWaitForWhoGaveUp", Fault::WaitsForOneWhoGaveUp},
        BrokenRule{"NotTrustTakenWhileTheServiceLives", Fault::SendsAgainWhatIsNotTakenYet,
                   Finding::ServedTwice},
        BrokenRule{"SkipLooksOfEarlierCalls", Fault::TakesAnyLookForItsOwn, Finding::WrongBytes},
        BrokenRule{"ResendNothingThatWasTaken", Fault::AlwaysResends, Finding::ServedTwice},
        BrokenRule{"ResendWhatWasNotTaken", Fault::NeverResends, Finding::Lost},
        BrokenRule{"ResendNothingThatWasSent", Fault::ResendsWhatItSentAsACall,
                   Finding::ServedTwice},
        BrokenRule{"ResendNothingThatWasSentBehindMemory", Fault::ResendsWhatItSentAsACall,
                   Finding::ServedTwice, WhenGivenUp::Sends}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
}  // namespace zam_platform::testing
