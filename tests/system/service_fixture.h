#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "support/eventually.h"
#include "support/real_connection.h"
#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/service_process.h"

namespace zam_connector::test {

using zam_test::Eventually;
using zam_test::kBound;

/// A service in a process of its own, which this process's clients are pointed at, and a recording
/// root logger. The service is started by the test.
class ServiceTest : public ::testing::Test {
protected:
    explicit ServiceTest(const std::string& program = ZAM_CONNECTORD) : service_(program) {
        ::setenv("ZAM_RUNTIME_DIR", service_.RuntimeDirectory().c_str(), 1);
    }

    /// Starts the service, and connects when there is no connection yet.
    void StartService() {
        service_.Start();
        if (connection_ == nullptr) {
            connection_ = std::make_unique<RealConnection>();
        }
    }

    IZamConnController& Controller() { return connection_->Controller(); }
    IZamConnSettingsHolder& SettingsHolder() { return connection_->SettingsHolder(); }
    IZamConnCommandSender& CommandSender() { return connection_->CommandSender(); }

    ZamConnectorState State() {
        ZamConnectorState state{};
        EXPECT_EQ(Controller().GetState(state), 0);
        return state;
    }

    static ZamConnectionParameters Parameters() {
        ZamConnectionParameters parameters;
        parameters.serverAddress = "server.example";
        parameters.serverPort = 13000;
        return parameters;
    }

    testing::RecordingLogger logger_;
    testing::ServiceProcess service_;
    std::unique_ptr<RealConnection> connection_;
};

}  // namespace zam_connector::test
