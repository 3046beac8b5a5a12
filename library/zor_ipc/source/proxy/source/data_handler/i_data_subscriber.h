#pragma once

#include <memory>

namespace zam_connector::proxy {

/// The first half of a pipeline: feeds notices into a queue. Operations return a result code.
template <typename T, template <typename> class Queue>
class IDataSubscriber {
public:
    virtual ~IDataSubscriber() = default;

    /// Shares `queue`, and with it whatever lives and dies with that, until an `Unsubscribe` has
    /// succeeded. 0x80000067 when it is subscribed already.
    virtual int Subscribe(std::shared_ptr<Queue<T>> queue) = 0;

    /// 0x80000067 when it is not subscribed.
    virtual int Unsubscribe() = 0;
};

}  // namespace zam_connector::proxy
