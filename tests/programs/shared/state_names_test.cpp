#include "vocabulary/state_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zam_vocabulary {
namespace {

using ::testing::ElementsAre;
using zam_connector::ZamConnectorState;

TEST(StateNames, AreThoseOfTheDocuments) {
    EXPECT_EQ(StateName(ZamConnectorState::Stopped), "stopped");
    EXPECT_EQ(StateName(ZamConnectorState::Connecting), "connecting");
    EXPECT_EQ(StateName(ZamConnectorState::Connected), "connected");
    EXPECT_EQ(StateName(ZamConnectorState::WaitingForReconnect), "waiting_for_reconnect");
    EXPECT_EQ(StateName(ZamConnectorState::Stopping), "stopping");
    EXPECT_EQ(StateName(ZamConnectorState::Refused), "refused");
    EXPECT_THAT(StateNames(), ElementsAre("stopped", "connecting", "connected",
                                          "waiting_for_reconnect", "stopping", "refused"));
}

TEST(StateNames, AreReadBackForEveryState) {
    for (int number = 0; number <= 5; ++number) {
        const auto state = static_cast<ZamConnectorState>(number);
        EXPECT_EQ(StateOfName(StateName(state)), state);
    }
    for (const char* const none : {"", "Connected", "connected ", "5"}) {
        EXPECT_EQ(StateOfName(none), std::nullopt) << none;
    }
}

TEST(StateNames, AreTheNumbersOfStatesThatNobodyKnows) {
    EXPECT_EQ(StateName(static_cast<ZamConnectorState>(77)), "77");
}

}  // namespace
}  // namespace zam_vocabulary
