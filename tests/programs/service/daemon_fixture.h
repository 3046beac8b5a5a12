#pragma once

#include <gtest/gtest.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "daemon/connector_daemon.h"
#include "qx/conn_command_sender.h"
#include "qx/conn_controller.h"
#include "qx/conn_settings_holder.h"
#include "support/temporary_folder.h"
#include "vd/zor_transport.h"
#include "zam_connector/zam_connection_parameters.h"
#include "zam_connector/zam_connector_settings.h"
#include "zam_connector/zam_connector_state.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service::testing {

inline constexpr int kUnansweredCode = 0x7FFFFFFF;  ///< no service answers this

/// A transport status and a result code.
struct Outcome {
    int status = -1;
    int code = kUnansweredCode;
};

bool operator==(const Outcome& left, const Outcome& right);
std::ostream& operator<<(std::ostream& out, const Outcome& outcome);

constexpr Outcome Code(int code) {
    return {0, code};
}

constexpr Outcome Status(int status) {
    return {status, kUnansweredCode};
}

/// A client of the three endpoints, by their stubs. A request that a test fills itself may be one
/// that no proxy makes.
class Client {
public:
    Client();

    Outcome Start(const zam_connector::ZamConnectionParameters& parameters);
    Outcome Start(qx_zam_connector_ConnController_Start_req& request, vd_arena* arena);
    Outcome Stop();
    Outcome GetState(std::optional<zam_connector::ZamConnectorState>& state);
    Outcome GetState();

    Outcome Set(const zam_connector::ZamConnectorSettings& settings);

    /// The test fails when there is no answer, or one with an error.
    zam_connector::ZamConnectorSettings Get();

    Outcome Post(const std::string& text);
    Outcome Post(qx_zam_connector_ConnCommandSender_PostZamEvent_req& request, vd_arena* arena);
    Outcome ScheduleSync();

private:
    VdZorTransport transport_{};
    qx_zam_connector_ConnController_proxy controller_{};
    qx_zam_connector_ConnSettingsHolder_proxy settings_{};
    qx_zam_connector_ConnCommandSender_proxy sender_{};
};

zam_connector::ZamConnectionParameters Parameters();

/// A daemon on a thread of its own, over a data folder and a runtime directory of its own.
class DaemonFixture : public ::testing::Test {
protected:
    DaemonFixture();
    ~DaemonFixture() override;

    void Begin();
    void End();

    /// Begins with a plan that takes no time.
    void BeginFast();
    void BeginWithFault(const std::string& rule);

    /// All messages of the log so far, each in a line.
    std::string Logged() const;
    bool HasLogged(const std::string& part) const;

    /// The members of the history's lines: "kind" alone, or "kind member".
    std::vector<std::string> History(const std::string& member = {}) const;

    zam_connector::testing::RecordingLogger logger_;
    zam_test::TemporaryFolder data_;
    zam_test::TemporaryFolder runtime_;
    std::optional<ConnectorDaemon> daemon_;
    std::thread thread_;
};

}  // namespace zam_service::testing
