#include "data_handler/zam_conn_state_processor.h"

#include <optional>
#include <utility>

#include "common/connection_casts.h"
#include "common/log.h"

namespace zam_connector::proxy {
namespace {

constexpr common::LogSite Site(int line = __builtin_LINE()) noexcept {
    return common::Here("zam_conn_state_processor", "ProcessData", line);
}

}  // namespace

ZamConnStateProcessor::ZamConnStateProcessor(std::weak_ptr<IZamConnStateManager> manager) noexcept
    : manager_(std::move(manager)) {}

int ZamConnStateProcessor::ProcessData(int value) {
    // Owned to the end: who drops the subscriber meanwhile waits for no observer, and its end is
    // left to this thread.
    const std::shared_ptr<IZamConnStateManager> manager = manager_.lock();
    if (!manager) {
        return common::Failure(Site(), "ZamConnStateProcessor: dataManger weak ptr is expired!");
    }
    const std::optional<ZamConnectorState> state = common::CastFromVd(value);
    if (!state) {
        return common::Failure(Site(), "ZamConnStateProcessor: undefined zam connector state!");
    }
    manager->SetZamConnectorState(*state);
    return qel::kNoError;
}

std::unique_ptr<IDataProcessor<int>> ZamConnStateProcessorFactory::CreateDataProcessor(
    std::weak_ptr<IZamConnStateManager> manager) {
    return std::make_unique<ZamConnStateProcessor>(std::move(manager));
}

}  // namespace zam_connector::proxy
