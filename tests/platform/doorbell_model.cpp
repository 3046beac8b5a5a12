#include "doorbell_model.h"

#include <utility>

namespace zam_platform::testing {
namespace {

/// What `seen_` knows of a state.
constexpr std::uint8_t kOnPath = 0;
constexpr std::uint8_t kFinishes = 1;
constexpr std::uint8_t kDoesNotFinish = 2;

}  // namespace

std::size_t DoorbellModel::Hash::operator()(const State& state) const noexcept {
    std::uint64_t hash = 0;
    const auto mix = [&hash](std::uint64_t value) {
        hash = (hash ^ value) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 29U;
    };
    const auto bits = [](auto... values) {
        std::uint64_t all = 0;
        ((all = all << 5U | static_cast<std::uint64_t>(values)), ...);
        return all;
    };
    mix(bits(state.client, state.number, state.byMemory, state.callSent, state.knowsGivenUp,
             state.seenPolling, state.service, state.last, state.isMapped, state.answersByMemory,
             state.ringsAnyway, state.late));
    mix(bits(state.served, state.req, state.waiting, state.requestBytes, state.polling, state.taken,
             state.ans, state.answerBytes));
    mix(std::uint64_t{state.toService} << 32U | state.toClient);
    return hash;
}

void DoorbellModel::Explore() {
    Visit(State{});
}

bool DoorbellModel::Visit(const State& state) {
    const auto [known, isNew] = seen_.try_emplace(state, kOnPath);
    if (!isNew) {
        if (known->second == kOnPath) {
            Found(DoorbellFinding::Endless);
        }
        return known->second == kFinishes;
    }
    bool finishes = state.client == ClientStep::Finished;
    if (!finishes) {
        moves_.clear();
        ClientMoves(state);
        ServiceMoves(state);
        bool isStuck = true;
        for (const Move& move : std::exchange(moves_, {})) {
            path_.push_back(move.name);
            const bool moveFinishes = Visit(move.to);
            path_.pop_back();
            if (move.isPrompt) {
                isStuck = false;
                finishes = finishes || moveFinishes;
            }
        }
        if (isStuck) {
            Found(DoorbellFinding::Stuck);
        }
        if (!finishes) {
            Found(DoorbellFinding::CannotFinish);
        }
    }
    seen_[state] = finishes ? kFinishes : kDoesNotFinish;
    return finishes;
}

void DoorbellModel::Found(DoorbellFinding finding) {
    ++findings_[finding];
    if (example_.empty() || path_.size() < exampleSteps_) {
        exampleSteps_ = path_.size();
        example_.clear();
        for (const char* const step : path_) {
            example_.append(step).append("; ");
        }
    }
}

void DoorbellModel::Go(const State& to, const char* name, bool isPrompt) {
    moves_.push_back({to, name, isPrompt});
}

void DoorbellModel::Push(Frames& frames, std::uint8_t kind, std::uint8_t number) {
    unsigned shift = 0;
    while (shift < 8 * sizeof(frames) && (frames >> shift & 0xFU) != 0) {
        shift += kFrameBits;
    }
    if (shift == 8 * sizeof(frames)) {
        Found(DoorbellFinding::Disorder);  // more frames than three calls can have
        return;
    }
    frames |= (Frames{kind} | number) << shift;
}

// -- The client. Each case is one step.

void DoorbellModel::ClientMoves(const State& state) {
    State next = state;
    const std::uint8_t number = state.number;
    switch (state.client) {
        case ClientStep::Start:
            next.client = ClientStep::SendCall;
            Go(next, "client calls by socket");
            if (!state.knowsGivenUp) {
                // What it has seen of `polling` may be old by now, so any value lets it go this
                // way.
                next.byMemory = true;
                next.seenPolling =
                    Has(DoorbellFault::LooksWhoPollsBeforeItAsks) ? state.polling : 0;
                next.client = Has(DoorbellFault::WritesTheRequestBehindItsNumber)
                                  ? ClientStep::SetWaiting
                                  : ClientStep::WriteRequest;
                Go(next, "client calls by memory");
            }
            break;
        case ClientStep::WriteRequest:
            next.requestBytes = number;
            next.client = ClientStep::SetWaiting;
            Go(next, "client writes the request");
            break;
        case ClientStep::SetWaiting:
            next.waiting = number;
            next.client = ClientStep::StoreRequest;
            Go(next, "client: waiting = n");
            break;
        case ClientStep::StoreRequest:
            next.req = number;
            next.client = Has(DoorbellFault::WritesTheRequestBehindItsNumber)
                              ? ClientStep::WriteRequestLate
                              : ClientStep::LoadPolling;
            Go(next, "client: req = n");
            break;
        case ClientStep::WriteRequestLate:
            next.requestBytes = number;
            next.client = ClientStep::LoadPolling;
            Go(next, "client writes the request");
            break;
        case ClientStep::LoadPolling: {
            const std::uint8_t polling =
                Has(DoorbellFault::LooksWhoPollsBeforeItAsks) ? state.seenPolling : state.polling;
            next.seenPolling = 0;
            next.client = ClientStep::Spin;
            if (polling == kAsleep && !Has(DoorbellFault::DoesNotLookAtASleeper)) {
                next.client = ClientStep::SendLook;
            } else if (polling == kGivenUp) {
                next.knowsGivenUp = true;
                if (Has(DoorbellFault::SendsAgainWhatIsNotTakenYet)) {
                    next.client = ClientStep::LoadTaken;
                } else if (!Has(DoorbellFault::WaitsForOneWhoGaveUp)) {
                    next.client = rules_.whenGivenUp == WhenGivenUp::Asks ? ClientStep::SendLook
                                                                          : ClientStep::SendCall;
                }
            }
            Go(next, "client reads polling");
            break;
        }
        case ClientStep::LoadTaken:
            next.client = state.taken == number ? ClientStep::Spin : ClientStep::SendCall;
            Go(next, "client reads taken");
            break;
        case ClientStep::SendLook:
            next.client = ClientStep::Spin;
            if (IsDead(state)) {
                next.client = ClientStep::JudgeEnd;
            } else {
                Push(next.toService, kLook, number);
            }
            Go(next, "client sends a look");
            break;
        case ClientStep::SendCall:
            if (IsDead(state)) {
                next.client = ClientStep::JudgeEnd;
            } else {
                Push(next.toService, kCallOrAnswer, number);
                next.callSent = true;
                next.client = state.byMemory && rules_.whenGivenUp == WhenGivenUp::Sends
                                  ? ClientStep::Spin
                                  : ClientStep::Receive;
            }
            Go(next, "client sends the call");
            break;
        case ClientStep::Spin:
            if (state.ans == number) {
                next.client = ClientStep::TakeAnswer;
                Go(next, "client sees the answer");
            }
            next.client = Has(DoorbellFault::LooksAgainBeforeItTellsThatItGivesUp)
                              ? ClientStep::LookAgain
                              : ClientStep::StopWaiting;
            Go(next, "client has spun for long enough");
            break;
        case ClientStep::StopWaiting:
            next.waiting = 0;
            next.client = Has(DoorbellFault::DoesNotLookAgainWhenItGivesUp) ||
                                  Has(DoorbellFault::LooksAgainBeforeItTellsThatItGivesUp)
                              ? ClientStep::Receive
                              : ClientStep::LookAgain;
            Go(next, "client: waiting = 0");
            break;
        case ClientStep::LookAgain:
            next.client = Has(DoorbellFault::LooksAgainBeforeItTellsThatItGivesUp)
                              ? ClientStep::StopWaiting
                              : ClientStep::Receive;
            if (state.ans == number) {
                next.client = ClientStep::TakeAnswer;
            }
            Go(next, "client reads ans once more");
            break;
        case ClientStep::Receive:
            Receive(state);
            break;
        case ClientStep::TakeAnswer:
            if (state.answerBytes != number) {
                Found(DoorbellFinding::WrongBytes);
            }
            if (rules_.clearsWaiting) {
                next.client = ClientStep::ClearWaiting;
                Go(next, "client takes the answer");
            } else {
                EndCall(state, "client takes the answer");
            }
            break;
        case ClientStep::ClearWaiting:
            next.waiting = 0;
            EndCall(next, "client: waiting = 0");
            break;
        case ClientStep::JudgeEnd:
            JudgeEnd(state);
            break;
        case ClientStep::AskSuccessor:
            if (state.served) {
                Found(DoorbellFinding::ServedTwice);
            }
            next.client = ClientStep::Finished;
            Go(next, "the successor serves the call");
            break;
        case ClientStep::Finished:
            break;
    }
}

void DoorbellModel::Receive(const State& state) {
    State next = state;
    if (state.toClient == 0) {
        if (IsDead(state)) {
            next.client = ClientStep::JudgeEnd;
            Go(next, "client reads the connection's end");
        }
        return;
    }
    const bool isLook = (state.toClient & kLook) != 0;
    const std::uint8_t number = state.toClient & kNumberMask;
    next.toClient >>= kFrameBits;
    if (!isLook) {
        if (number != state.number) {
            Found(DoorbellFinding::Disorder);
        }
        EndCall(next, "client receives the answer");
        return;
    }
    if (Has(DoorbellFault::TakesAnyLookForItsOwn)) {
        next.client = ClientStep::TakeAnswer;
    } else if (number == state.number) {
        if (state.byMemory && state.ans == number) {
            next.client = ClientStep::TakeAnswer;
        } else if (state.knowsGivenUp && state.byMemory && !state.callSent) {
            next.client = ClientStep::SendCall;
        } else {
            Found(DoorbellFinding::Disorder);
        }
    } else if (number > state.number) {
        Found(DoorbellFinding::Disorder);
    }
    Go(next, "client receives a look");
}

void DoorbellModel::JudgeEnd(const State& state) {
    State next = state;
    if (state.byMemory && state.ans == state.number) {
        next.client = ClientStep::TakeAnswer;
        Go(next, "client finds the answer at the end");
        return;
    }
    const bool mayBeTaken = state.taken == state.number ||
                            (state.callSent && !Has(DoorbellFault::ResendsWhatItSentAsACall));
    const bool resends =
        Has(DoorbellFault::AlwaysResends) || (!mayBeTaken && !Has(DoorbellFault::NeverResends));
    if (!resends && !mayBeTaken) {
        Found(DoorbellFinding::Lost);
    }
    next.client = resends ? ClientStep::AskSuccessor : ClientStep::Finished;
    Go(next, "client judges the end");
}

void DoorbellModel::EndCall(State state, const char* name) {
    ++state.number;
    state.byMemory = false;
    state.callSent = false;
    state.served = false;
    state.client = state.number > kCalls ? ClientStep::Finished : ClientStep::Start;
    Go(state, name);
}

// -- The service.

void DoorbellModel::ServiceMoves(const State& state) {
    if (IsDead(state)) {
        return;
    }
    if (rules_.canEnd) {
        State next = state;
        next.service = ServiceStep::Dead;
        next.toService = 0;
        next.late = 0;
        next.last = 0;
        next.isMapped = false;
        next.answersByMemory = false;
        next.ringsAnyway = false;
        Go(next, "the service is killed", false);
    }
    switch (state.service) {
        case ServiceStep::Rest:
        case ServiceStep::ReadAgain:
        case ServiceStep::ReadBeforeStop:
        case ServiceStep::StopAtOnce:
        case ServiceStep::ReadBeforeGivingUp:
        case ServiceStep::GiveUpAtOnce:
            RestMoves(state);
            break;
        case ServiceStep::TakeRequest:
        case ServiceStep::Handle:
        case ServiceStep::TakeRequestLate:
            HandleMoves(state);
            break;
        case ServiceStep::Decide:
        case ServiceStep::DecideAndRest:
            DecideMoves(state);
            break;
        default:
            AnswerMoves(state);
            break;
    }
}

void DoorbellModel::RestMoves(const State& state) {
    State next = state;
    switch (state.service) {
        case ServiceStep::ReadAgain:
            if (IsNew(state)) {
                Serve(state, true, "service reads req again: new");
            } else {
                ComeToRest(state, "service reads req again");
            }
            return;
        case ServiceStep::ReadBeforeStop:
        case ServiceStep::ReadBeforeGivingUp:
            if (IsNew(state)) {
                Serve(state, true, "service reads req too early: new");
                return;
            }
            next.service = state.service == ServiceStep::ReadBeforeStop ? ServiceStep::StopAtOnce
                                                                        : ServiceStep::GiveUpAtOnce;
            Go(next, "service reads req too early");
            return;
        case ServiceStep::StopAtOnce:
            next.polling = kAsleep;
            ComeToRest(next, "service: polling = 0");
            return;
        case ServiceStep::GiveUpAtOnce:
            next.polling = kGivenUp;
            ComeToRest(next, "service: polling = 2");
            return;
        default:
            break;
    }

    ReadFrame(state);
    if (state.late != 0) {
        next = state;
        Push(next.toClient, kCallOrAnswer, state.late);
        next.late = 0;
        Go(next, "service answers late");
    }
    if (!state.isMapped) {
        return;
    }
    if (state.polling == kPolling) {
        if (IsNew(state)) {
            Serve(state, true, "service polls: new");
        }
        next = state;
        if (Has(DoorbellFault::ReadsAgainBeforeItTellsThatItStops)) {
            next.service = ServiceStep::ReadBeforeStop;
            Go(next, "service means to stop polling");
        } else {
            next.polling = kAsleep;
            next.service = Has(DoorbellFault::DoesNotReadAgainWhenItStopsPolling)
                               ? ServiceStep::Rest
                               : ServiceStep::ReadAgain;
            Go(next, "service: polling = 0");
        }
    }
    if (rules_.canGiveUp) {
        next = state;
        if (Has(DoorbellFault::ReadsAgainBeforeItTellsThatItGivesUp)) {
            next.service = ServiceStep::ReadBeforeGivingUp;
            Go(next, "service means to give up", false);
            return;
        }
        next.polling = kGivenUp;
        const DoorbellFault fault = state.polling == kPolling
                                        ? DoorbellFault::DoesNotReadAgainWhenItGivesUpPolling
                                        : DoorbellFault::DoesNotReadAgainWhenItGivesUpAsleep;
        next.service = ServiceStep::ReadAgain;
        if (Has(fault)) {
            next.service = ServiceStep::Rest;
            next.isMapped = false;
        }
        Go(next, "service: polling = 2", false);
    }
}

void DoorbellModel::ReadFrame(const State& state) {
    if (state.toService == 0) {
        return;
    }
    State next = state;
    const bool isLook = (state.toService & kLook) != 0;
    const std::uint8_t number = state.toService & kNumberMask;
    next.toService >>= kFrameBits;
    if (!isLook) {
        const bool isRepeated = number == state.last && rules_.whenGivenUp == WhenGivenUp::Sends &&
                                !Has(DoorbellFault::ServesARepeatedCall);
        if (isRepeated) {
            Go(next, "service skips a repeated call");
        } else {
            next.last = number;
            Serve(next, false, "service reads a call");
        }
        return;
    }
    if (Has(DoorbellFault::ServesAnyLook) && state.isMapped) {
        Serve(next, true, "service reads a look");
        return;
    }
    if (number > state.last + 1) {
        Found(DoorbellFinding::Disorder);
    }
    if (number <= state.last && !Has(DoorbellFault::AnswersLooksThatItHasServed)) {
        Go(next, "service skips a stale look");
    } else if (state.isMapped) {
        if (!IsNew(state)) {
            if (!Has(DoorbellFault::AnswersLooksThatItHasServed)) {
                Found(DoorbellFinding::Disorder);
            }
            Go(next, "service reads a look of nothing");
        } else {
            Serve(next, true, "service reads a look");
        }
    } else {
        if (rules_.whenGivenUp != WhenGivenUp::Asks) {
            Found(DoorbellFinding::Disorder);
        }
        if (!Has(DoorbellFault::LeavesLooksUnansweredOnceItGaveUp)) {
            Push(next.toClient, kLook, number);
        }
        Go(next, "service sends a look back");
    }
}

void DoorbellModel::Serve(State state, bool byMemory, const char* name) {
    state.answersByMemory = byMemory;
    state.service = ServiceStep::Handle;
    if (byMemory) {
        state.last = state.req;
        if (!Has(DoorbellFault::TakesTheRequestBehindItsHandling)) {
            state.service = ServiceStep::TakeRequest;
        }
    }
    Go(state, name);
}

void DoorbellModel::HandleMoves(const State& state) {
    State next = state;
    if (state.service == ServiceStep::TakeRequest) {
        next.taken = state.last;
        next.service = ServiceStep::Handle;
        Go(next, "service: taken = n");
        return;
    }
    if (state.service == ServiceStep::TakeRequestLate) {
        next.taken = state.last;
        next.service = ServiceStep::Decide;
        Go(next, "service: taken = n");
        return;
    }
    if (state.last != state.number || state.served) {
        Found(DoorbellFinding::ServedTwice);
    }
    if (state.answersByMemory && state.requestBytes != state.last) {
        Found(DoorbellFinding::WrongBytes);
    }
    next.served = true;
    next.service = state.answersByMemory && Has(DoorbellFault::TakesTheRequestBehindItsHandling)
                       ? ServiceStep::TakeRequestLate
                       : ServiceStep::Decide;
    Go(next, "service handles the call");
    if (next.answersByMemory) {
        next.answersByMemory = false;
        Go(next, "service handles the call, to answer by socket");
    }
    if (next.service == ServiceStep::Decide) {
        next.late = state.last;
        next.service = ServiceStep::DecideAndRest;
        Go(next, "service handles the call, to answer late");
    }
}

DoorbellModel::ServiceStep DoorbellModel::FirstOfAnswer(const State& state) noexcept {
    return state.answersByMemory ? ServiceStep::WriteAnswer : ServiceStep::SendAnswer;
}

void DoorbellModel::DecideMoves(const State& state) {
    const auto decide = [&](std::uint8_t polling, const char* name) {
        State next = state;
        next.polling = polling;
        if (state.service == ServiceStep::DecideAndRest) {
            ComeToRest(next, name);
            return;
        }
        next.service = FirstOfAnswer(state);
        Go(next, name);
    };
    decide(state.polling, "service leaves polling as it is");
    if (!state.isMapped || state.polling == kGivenUp) {
        return;
    }
    if (state.polling == kAsleep) {
        decide(kPolling, "service: polling = 1");
    } else if (!Has(DoorbellFault::StopsPollingBehindItsAnswer)) {
        decide(kAsleep, "service decides: polling = 0");
    }
    if (rules_.canGiveUp && !Has(DoorbellFault::GivesUpBehindItsAnswer)) {
        decide(kGivenUp, "service decides: polling = 2");
    }
}

void DoorbellModel::AnswerMoves(const State& state) {
    State next = state;
    const bool looksFirst = Has(DoorbellFault::LooksWhoWaitsBeforeItAnswers);
    switch (state.service) {
        case ServiceStep::WriteAnswer:
            next.service = looksFirst ? ServiceStep::LoadWaiting : ServiceStep::StoreAnswer;
            if (!Has(DoorbellFault::WritesTheAnswerBehindItsNumber)) {
                next.answerBytes = state.last;
            }
            Go(next, "service writes the answer");
            break;
        case ServiceStep::StoreAnswer:
            next.ans = state.last;
            if (looksFirst) {
                if (state.ringsAnyway) {
                    next.service = ServiceStep::SendLook;
                    Go(next, "service: ans = n");
                } else {
                    BeAnswered(next, "service: ans = n");
                }
                break;
            }
            next.service = Has(DoorbellFault::WritesTheAnswerBehindItsNumber)
                               ? ServiceStep::WriteAnswerLate
                               : ServiceStep::LoadWaiting;
            Go(next, "service: ans = n");
            break;
        case ServiceStep::WriteAnswerLate:
            next.answerBytes = state.last;
            next.service = ServiceStep::LoadWaiting;
            Go(next, "service writes the answer");
            break;
        case ServiceStep::LoadWaiting: {
            const bool rings = rules_.ringsUnlessAwaited ? state.waiting != state.last
                                                         : state.waiting < state.last;
            if (looksFirst) {
                next.ringsAnyway = rings;
                next.service = ServiceStep::StoreAnswer;
                Go(next, "service reads waiting too early");
            } else if (rings && !Has(DoorbellFault::DoesNotRing)) {
                next.service = ServiceStep::SendLook;
                Go(next, "service reads waiting");
            } else {
                BeAnswered(next, "service reads waiting");
            }
            break;
        }
        case ServiceStep::SendLook:
            Push(next.toClient, kLook, state.last);
            BeAnswered(next, "service rings");
            break;
        case ServiceStep::SendAnswer:
            Push(next.toClient, kCallOrAnswer, state.last);
            BeAnswered(next, "service sends the answer");
            break;
        default:
            break;
    }
}

void DoorbellModel::BeAnswered(State state, const char* name) {
    state.ringsAnyway = false;
    if (state.isMapped && state.polling == kPolling) {
        if (Has(DoorbellFault::StopsPollingBehindItsAnswer)) {
            state.service = ServiceStep::StopAtOnce;
            Go(state, name);
            return;
        }
        if (Has(DoorbellFault::GivesUpBehindItsAnswer)) {
            state.service = ServiceStep::GiveUpAtOnce;
            Go(state, name);
            return;
        }
    }
    const bool readsAgain =
        rules_.readsAgainBehindDecision && state.isMapped && state.polling != kPolling;
    if (readsAgain) {
        state.service = ServiceStep::ReadAgain;
        Go(state, name);
        return;
    }
    ComeToRest(state, name);
}

void DoorbellModel::ComeToRest(State state, const char* name) {
    state.service = ServiceStep::Rest;
    state.answersByMemory = false;
    if (state.polling == kGivenUp) {
        state.isMapped = false;
    }
    Go(state, name);
}

}  // namespace zam_platform::testing
