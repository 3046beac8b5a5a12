#pragma once

#include <memory>

namespace zam_connector::proxy {

/// What a pipeline does with a notice.
template <typename T>
class IDataProcessor {
public:
    virtual ~IDataProcessor() = default;

    /// Runs on the handler thread. Returns a result code; throws what an observer throws.
    virtual int ProcessData(T value) = 0;
};

template <typename T, typename Manager>
class IDataProcessorFactory {
public:
    virtual ~IDataProcessorFactory() = default;

    /// A processor that reaches the observers through `manager`.
    virtual std::unique_ptr<IDataProcessor<T>> CreateDataProcessor(
        std::weak_ptr<Manager> manager) = 0;
};

}  // namespace zam_connector::proxy
