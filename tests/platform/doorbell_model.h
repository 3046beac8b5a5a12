#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace zam_platform::testing {

/// What a side of the doorbell may do wrong; one at a time.
enum class DoorbellFault {
    None,
    // The service.
    DoesNotReadAgainWhenItStopsPolling,
    DoesNotReadAgainWhenItGivesUpAsleep,
    DoesNotReadAgainWhenItGivesUpPolling,
    ReadsAgainBeforeItTellsThatItStops,
    ReadsAgainBeforeItTellsThatItGivesUp,
    StopsPollingBehindItsAnswer,
    GivesUpBehindItsAnswer,
    DoesNotRing,
    LooksWhoWaitsBeforeItAnswers,
    WritesTheAnswerBehindItsNumber,
    TakesTheRequestBehindItsHandling,
    ServesAnyLook,
    LeavesLooksUnansweredOnceItGaveUp,
    AnswersLooksThatItHasServed,
    ServesARepeatedCall,
    // The client.
    DoesNotLookAtASleeper,
    LooksWhoPollsBeforeItAsks,
    WritesTheRequestBehindItsNumber,
    DoesNotLookAgainWhenItGivesUp,
    LooksAgainBeforeItTellsThatItGivesUp,
    WaitsForOneWhoGaveUp,
    SendsAgainWhatIsNotTakenYet,
    TakesAnyLookForItsOwn,
    AlwaysResends,
    NeverResends,
    ResendsWhatItSentAsACall,
};

/// What a client does that has left a request in memory and then finds it given up.
enum class WhenGivenUp {
    Asks,   ///< a look frame: the service sends it back when it has not taken the request
    Sends,  ///< the call as a frame of the same number: the service skips it when it took the
            ///< request
};

/// What is explored. All but `fault` are ways that must work alike.
struct DoorbellRules {
    DoorbellFault fault = DoorbellFault::None;
    WhenGivenUp whenGivenUp = WhenGivenUp::Asks;
    bool canEnd = true;               ///< the service may be killed at every step
    bool canGiveUp = true;            ///< the service may drop the memory
    bool clearsWaiting = false;       ///< the client takes its number back behind each answer
    bool ringsUnlessAwaited = false;  ///< the service rings whoever does not wait for this answer
    bool readsAgainBehindDecision = false;  ///< also when polling ended before the answer was out
};

/// What an exploration may find, apart from nothing.
enum class DoorbellFinding {
    Stuck,         ///< a call is open and nobody moves, unless the service ends or drops the memory
    CannotFinish,  ///< a state from which, without these, the last answer cannot be reached
    Endless,       ///< a run that may go on for ever
    ServedTwice,   ///< by one service, or by it and its successor
    Lost,          ///< a call failed of which nothing had been taken
    WrongBytes,    ///< a request or an answer was read before it had been written
    Disorder,      ///< a frame that has no place in the order
};

/// Both sides of the fast channel's doorbell as small steps, each with at most one access to what
/// they share, and all interleavings of three calls: each by memory or by socket, answered at once
/// or late; the service may stop and begin polling whenever the order lets it, drop the memory, and
/// be killed.
///
/// The order is this. Stores and loads are sequentially consistent.
///
///   client: bytes, waiting = n, req = n, reads polling; 0 or 2: sends look n.
///     Then it reads ans for a while. Giving up: waiting = 0, reads ans, blocks in recv.
///     A look n that comes: ans is n, or the service has given up and not taken the call, which
///     then goes by socket. Looks of other numbers are stale. `waiting` keeps its number behind an
///     answer.
///   service: reads req while polling is 1, and for a look of the number behind the last call's.
///     taken = n, handles, decides on polling, bytes, ans = n, reads waiting; less than n: look n.
///     Polling ends, or memory is dropped: polling = 0, or 2, then it reads req and serves what is
///     new. A look behind the drop is sent back; one of a number that was served is skipped.
///   end of the connection: an answer that lies there counts; else the call goes to the successor
///     when taken is not n and its frame was not sent.
class DoorbellModel {
public:
    explicit DoorbellModel(const DoorbellRules& rules) : rules_(rules) { Explore(); }

    std::size_t States() const noexcept { return seen_.size(); }

    /// How many states there are of each kind.
    const std::map<DoorbellFinding, std::size_t>& Findings() const noexcept { return findings_; }

