#include <map>
#include <mutex>
#include <utility>

#include "common/connection_casts.h"
#include "library/zor_ipc/call_frame/connection_control_behaviours.h"
#include "library/zor_ipc/call_frame/proxy_fixture.h"

namespace zam_connector::test {
namespace {

using testing::RecordedCall;
using testing::ScriptedAnswer;

/// A connector service in a few lines, behind a scripted transport.
class ScriptedService final : public ConnectionControlHarness {
public:
    ScriptedService() {
        transport_.SetResponder(
            [this](const RecordedCall& call) { return std::optional(Answer(call)); });
    }
    ~ScriptedService() override { EXPECT_THAT(transport_.Faults(), ::testing::IsEmpty()); }

    IZamConnController& Controller() override { return controller_; }
    IZamConnSettingsHolder& SettingsHolder() override { return settingsHolder_; }
    IZamConnCommandSender& CommandSender() override { return commandSender_; }

    void AnswerWith(ConnectionControlOperation operation, int resultCode) override {
        const std::lock_guard lock(mutex_);
        codes_[operation] = resultCode;
    }

    std::vector<ZamConnectorState> States() const override {
        return {ZamConnectorState::Connecting,
                ZamConnectorState::Connected,
                ZamConnectorState::WaitingForReconnect,
                ZamConnectorState::Stopping,
                ZamConnectorState::Refused,
                ZamConnectorState::Stopped};
    }
    void ServeState(ZamConnectorState state) override {
        const std::lock_guard lock(mutex_);
        state_ = common::CastToVd(state);
    }

    std::optional<ZamConnectionParameters> LastStart() override {
        const std::lock_guard lock(mutex_);
        return lastStart_;
    }
    int Starts() override {
        const std::lock_guard lock(mutex_);
        return starts_;
    }
    int Stops() override {
        const std::lock_guard lock(mutex_);
        return stops_;
    }
    std::vector<std::string> Events() override {
        const std::lock_guard lock(mutex_);
        return events_;
    }
    int Synchronisations() override {
        const std::lock_guard lock(mutex_);
        return synchronisations_;
    }

private:
    using Operation = ConnectionControlOperation;

    ScriptedAnswer Answer(const RecordedCall& call) {
        static const std::map<std::pair<std::uint16_t, std::uint16_t>, Operation> kOperations = {
            {{kControllerRiid, 0}, Operation::Start},
            {{kControllerRiid, 1}, Operation::Stop},
            {{kControllerRiid, 2}, Operation::GetState},
            {{kSettingsHolderRiid, 0}, Operation::Set},
            {{kSettingsHolderRiid, 1}, Operation::Get},
            {{kCommandSenderRiid, 0}, Operation::PostZamEvent},
            {{kCommandSenderRiid, 1}, Operation::ScheduleSync},
        };
        const std::lock_guard lock(mutex_);
        const Operation operation =
            kOperations.at({call.requestHeader.riid, call.requestHeader.operation});
        const int code = codes_[operation];
        if (operation == Operation::GetState) {
            qx_zam_connector_ConnController_GetState_rsp response{};
            response.state = state_;
            response.resultCode = code;
            return testing::AnswerWith(response);
        }
        if (operation == Operation::Get) {
            qx_zam_connector_ConnSettingsHolder_Get_rsp response{};
            response.settings = settings_;
            response.resultCode = code;
            return testing::AnswerWith(response);
        }
        Take(operation, call);
        qx::ResultResponse response{};
        response.resultCode = code;
        return testing::AnswerWith(response);
    }

    /// Does the work of an operation without outputs.
    void Take(Operation operation, const RecordedCall& call) {
        testing::Bytes bytes = call.requestArena;
        vd_arena arena{};
        vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        arena.used = arena.capacity;
        if (operation == Operation::Start) {
            ++starts_;
            lastStart_ = common::CastFromVd(
                call.As<qx_zam_connector_ConnController_Start_req>().value().parameters, &arena);
        } else if (operation == Operation::Stop) {
            ++stops_;
        } else if (operation == Operation::Set) {
            settings_ = call.As<qx_zam_connector_ConnSettingsHolder_Set_req>().value().settings;
        } else if (operation == Operation::PostZamEvent) {
            events_.push_back(common::CastFromVd(
                call.As<qx_zam_connector_ConnCommandSender_PostZamEvent_req>().value().event,
                &arena));
        } else {
            ++synchronisations_;
        }
    }

    std::mutex mutex_;
    std::map<Operation, int> codes_;
    std::int32_t state_ = 0;
    qx_zam_connector_ZamTypes_ZamConnectorSettings settings_{};
    std::optional<ZamConnectionParameters> lastStart_;
    int starts_ = 0;
    int stops_ = 0;
    std::vector<std::string> events_;
    int synchronisations_ = 0;

    testing::RecordingLogger logger_;
    testing::ScriptedTransport transport_;
    proxy::ZamConnControllerProxy controller_{ControllerRecord(transport_.Get())};
    proxy::ZamConnSettingsHolderProxy settingsHolder_{SettingsHolderRecord(transport_.Get())};
    proxy::ZamConnCommandSenderProxy commandSender_{CommandSenderRecord(transport_.Get())};
};

std::unique_ptr<ConnectionControlHarness> MakeScriptedService() {
    return std::make_unique<ScriptedService>();
}

INSTANTIATE_TEST_SUITE_P(OverAScriptedTransport, ConnectionControlBehaviours,
                         ::testing::Values(&MakeScriptedService));

}  // namespace
}  // namespace zam_connector::test
