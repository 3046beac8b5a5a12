#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "zam_connector/zam_connector.h"

/// What the three interfaces of connection control do, whatever stands behind them. A source file
/// that includes this header names a harness with
///
///     INSTANTIATE_TEST_SUITE_P(Name, ConnectionControlBehaviours, ::testing::Values(factory));
///
/// inside namespace `zam_connector::test`; once in an executable.
namespace zam_connector::test {

enum class ConnectionControlOperation {
    Start,
    Stop,
    GetState,
    Set,
    Get,
    PostZamEvent,
    ScheduleSync,
};

/// The three interfaces with the peer that answers them. Each test has a peer of its own, which
/// answers everything with 0 until it is told otherwise.
class ConnectionControlHarness {
public:
    ConnectionControlHarness() = default;
    ConnectionControlHarness(const ConnectionControlHarness&) = delete;
    ConnectionControlHarness& operator=(const ConnectionControlHarness&) = delete;
    virtual ~ConnectionControlHarness() = default;

    virtual IZamConnController& Controller() = 0;
    virtual IZamConnSettingsHolder& SettingsHolder() = 0;
    virtual IZamConnCommandSender& CommandSender() = 0;

    /// From now on the peer does what it is asked and fills in its outputs, but answers this
    /// operation with this code.
    virtual void AnswerWith(ConnectionControlOperation operation, int resultCode) = 0;

    /// The states that the peer can be brought to report.
    virtual std::vector<ZamConnectorState> States() const = 0;

    /// Returns when the peer reports this state, and goes on reporting it.
    virtual void ServeState(ZamConnectorState state) = 0;

