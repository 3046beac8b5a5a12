#include "zam_connector_testing/in_process_service.h"

#include <optional>
#include <thread>

#include "daemon/connector_daemon.h"
#include "zam_connector_testing/service_folders.h"

namespace zam_connector::testing {

struct InProcessService::Parts {
    ServiceFolders folders;
    std::optional<zam_service::ConnectorDaemon> daemon;
    std::thread loop;  ///< runs the daemon while there is one
};

InProcessService::InProcessService() : parts_(std::make_unique<Parts>()) {}

InProcessService::~InProcessService() {
    Stop();
}

void InProcessService::Start() {
    if (IsRunning()) {
        return;
    }
    parts_->daemon.emplace(zam_service::DaemonConfig{.dataFolder = DataDirectory(),
                                                     .runtimeDirectory = RuntimeDirectory(),
                                                     .group = std::nullopt});
    try {
        parts_->loop = std::thread([daemon = &*parts_->daemon] { daemon->Run(); });
    } catch (...) {
        parts_->daemon.reset();
        throw;
    }
}

void InProcessService::Stop() {
    if (IsRunning()) {
        parts_->daemon->Stop();
        parts_->loop.join();
        parts_->daemon.reset();
    }
}

void InProcessService::Restart() {
    Stop();
    Start();
}

bool InProcessService::IsRunning() const noexcept {
    return parts_->daemon.has_value();
}

const std::string& InProcessService::RuntimeDirectory() const noexcept {
    return parts_->folders.RuntimeDirectory();
}

const std::string& InProcessService::DataDirectory() const noexcept {
    return parts_->folders.DataDirectory();
}

void InProcessService::WriteData(const std::string& name, const std::string& content) const {
    parts_->folders.WriteData(name, content);
}

std::string InProcessService::ReadData(const std::string& name) const {
    return parts_->folders.ReadData(name);
}

}  // namespace zam_connector::testing
