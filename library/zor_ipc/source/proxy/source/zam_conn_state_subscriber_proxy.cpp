#include "zam_conn_state_subscriber_proxy.h"

#include <exception>
#include <utility>

#include "common/log.h"
#include "qel/exception.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_conn_state_subscriber_proxy";

int SubscribeThrew(const std::exception& exception) noexcept {
    *VdZorTransport_LastStatus() = 0;  // what failed is not the transport
    return common::Failure(
        common::Here(kSourceFile, "SubscribeOnStateChange"),
        "ZamConnStateSubscriberProxy: SubscribeOnStateChange threw exception - {}",
        exception.what());
}

int UnsubscribeThrew(const std::exception& exception) noexcept {
    *VdZorTransport_LastStatus() = 0;
    return common::Failure(common::Here(kSourceFile, "Unsubscribe"),
                           "ZamConnStateSubscriberProxy: Unsubscribe threw exception - {}",
                           exception.what());
}

}  // namespace

ZamConnStateSubscriberProxy::ZamConnStateSubscriberProxy(
    std::shared_ptr<IDataHandler<IZamConnStateManager>> handler)
    : handler_(std::move(handler)) {
    if (!handler_) {
        throw qel::CheckFailedException(kSourceFile, __LINE__) << "data handler ptr is null";
    }
}

ZamConnStateSubscriberProxy::~ZamConnStateSubscriberProxy() {
    try {
        if (handlerStarted_) {
            handler_->Stop();
        }
    } catch (const std::exception& exception) {
        common::Log(zor::logger::kLevelError,
                    common::Here(kSourceFile, "~ZamConnStateSubscriberProxy"),
                    "ZamConnStateSubscriberProxy: Stop threw exception: {}", exception.what());
    }
}

int ZamConnStateSubscriberProxy::SubscribeOnStateChange(
    std::weak_ptr<IZamConnStateObserver> observer, SubscriptionCookie& cookie) noexcept {
    *VdZorTransport_LastStatus() = 0;  // of an earlier operation
    try {
        cookie = observers_.Add(std::move(observer));
        return PassGate(Task::Start);
    } catch (const std::exception& exception) {
        return SubscribeThrew(exception);
    }
}

int ZamConnStateSubscriberProxy::Unsubscribe(const SubscriptionCookie& cookie) noexcept {
    *VdZorTransport_LastStatus() = 0;
    try {
        observers_.Remove(cookie);
        return PassGate(Task::Stop);
    } catch (const std::exception& exception) {
        return UnsubscribeThrew(exception);
    }
}

int ZamConnStateSubscriberProxy::PassGate(Task task) {
    return taskGate_.Pass(
        task, [this](Task own) { return Run(own); },
        [this](Task left) {
            try {
                Run(left);
            } catch (const std::exception& exception) {
                left == Task::Start ? SubscribeThrew(exception) : UnsubscribeThrew(exception);
            }
        });
}

int ZamConnStateSubscriberProxy::Run(Task task) {
    return task == Task::Start ? Start() : StopWithoutObservers();
}

int ZamConnStateSubscriberProxy::Start() {
    if (handlerStarted_) {
        return qel::kNoError;
    }
    handlerStarted_ = true;  // before the start, and also when that fails
    return handler_->Start(weak_from_this());
}

int ZamConnStateSubscriberProxy::StopWithoutObservers() {
    if (handlerStarted_ && observers_.IsEmpty()) {
        handlerStarted_ = false;
        handler_->Stop();
    }
    return qel::kNoError;
}

void ZamConnStateSubscriberProxy::SetZamConnectorState(ZamConnectorState state) {
    observers_.Notify(state);
}

void ZamConnStateSubscriberProxy::KeepForThreads(const std::shared_ptr<const void>& object) {
    handler_->KeepForThreads(object);
}

}  // namespace zam_connector::proxy
