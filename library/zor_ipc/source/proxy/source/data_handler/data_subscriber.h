#pragma once

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <thread>
#include <utility>

#include "call_canceller.h"
#include "call_scope.h"
#include "common/log.h"
#include "data_handler/i_data_provider.h"
#include "data_handler/i_data_subscriber.h"
#include "qel/exception.h"
#include "qor/utils/cancellation_token.h"
#include "qor/utils/worker_thread.h"

namespace zam_connector::proxy {

/// Feeds what a provider gives into a queue, on a thread of its own. One thread at a time may call.
template <typename T, template <typename> class Queue>
class DataSubscriber final : public IDataSubscriber<T, Queue> {
public:
    /// `threadName`, at most 15 bytes, must have static storage. Throws
    /// `qel::CheckFailedException` when there is no provider.
    explicit DataSubscriber(std::unique_ptr<IDataProvider<T>> provider,
                            const char* threadName = "zam_subscriber")
        : provider_(std::move(provider)), threadName_(threadName) {
        if (!provider_) {
            throw qel::CheckFailedException(kSourceFile, 23);
        }
    }

    /// Unsubscribes. When the provider refuses that, its thread may be blocked in it for ever, and
    /// the process ends.
    ~DataSubscriber() override {
        try {
            if (subscribed_) {
                Unsubscribe();
            }
        } catch (...) {
            common::Log(zor::logger::kLevelError, common::Here(kSourceFile, "~DataSubscriber"),
                        "DataSubscriber: Unsubscribe threw exception");
        }
        token_->Cancel();
    }

    /// Returns the provider's code, too, when that refuses. Throws `std::system_error` and
    /// `std::bad_alloc`; nothing has changed then.
    int Subscribe(std::shared_ptr<Queue<T>> queue) override {
        if (subscribed_) {
            return qel::kAlreadyDone;
        }
        auto token = std::make_shared<qor::utils::CancellationToken>();
        auto calls = std::make_shared<CallCanceller>();
        auto end = std::make_shared<std::promise<void>>();
        std::future<void> hasEnded = end->get_future();
        const int registered = provider_->Register();
        if (registered < 0) {
            return registered;
        }
        try {
            thread_ = qor::utils::StartWorkerThread(
                threadName_, [provider = provider_, queue, token, calls, end] {
                    const LibraryThreadScope scope(calls.get());
                    RunGetData(*provider, *queue, *token);
                    end->set_value();
                });
        } catch (...) {
            provider_->Unregister();
            throw;
        }
        token_ = std::move(token);
        calls_ = std::move(calls);
        hasEnded_ = std::move(hasEnded);
        queue_ = std::move(queue);
        subscribed_ = true;
        return qel::kNoError;
    }

    /// Cancels before it unregisters: the service then ends the pending call, and the thread sees
    /// the cancel. Returns the provider's code when that refuses; the subscriber is still
    /// subscribed then, but what comes is no longer asked for.
    int Unsubscribe() override {
        if (!subscribed_) {
            return qel::kAlreadyDone;
        }
        token_->Cancel();
        *VdZorTransport_LastStatus() = 0;
        const auto begin = std::chrono::steady_clock::now();
        const int unregistered = provider_->Unregister();
        if (unregistered < 0) {
            return unregistered;
        }
        if (*VdZorTransport_LastStatus() != 0) {
            calls_->Cancel();  // the service does not know that it is to let the thread go
        }
        if (hasEnded_.wait_until(
                std::max(begin + kLongestWait, std::chrono::steady_clock::now() + kLeastWait)) !=
            std::future_status::ready) {
            calls_->Cancel();  // it was told, and does not
        }
        if (thread_.joinable()) {
            thread_.join();  // never in vain: it calls no observer, and its call has an end
        }
        queue_.reset();
        subscribed_ = false;
        return qel::kNoError;
    }

private:
    using Token = qor::utils::CancellationToken;

    static constexpr char kSourceFile[] = "data_subscriber";

    /// Longest time that the service has to end the waiting call, with what the `Unregister` itself
    /// has taken, and the time that it has in any case.
    static constexpr std::chrono::milliseconds kLongestWait{750};
    static constexpr std::chrono::milliseconds kLeastWait{100};

    /// The pause before a value is pushed again for which there was no memory.
    static constexpr std::chrono::milliseconds kMemoryPause{100};

    static void RunGetData(IDataProvider<T>& provider, Queue<T>& queue, const Token& token) {
        while (token.IsContinued()) {
            T value{};
            const int result = GetData(provider, value);
            if (result < 0) {
                common::Log(zor::logger::kLevelWarning, common::Here(kSourceFile, "RunGetData"),
                            "DataSubscriber: GetData terminated with error {}", result);
            } else if (result == qel::kNoError) {
                Push(queue, value, token);
            }
        }
        if (!queue.IsClosed()) {
            queue.Close();
        }
    }

    static int GetData(IDataProvider<T>& provider, T& value) noexcept {
        try {
            return provider.GetData(value);
        } catch (...) {
            return qel::kUnspecifiedError;
        }
    }

    /// A notice that was taken from the service must not be lost, nor one that a cancel met on its
    /// way.
    static void Push(Queue<T>& queue, T value, const Token& token) noexcept {
        do {
            try {
                queue.Push(value);
                return;
            } catch (const std::bad_alloc&) {
                qor::utils::ICancellationToken::ExecutionAction action{};
                token.GetExecutionAction(action, kMemoryPause);
            }
        } while (token.IsContinued());
    }

    /// Shared with the thread, as is the token, which every run has anew: a run that was cancelled
    /// stays so.
    const std::shared_ptr<IDataProvider<T>> provider_;
    std::thread thread_;
    std::shared_ptr<Token> token_ = std::make_shared<Token>();
    std::shared_ptr<CallCanceller> calls_;  ///< of the thread; set while it is subscribed
    std::future<void> hasEnded_;            ///< likewise
    /// Held while it is subscribed, though only the thread uses it: with the queue lives what the
    /// provider needs for an `Unregister`, which may be left to the destructor.
    std::shared_ptr<Queue<T>> queue_;
    bool subscribed_ = false;
    const char* const threadName_;
};

}  // namespace zam_connector::proxy
