#pragma once

#include <memory>

#include "data_handler/i_data_processor.h"
#include "data_handler/i_zam_conn_state_manager.h"

namespace zam_connector::proxy {

/// Has the manager's observers told of a state of the connection. Used by one thread at a time.
class ZamConnStateProcessor final : public IDataProcessor<int> {
public:
    explicit ZamConnStateProcessor(std::weak_ptr<IZamConnStateManager> manager) noexcept;

    /// 0x8000004B when nobody owns the manager any more, and for a number that is no known state.
    /// The manager lives until it has told its observers.
    int ProcessData(int value) override;

private:
    const std::weak_ptr<IZamConnStateManager> manager_;
};

class ZamConnStateProcessorFactory final : public IDataProcessorFactory<int, IZamConnStateManager> {
public:
    std::unique_ptr<IDataProcessor<int>> CreateDataProcessor(
        std::weak_ptr<IZamConnStateManager> manager) override;
};

}  // namespace zam_connector::proxy
