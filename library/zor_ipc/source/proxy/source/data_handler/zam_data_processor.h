#pragma once

#include <memory>

#include "data_handler/i_data_processor.h"
#include "data_handler/i_zam_data_manager.h"
#include "zam_connector/i_zam_data_provider.h"

namespace zam_connector::proxy {

/// Fetches the data of a kind that changed and has the manager's observers told. Used by one
/// thread at a time.
class ZamDataProcessor final : public IDataProcessor<unsigned int> {
public:
    /// Throws `qel::CheckFailedException` when there is no data provider.
    ZamDataProcessor(std::weak_ptr<IZamDataManager> manager,
                     std::shared_ptr<IZamDataProvider> dataProvider);

    /// Returns the provider's code when the data could not be fetched, 0x8000004B when nobody owns
    /// the manager any more. The manager lives until it has told its observers.
    int ProcessData(unsigned int kind) override;

private:
    const std::weak_ptr<IZamDataManager> manager_;
    const std::shared_ptr<IZamDataProvider> dataProvider_;
};

class ZamDataProcessorFactory final : public IDataProcessorFactory<unsigned int, IZamDataManager> {
public:
    /// Throws `qel::CheckFailedException` when there is no data provider.
    explicit ZamDataProcessorFactory(std::shared_ptr<IZamDataProvider> dataProvider);

    std::unique_ptr<IDataProcessor<unsigned int>> CreateDataProcessor(
        std::weak_ptr<IZamDataManager> manager) override;

private:
    const std::shared_ptr<IZamDataProvider> dataProvider_;
};

}  // namespace zam_connector::proxy