    /// The shortest way to a finding that was met, as the steps of both sides; for reading.
    const std::string& Example() const noexcept { return example_; }

private:
    static constexpr std::uint8_t kCalls = 3;
    static constexpr std::uint8_t kAsleep = 0;
    static constexpr std::uint8_t kPolling = 1;
    static constexpr std::uint8_t kGivenUp = 2;

    enum class ClientStep : std::uint8_t {
        Start,
        WriteRequest,
        SetWaiting,
        StoreRequest,
        WriteRequestLate,
        LoadPolling,
        LoadTaken,
        SendLook,
        SendCall,
        Spin,
        StopWaiting,
        LookAgain,
        Receive,
        TakeAnswer,
        ClearWaiting,
        JudgeEnd,
        AskSuccessor,
        Finished,
    };

    enum class ServiceStep : std::uint8_t {
        Rest,  ///< asleep or polling
        ReadAgain,
        ReadBeforeStop,
        StopAtOnce,
        ReadBeforeGivingUp,
        GiveUpAtOnce,
        TakeRequest,
        Handle,
        TakeRequestLate,
        Decide,
        DecideAndRest,
        WriteAnswer,
        StoreAnswer,
        WriteAnswerLate,
        LoadWaiting,
        SendLook,
        SendAnswer,
        Dead,
    };

    /// Frames under way in one direction, four bits each, the oldest lowest; none is 0.
    using Frames = std::uint32_t;
    static constexpr unsigned kFrameBits = 4;
    static constexpr std::uint8_t kLook = 4;
    static constexpr std::uint8_t kCallOrAnswer = 8;
    static constexpr std::uint8_t kNumberMask = 3;

    struct State {
        ClientStep client = ClientStep::Start;
        std::uint8_t number = 1;  ///< the client's current call
        bool byMemory = false;    ///< it left the request there
        bool callSent = false;    ///< its frame has left
        bool knowsGivenUp = false;
        std::uint8_t seenPolling = 0;  ///< for a client that looks too early

        ServiceStep service = ServiceStep::Rest;
        std::uint8_t last = 0;  ///< the last call's number, whichever way it went
        bool isMapped = true;
        bool answersByMemory = false;
        bool ringsAnyway = false;  ///< for a service that looks too early
        std::uint8_t late = 0;     ///< the call that is answered later
        bool served = false;       ///< the client's current call

        std::uint8_t req = 0;
        std::uint8_t waiting = 0;
        std::uint8_t requestBytes = 0;
        std::uint8_t polling = 0;
        std::uint8_t taken = 0;
        std::uint8_t ans = 0;
        std::uint8_t answerBytes = 0;

        Frames toService = 0;
        Frames toClient = 0;

        bool operator==(const State&) const = default;
    };

    struct Hash {
        std::size_t operator()(const State& state) const noexcept;
    };

    /// A step that one side may take.
    struct Move {
        State to;
        const char* name;
        bool isPrompt;  ///< false: nobody may rely on it
    };

    void Explore();
    bool Visit(const State& state);
    void Found(DoorbellFinding finding);

    bool Has(DoorbellFault fault) const noexcept { return rules_.fault == fault; }
    void Go(const State& to, const char* name, bool isPrompt = true);

    void ClientMoves(const State& state);
    void Receive(const State& state);
    void JudgeEnd(const State& state);
    void EndCall(State state, const char* name);

    void ServiceMoves(const State& state);
    void RestMoves(const State& state);
    void ReadFrame(const State& state);
    void HandleMoves(const State& state);
    void DecideMoves(const State& state);
    void AnswerMoves(const State& state);
    void Serve(State state, bool byMemory, const char* name);
    void ComeToRest(State state, const char* name);
    void BeAnswered(State state, const char* name);
    bool IsNew(const State& state) const noexcept { return state.req == state.last + 1; }

    static ServiceStep FirstOfAnswer(const State& state) noexcept;
    static bool IsDead(const State& state) noexcept { return state.service == ServiceStep::Dead; }
    void Push(Frames& frames, std::uint8_t kind, std::uint8_t number);

    DoorbellRules rules_;
    std::vector<Move> moves_;        ///< of the state that is being expanded
    std::vector<const char*> path_;  ///< to it
    std::unordered_map<State, std::uint8_t, Hash> seen_;
    std::map<DoorbellFinding, std::size_t> findings_;
    std::string example_;
    std::size_t exampleSteps_ = 0;
};

}  // namespace zam_platform::testing
