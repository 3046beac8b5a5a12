#pragma once

namespace qor::observer {

/// An object of the application that is told of changes. `docs/notification.md` is the contract:
/// on which thread it is called, and what it may do there.
template <typename T, typename Result>
class IChangeObserver {
public:
    virtual ~IChangeObserver() = default;

    /// `value` is there for the length of the call. What is returned is not looked at. A call that
    /// throws ends the notifications of its pipeline until that is stopped and started again.
    virtual Result OnChange(const T& value) = 0;
};

}  // namespace qor::observer
