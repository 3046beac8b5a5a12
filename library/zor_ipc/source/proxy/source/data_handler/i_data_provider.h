#pragma once

namespace zam_connector::proxy {

/// Where a pipeline's notices come from. Operations return a result code: 0 for success, negative
/// for a failure.
template <typename T>
class IDataProvider {
public:
    virtual ~IDataProvider() = default;

    /// From now on the service keeps notices for this provider.
    virtual int Register() = 0;

    /// Blocks until there is a notice or the registration ends. 0: `value` is a notice; positive:
    /// there is nothing to hand on.
    virtual int GetData(T& value) = 0;

    /// Ends the registration, and with it a `GetData` that blocks in another thread.
    virtual int Unregister() = 0;
};

}  // namespace zam_connector::proxy