    // What has reached the peer. An operation that has returned has reached it.
    virtual std::optional<ZamConnectionParameters> LastStart() = 0;
    virtual int Starts() = 0;
    virtual int Stops() = 0;
    virtual std::vector<std::string> Events() = 0;
    virtual int Synchronisations() = 0;
};

using ConnectionControlHarnessFactory = std::unique_ptr<ConnectionControlHarness> (*)();

class ConnectionControlBehaviours
    : public ::testing::TestWithParam<ConnectionControlHarnessFactory> {
protected:
    static constexpr int kUnspecified = kUnspecifiedError;

    IZamConnController& Controller() { return harness_->Controller(); }
    IZamConnSettingsHolder& SettingsHolder() { return harness_->SettingsHolder(); }
    IZamConnCommandSender& CommandSender() { return harness_->CommandSender(); }

    /// Calls an operation with plain arguments.
    int Call(ConnectionControlOperation operation) {
        ZamConnectorState state{};
        ZamConnectorSettings settings;
        switch (operation) {
            case ConnectionControlOperation::Start:
                return Controller().Start(PlainParameters());
            case ConnectionControlOperation::Stop:
                return Controller().Stop();
            case ConnectionControlOperation::GetState:
                return Controller().GetState(state);
            case ConnectionControlOperation::Set:
                return SettingsHolder().Set(settings);
            case ConnectionControlOperation::Get:
                return SettingsHolder().Get(settings);
            case ConnectionControlOperation::PostZamEvent:
                return CommandSender().PostZamEvent("event");
            case ConnectionControlOperation::ScheduleSync:
                return CommandSender().ScheduleSync();
        }
        return 0;
    }

    /// Parameters that a service has no reason to refuse.
    static ZamConnectionParameters PlainParameters() {
        ZamConnectionParameters parameters;
        parameters.serverAddress = "server.example";
        parameters.serverPort = 13000;
        parameters.productName = "product";
        parameters.deviceName = "Ger\xC3\xA4t 1";
        parameters.proxyUrl = "http://proxy.example:3128";
        parameters.connectTimeout = std::chrono::milliseconds(1500);
        parameters.requestTimeout = std::chrono::milliseconds(30000);
        parameters.keepAlivePeriod = std::chrono::milliseconds(4294967295);
        return parameters;
    }

    std::unique_ptr<ConnectionControlHarness> harness_ = GetParam()();
};

inline void ExpectSameParameters(const ZamConnectionParameters& left,
                                 const ZamConnectionParameters& right) {
    EXPECT_EQ(left.serverAddress, right.serverAddress);
    EXPECT_EQ(left.serverPort, right.serverPort);
    EXPECT_EQ(left.productName, right.productName);
    EXPECT_EQ(left.deviceName, right.deviceName);
    EXPECT_EQ(left.proxyUrl, right.proxyUrl);
    EXPECT_EQ(left.connectTimeout, right.connectTimeout);
    EXPECT_EQ(left.requestTimeout, right.requestTimeout);
    EXPECT_EQ(left.keepAlivePeriod, right.keepAlivePeriod);
}

TEST_P(ConnectionControlBehaviours, StartHandsOverItsParameters) {
    EXPECT_EQ(Controller().Start(PlainParameters()), 0);
    ASSERT_TRUE(harness_->LastStart().has_value());
    ExpectSameParameters(*harness_->LastStart(), PlainParameters());
    EXPECT_EQ(harness_->Starts(), 1);
}

TEST_P(ConnectionControlBehaviours, StartHandsOverTextsThatFillTheMessage) {
    ZamConnectionParameters parameters = PlainParameters();
    const std::size_t others = parameters.serverAddress.size() + parameters.productName.size() +
                               parameters.proxyUrl.size();
    parameters.deviceName = std::string(1360 - others, 'd');
    EXPECT_EQ(Controller().Start(parameters), 0);
    ASSERT_TRUE(harness_->LastStart().has_value());
    ExpectSameParameters(*harness_->LastStart(), parameters);

    parameters.deviceName += 'd';
    EXPECT_EQ(Controller().Start(parameters), kUnspecified);
    EXPECT_EQ(harness_->Starts(), 1) << "a message that is too long was sent";
}

TEST_P(ConnectionControlBehaviours, StartRefusesDurationsThatTheMessageCannotHold) {
    for (const auto duration :
         {std::chrono::milliseconds(-1), std::chrono::milliseconds(4294967296)}) {
        ZamConnectionParameters parameters = PlainParameters();
        parameters.connectTimeout = duration;
        EXPECT_EQ(Controller().Start(parameters), kUnspecified);
    }
    EXPECT_EQ(harness_->Starts(), 0);
}

TEST_P(ConnectionControlBehaviours, StopReachesThePeer) {
    EXPECT_EQ(Controller().Start(PlainParameters()), 0);
    EXPECT_EQ(Controller().Stop(), 0);
    EXPECT_EQ(harness_->Stops(), 1);
}

TEST_P(ConnectionControlBehaviours, GetStateTellsThePeersState) {
    const auto states = harness_->States();
    ASSERT_GE(states.size(), 2U);
    for (const ZamConnectorState served : states) {
        harness_->ServeState(served);
        ZamConnectorState state = served == ZamConnectorState::Stopped ? ZamConnectorState::Refused
                                                                       : ZamConnectorState::Stopped;
        EXPECT_EQ(Controller().GetState(state), 0);
        EXPECT_EQ(state, served);
    }
}

TEST_P(ConnectionControlBehaviours, GetGivesWhatSetHasWritten) {
    ZamConnectorSettings first;
    first.syncPeriod = ZamSeconds(0);
    first.heartbeatPeriod = ZamSeconds(17);
    first.reconnectDelayMin = ZamSeconds(2);
    first.reconnectDelayMax = ZamSeconds(4000);
    first.uploadLimitBytesPerSecond = 0x1122334455667788;
    first.downloadLimitBytesPerSecond = 1;
    first.maxFileSizeBytes = 0x100000000;
    first.eventQueueLimit = 3;
    first.compressTraffic = false;
    first.allowMeteredNetwork = true;
    first.sendDiagnostics = false;
    ZamConnectorSettings second = first;
    second.syncPeriod = ZamSeconds(86400);
    second.compressTraffic = true;
    second.sendDiagnostics = true;
    for (const ZamConnectorSettings& written : {first, second, ZamConnectorSettings()}) {
        EXPECT_EQ(SettingsHolder().Set(written), 0);
        ZamConnectorSettings read;
        read.eventQueueLimit = 12345;
        EXPECT_EQ(SettingsHolder().Get(read), 0);
        EXPECT_EQ(read, written);
    }
}

TEST_P(ConnectionControlBehaviours, PostZamEventHandsOverTextsOfUpTo128Bytes) {
    const std::vector<std::string> events = {"x", "Ger\xC3\xA4t \"1\"\n{}", std::string(127, 'a'),
                                             std::string(128, 'b')};
    for (const std::string& event : events) {
        EXPECT_EQ(CommandSender().PostZamEvent(event), 0) << event;
    }
    EXPECT_EQ(harness_->Events(), events);
}

TEST_P(ConnectionControlBehaviours, PostZamEventRefusesTextsOfMoreThan128Bytes) {
    EXPECT_EQ(CommandSender().PostZamEvent(std::string(129, 'c')), kUnspecified);
    EXPECT_EQ(CommandSender().PostZamEvent(std::string(100000, 'c')), kUnspecified);
    EXPECT_THAT(harness_->Events(), ::testing::IsEmpty());
}

TEST_P(ConnectionControlBehaviours, ScheduleSyncReachesThePeer) {
    EXPECT_EQ(harness_->Synchronisations(), 0);
    EXPECT_EQ(CommandSender().ScheduleSync(), 0);
    EXPECT_EQ(harness_->Synchronisations(), 1);
}

TEST_P(ConnectionControlBehaviours, EveryOperationReturnsThePeersCodeAsItStands) {
    for (const auto operation :
         {ConnectionControlOperation::Start, ConnectionControlOperation::Stop,
          ConnectionControlOperation::GetState, ConnectionControlOperation::Set,
          ConnectionControlOperation::Get, ConnectionControlOperation::PostZamEvent,
          ConnectionControlOperation::ScheduleSync}) {
        SCOPED_TRACE(static_cast<int>(operation));
        // 1, "Access denied", "Network error", and a number that is no known code.
        for (const int code : {1, -2147483579, -2147417834, 0x12345678, 0}) {
            harness_->AnswerWith(operation, code);
            EXPECT_EQ(Call(operation), code);
        }
    }
}

TEST_P(ConnectionControlBehaviours, GettersStoreWhatComesWithAFailure) {
    ZamConnectorSettings written;
    written.eventQueueLimit = 4711;
    EXPECT_EQ(SettingsHolder().Set(written), 0);
    harness_->AnswerWith(ConnectionControlOperation::Get, -2147483579);
    ZamConnectorSettings read;
    EXPECT_EQ(SettingsHolder().Get(read), -2147483579);
    EXPECT_EQ(read, written);

    const ZamConnectorState served = harness_->States().front();
    harness_->ServeState(served);
    harness_->AnswerWith(ConnectionControlOperation::GetState, -2147483579);
    ZamConnectorState state = served == ZamConnectorState::Stopped ? ZamConnectorState::Refused
                                                                   : ZamConnectorState::Stopped;
    EXPECT_EQ(Controller().GetState(state), -2147483579);
    EXPECT_EQ(state, served);
}

TEST_P(ConnectionControlBehaviours, EveryOperationMayRunOnManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 25;
    ZamConnectorSettings written;
    written.eventQueueLimit = 4711;
    EXPECT_EQ(SettingsHolder().Set(written), 0);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                ZamConnectorSettings read;
                wrong += SettingsHolder().Get(read) == 0 && read == written ? 0 : 1;
                wrong += CommandSender().PostZamEvent("event") == 0 ? 0 : 1;
                ZamConnectorState state{};
                wrong += Controller().GetState(state) == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(harness_->Events().size(), std::size_t{kThreads * kRounds});
}

}  // namespace zam_connector::test
