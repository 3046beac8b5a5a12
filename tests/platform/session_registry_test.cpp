#include "zam_platform/server/session_registry.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace zam_platform::testing {
namespace {

using std::chrono::milliseconds;

ClientIdentity ClientOf(unsigned char tokenByte, uid_t user = 1000) {
    ClientIdentity client;
    client.token.fill(tokenByte);
    client.user = user;
    return client;
}

class SessionRegistryTest : public ::testing::Test {
protected:
    void Observe(SessionRegistry& registry) {
        registry.OnEnd([this](const SessionToken& token) { ended_.push_back(token); });
    }

    asio::io_context context_;
    std::vector<SessionToken> ended_;
};

TEST_F(SessionRegistryTest, CountsSessionsAndTheirConnections) {
    SessionRegistry registry(context_, milliseconds(0));
    Observe(registry);
    EXPECT_EQ(registry.Attach(ClientOf(1)), Attachment::Done);
    EXPECT_EQ(registry.Attach(ClientOf(1)), Attachment::Done);
    EXPECT_EQ(registry.Attach(ClientOf(2)), Attachment::Done);
    EXPECT_EQ(registry.Count(), 2U);

    registry.Detach(ClientOf(1).token);
    context_.run();
    EXPECT_EQ(registry.Count(), 2U) << "one connection is left";
    EXPECT_TRUE(ended_.empty());

    registry.Detach(ClientOf(1).token);
    context_.restart();
    context_.run();
    EXPECT_EQ(registry.Count(), 1U);
    EXPECT_EQ(ended_, std::vector{ClientOf(1).token});
}

TEST_F(SessionRegistryTest, KeepsASessionForItsGrace) {
    SessionRegistry registry(context_, milliseconds(30));
    Observe(registry);
    registry.Attach(ClientOf(1));
    const auto start = std::chrono::steady_clock::now();
    registry.Detach(ClientOf(1).token);
    EXPECT_EQ(registry.Count(), 1U);
    context_.run();
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
    EXPECT_EQ(registry.Count(), 0U);
    EXPECT_EQ(ended_.size(), 1U);
}

TEST_F(SessionRegistryTest, GoesOnWithAClientThatComesBackInTime) {
    SessionRegistry registry(context_, milliseconds(1));
    Observe(registry);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(registry.Attach(ClientOf(1)), Attachment::Done);
        registry.Detach(ClientOf(1).token);
    }
    EXPECT_EQ(registry.Attach(ClientOf(1)), Attachment::Done);
    context_.run();
    EXPECT_EQ(registry.Count(), 1U);
    EXPECT_TRUE(ended_.empty());
}

TEST_F(SessionRegistryTest, RefusesATokenOfAnotherUserForAsLongAsTheSessionLasts) {
    SessionRegistry registry(context_, milliseconds(1));
    EXPECT_EQ(registry.Attach(ClientOf(1, 1000)), Attachment::Done);
    EXPECT_EQ(registry.Attach(ClientOf(1, 1001)), Attachment::Foreign);
    EXPECT_EQ(registry.Attach(ClientOf(1, 0)), Attachment::Foreign);
    registry.Detach(ClientOf(1).token);
    EXPECT_EQ(registry.Attach(ClientOf(1, 1001)), Attachment::Foreign) << "within the grace";
    context_.run();
    EXPECT_EQ(registry.Count(), 0U);
    EXPECT_EQ(registry.Attach(ClientOf(1, 1001)), Attachment::Done) << "then it is a new one";
}

TEST_F(SessionRegistryTest, RefusesAUserMoreSessionsThanAllowedAndNobodyElse) {
    SessionRegistry registry(context_, milliseconds(1), 2);
    EXPECT_EQ(registry.Attach(ClientOf(1)), Attachment::Done);
    EXPECT_EQ(registry.Attach(ClientOf(2)), Attachment::Done);
    registry.Detach(ClientOf(2).token);
    EXPECT_EQ(registry.Attach(ClientOf(3)), Attachment::Full) << "the grace counts";
    EXPECT_EQ(registry.Attach(ClientOf(1)), Attachment::Done) << "it is no other session";
    EXPECT_EQ(registry.Attach(ClientOf(3, 1001)), Attachment::Done);
    context_.run();
    EXPECT_EQ(registry.Attach(ClientOf(4)), Attachment::Done) << "one has ended";
}

TEST_F(SessionRegistryTest, LetsOthersRunBetweenEnds) {
    constexpr std::size_t kSessions = 20;
    SessionRegistry registry(context_, milliseconds(0));
    registry.OnEnd([this](const SessionToken& token) {
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < milliseconds(1)) {
        }
        ended_.push_back(token);
    });
    for (unsigned char number = 1; number <= kSessions; ++number) {
        registry.Attach(ClientOf(number));
        registry.Detach(ClientOf(number).token);
    }
    for (std::size_t before = 0; context_.run_one() != 0; before = ended_.size()) {
        EXPECT_LE(ended_.size(), before + 2) << "two milliseconds at a stretch";
    }
    EXPECT_EQ(ended_.size(), kSessions);
    EXPECT_EQ(registry.Count(), 0U);
}

TEST_F(SessionRegistryTest, PassesOverATokenThatItDoesNotKnow) {
    SessionRegistry registry(context_, milliseconds(0));
    registry.Detach(ClientOf(7).token);
    EXPECT_EQ(registry.Count(), 0U);
}

TEST_F(SessionRegistryTest, GivesAClientThatCameBackAtTheLastMomentAFullGraceAgain) {
    SessionRegistry registry(context_, milliseconds(20));
    Observe(registry);
    registry.Attach(ClientOf(1));
    // This handler and the end of the grace become due together, and this one runs first: what
    // ends a grace is then on its way already when the next grace begins.
    asio::steady_timer comesBack(context_, milliseconds(10));
    comesBack.async_wait([&registry](const std::error_code&) {
        registry.Attach(ClientOf(1));
        registry.Detach(ClientOf(1).token);
    });
    registry.Detach(ClientOf(1).token);
    std::this_thread::sleep_for(milliseconds(40));
    context_.run_one();
    const auto start = std::chrono::steady_clock::now();
    context_.run();
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(19));
    EXPECT_EQ(ended_.size(), 1U);
}

}  // namespace
}  // namespace zam_platform::testing
