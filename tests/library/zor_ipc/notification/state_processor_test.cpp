#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include "data_handler/zam_conn_state_processor.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::proxy {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;

using test::kUnspecified;

class RecordingStateManager final : public IZamConnStateManager {
public:
    void SetZamConnectorState(ZamConnectorState state) override {
        states.push_back(state);
        if (onState) {
            onState();
        }
    }

    std::vector<ZamConnectorState> states;
    std::function<void()> onState;
};

class StateProcessor : public ::testing::Test {
protected:
    void ExpectLogged(const char* text) {
        const std::vector<LogRecord> records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 4);
        EXPECT_EQ(records[0].file, "zam_conn_state_processor");
        EXPECT_EQ(records[0].function, "ProcessData");
        EXPECT_EQ(records[0].text, text);
        logger_.Clear();
    }

    testing::RecordingLogger logger_;
    std::shared_ptr<RecordingStateManager> manager_ = std::make_shared<RecordingStateManager>();
    ZamConnStateProcessor processor_{manager_};
};

TEST_F(StateProcessor, TellsEveryState) {
    for (int number = 0; number <= 5; ++number) {
        EXPECT_EQ(processor_.ProcessData(number), 0);
    }
    EXPECT_THAT(manager_->states,
                ElementsAre(ZamConnectorState::Stopped, ZamConnectorState::Connecting,
                            ZamConnectorState::Connected, ZamConnectorState::WaitingForReconnect,
                            ZamConnectorState::Stopping, ZamConnectorState::Refused));
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(StateProcessor, TellsAStateAgain) {
    EXPECT_EQ(processor_.ProcessData(2), 0);
    EXPECT_EQ(processor_.ProcessData(2), 0);
    EXPECT_THAT(manager_->states,
                ElementsAre(ZamConnectorState::Connected, ZamConnectorState::Connected));
}

TEST_F(StateProcessor, DropsANumberThatIsNoState) {
    for (const int number : {-1, 6, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(processor_.ProcessData(number), kUnspecified);
        ExpectLogged("ZamConnStateProcessor: undefined zam connector state!");
    }
    EXPECT_THAT(manager_->states, IsEmpty());
}

TEST_F(StateProcessor, FailsWithoutAManager) {
    manager_.reset();
    for (const int number : {2, 6}) {
        EXPECT_EQ(processor_.ProcessData(number), kUnspecified);
        ExpectLogged("ZamConnStateProcessor: dataManger weak ptr is expired!");
    }
}

TEST_F(StateProcessor, HoldsTheManagerWhileItTells) {
    const std::weak_ptr<RecordingStateManager> weak = manager_;
    bool alive = false;
    manager_->onState = [&] {
        manager_.reset();
        alive = !weak.expired();
    };
    EXPECT_EQ(processor_.ProcessData(2), 0);
    EXPECT_TRUE(alive);
    EXPECT_TRUE(weak.expired());
}

TEST_F(StateProcessor, ThrowsWhatAnObserverThrows) {
    manager_->onState = [] { throw std::runtime_error("of the test"); };
    EXPECT_THROW(processor_.ProcessData(2), std::runtime_error);
}

TEST_F(StateProcessor, IsMadeByItsFactory) {
    ZamConnStateProcessorFactory factory;
    const auto first = factory.CreateDataProcessor(manager_);
    const auto second = factory.CreateDataProcessor({});
    EXPECT_EQ(first->ProcessData(1), 0);
    EXPECT_THAT(manager_->states, ElementsAre(ZamConnectorState::Connecting));
    EXPECT_EQ(second->ProcessData(1), kUnspecified);
    EXPECT_EQ(manager_.use_count(), 1);
}

}  // namespace
}  // namespace zam_connector::proxy
