#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "support/test_server.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_platform::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What is told of answers that are watched.
class ServerWatch : public ::testing::Test {
protected:
    /// Custom calls are answered by `answer`, watched.
    void AnswerBy(const std::function<void(Responder)>& answer) {
        server_.Endpoint().Custom([this, answer](const Request&, Responder responder) {
            responder.Watch([this](bool wasTaken) {
                const std::lock_guard lock(mutex_);
                told_.push_back(wasTaken);
            });
            answer(std::move(responder));
        });
    }

    static void AnswerAtOnce(Responder responder) {
        TestMessage message{};
        responder.Answer(message);
    }

    RawSocket Call() {
        RawSocket client = server_.Greet();
        client.Send(CallFrame(1, kCustom, 0));
        return client;
    }

    std::vector<bool> Told() {
        const std::lock_guard lock(mutex_);
        return told_;
    }

    std::vector<bool> AwaitTold() {
        Await("what became of the answer", [this] { return !Told().empty(); });
        return Told();
    }

    zam_connector::testing::RecordingLogger logger_;
    std::mutex mutex_;
    std::vector<bool> told_;  // guarded by mutex_
    TestServer server_;
};

TEST_F(ServerWatch, TellsThatAnAnswerWasTakenWhenTheNextFrameComes) {
    AnswerBy(AnswerAtOnce);
    const RawSocket client = Call();
    client.ReadFrame();
    EXPECT_THAT(Told(), IsEmpty());
    client.Send(LookupFrame("x"));
    client.ReadFrame();
    EXPECT_THAT(Told(), ElementsAre(true));
}

TEST_F(ServerWatch, TellsThatAnAnswerWasTakenWhenTheClientEndsBehindIt) {
    AnswerBy(AnswerAtOnce);
    RawSocket client = Call();
    client.ReadFrame();
    client.Close();
    EXPECT_THAT(AwaitTold(), ElementsAre(true));
}

TEST_F(ServerWatch, TellsThatAnAnswerWasLostOfWhichTheClientLeftSome) {
    AnswerBy(AnswerAtOnce);
    RawSocket client = Call();
    client.Read(kPreludeBytes);
    client.Close();
    EXPECT_THAT(AwaitTold(), ElementsAre(false));
}

TEST_F(ServerWatch, TellsThatAnAnswerWasLostWhoseClientHadGone) {
    RawSocket client = server_.Greet();
    client.Send(CallFrame(1, kHold, 0));
    server_.Endpoint().AwaitHeld(1);
    client.Close();
    Await("the connection's end", [this] { return server_.Connections() == 0; });
    server_.OnLoop([this] {
        Responder responder = server_.Endpoint().TakeHeld();
        EXPECT_FALSE(responder.IsConnected());
        responder.Watch([this](bool wasTaken) { told_.push_back(wasTaken); });
        AnswerAtOnce(std::move(responder));
        return 0;
    });
    EXPECT_THAT(Told(), ElementsAre(false));
}

TEST_F(ServerWatch, TellsThatAnAnswerIsLostThatDoesNotGoOut) {
    const std::function<void(Responder)> ways[] = {
        [](Responder responder) { responder.Fail(5); },
        [](Responder responder) { responder.Drop(); },
        [](const Responder& /*givenUp*/) {},
        [](Responder responder) {
            responder.TellLost();
            AnswerAtOnce(std::move(responder));
        },
    };
    for (const auto& way : ways) {
        AnswerBy(way);
        const RawSocket client = Call();
        EXPECT_THAT(AwaitTold(), ElementsAre(false));
        client.TrySend(LookupFrame("x"));
        const std::lock_guard lock(mutex_);
        told_.clear();
    }
}

TEST_F(ServerWatch, TellsThatAnAnswerIsLostWhenTheServerGoes) {
    AnswerBy(AnswerAtOnce);
    const RawSocket client = Call();
    client.ReadFrame();
    server_.Destroy();
    EXPECT_THAT(Told(), ElementsAre(false));
}

}  // namespace
}  // namespace zam_platform::testing
