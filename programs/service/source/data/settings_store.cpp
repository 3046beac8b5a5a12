#include "data/settings_store.h"

#include <exception>
#include <new>
#include <optional>

#include "common/log.h"
#include "data/settings_json.h"
#include "lanes.h"
#include "result_codes.h"

namespace zam_service {
namespace {

using zam_connector::ZamConnectorSettings;

constexpr char kSourceFile[] = "settings_store";

int WriteFile(const FolderFiles& files, const ZamConnectorSettings& settings) {
    try {
        files.Write(kSettingsFile, WriteSettings(settings));
        return kNoError;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& exception) {
        zam_connector::common::Log(zor::logger::kLevelError,
                                   zam_connector::common::Here(kSourceFile, "Set"),
                                   "{}: the settings before stay in force", exception.what());
        return kMediaError;
    }
}

}  // namespace

SettingsStore::SettingsStore(asio::io_context& loop, zam_platform::WorkerPool& workers,
                             const FolderFiles& files)
    : loop_(loop), workers_(workers), files_(files) {}

void SettingsStore::Set(uid_t user, const ZamConnectorSettings& settings, const Done& done) {
    const bool posted = workers_.PostTo(
        loop_, kSettingsLane, user, [this, settings] { return WriteFile(files_, settings); },
        [this, settings, done](std::optional<int> code) {
            if (code == kNoError) {
                current_ = settings;
            }
            done(code.value_or(kInsufficientResources));
        });
    if (!posted) {
        done(kInsufficientResources);
    }
}

}  // namespace zam_service
