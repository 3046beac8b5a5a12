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
    Finding finding;
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
        BrokenRule{"ReadAgainWhenPollingStops", Fault::DoesNotReadAgainWhenItStopsPolling,
                   Finding::Stuck},
        BrokenRule{"ReadAgainWhenASleeperGivesUp", Fault::DoesNotReadAgainWhenItGivesUpAsleep,
                   Finding::Stuck},
        BrokenRule{"ReadAgainWhenAPollerGivesUp", Fault::DoesNotReadAgainWhenItGivesUpPolling,
                   Finding::Stuck},
        BrokenRule{"TellThatPollingStopsBeforeReadingAgain",
                   Fault::ReadsAgainBeforeItTellsThatItStops, Finding::Stuck},
        BrokenRule{"TellThatMemoryIsGivenUpBeforeReadingAgain",
                   Fault::ReadsAgainBeforeItTellsThatItGivesUp, Finding::Stuck},
        BrokenRule{"StopPollingBeforeTheAnswerOrReadAgain", Fault::StopsPollingBehindItsAnswer,
                   Finding::Stuck},
        BrokenRule{"GiveUpBeforeTheAnswerOrReadAgain", Fault::GivesUpBehindItsAnswer,
                   Finding::Stuck},
        BrokenRule{"RingWhoDoesNotWait", Fault::DoesNotRing, Finding::Stuck},
        BrokenRule{"AnswerBeforeLookingWhoWaits", Fault::LooksWhoWaitsBeforeItAnswers,
                   Finding::Stuck},
        BrokenRule{"WriteTheAnswerBeforeItsNumber", Fault::WritesTheAnswerBehindItsNumber,
                   Finding::WrongBytes},
        BrokenRule{"TakeTheRequestBeforeHandlingIt", Fault::TakesTheRequestBehindItsHandling,
                   Finding::ServedTwice},
        BrokenRule{"SkipLooksOfServedCalls", Fault::ServesAnyLook, Finding::ServedTwice},
        BrokenRule{"SendLooksBackOnceMemoryIsGone", Fault::LeavesLooksUnansweredOnceItGaveUp,
                   Finding::Stuck},
        BrokenRule{"SendBackNoLookThatWasServed", Fault::AnswersLooksThatItHasServed,
                   Finding::ServedTwice},
        BrokenRule{"SkipACallThatWasTakenFromMemory", Fault::ServesARepeatedCall,
                   Finding::ServedTwice, WhenGivenUp::Sends},
        BrokenRule{"LookAtASleeper", Fault::DoesNotLookAtASleeper, Finding::Stuck},
        BrokenRule{"AskBeforeLookingWhoPolls", Fault::LooksWhoPollsBeforeItAsks, Finding::Stuck},
        BrokenRule{"WriteTheRequestBeforeItsNumber", Fault::WritesTheRequestBehindItsNumber,
                   Finding::WrongBytes},
        BrokenRule{"LookAgainWhenGivingUp", Fault::DoesNotLookAgainWhenItGivesUp, Finding::Stuck},
        BrokenRule{"TellThatOneGivesUpBeforeLookingAgain",
                   Fault::LooksAgainBeforeItTellsThatItGivesUp, Finding::Stuck},
        BrokenRule{"NotWaitForWhoGaveUp", Fault::WaitsForOneWhoGaveUp, Finding::Stuck},
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
