#pragma once

#include <chrono>
#include <exception>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "common/log.h"
#include "data_handler/handler_threads.h"
#include "data_handler/i_data_handler.h"
#include "data_handler/i_data_processor.h"
#include "data_handler/i_data_subscriber.h"
#include "qel/exception.h"
#include "qor/mutex.h"
#include "qor/utils/cancellation_token.h"

namespace zam_connector::proxy {

/// A pipeline of two threads: the subscriber's feeds a queue, and the handler thread gives what is
/// in it to a processor. `Start`, `Stop` and the destructor may be called on a handler thread, even
/// on this pipeline's own from inside an observer, but by one thread at a time.
template <typename T, typename Manager, template <typename> class Queue>
class DataHandler final : public IDataHandler<Manager> {
public:
    /// `threadName`, at most 15 bytes, must have static storage. Throws
    /// `qel::CheckFailedException` when there is no subscriber or no factory.
    DataHandler(std::unique_ptr<IDataSubscriber<T, Queue>> subscriber,
                std::unique_ptr<IDataProcessorFactory<T, Manager>> factory,
                const char* threadName = "zam_handler")
        : subscriber_(std::move(subscriber)), factory_(std::move(factory)), threads_(threadName) {
        if (!subscriber_) {
            throw qel::CheckFailedException(kSourceFile, 31);
        }
        if (!factory_) {
            throw qel::CheckFailedException(kSourceFile, 32);
        }
    }

    ~DataHandler() override {
        try {
            if (!token_->IsCanceled()) {
                Stop();
            }
        } catch (const std::exception& exception) {
            common::Log(zor::logger::kLevelError, common::Here(kSourceFile, "~DataHandler"),
                        "DataHandler: Stop threw exception: {}", exception.what());
        }
        token_->Cancel();
        if (queue_) {
            Close(*queue_);  // still there when the subscriber refused to stop
        }
    }

    /// Returns 0 when it runs already, 0x8000004B when nobody owns the manager any more, and the
    /// subscriber's code when that refuses. What the factory throws, and `std::system_error` and
    /// `std::bad_alloc`, go through; the pipeline is then stopped.
    int Start(std::weak_ptr<Manager> manager) override {
        if (token_->IsContinued()) {
            return qel::kNoError;
        }
        if (manager.expired()) {
            return common::Failure(common::Here(kSourceFile, "Start"),
                                   "DataHandler: dataManger weak ptr is expired!");
        }
        auto token = std::make_shared<Token>(Action::Cancel);
        queue_ = std::make_shared<Queue<T>>();
        const int subscribed = subscriber_->Subscribe(queue_);
        if (subscribed < 0) {
            return subscribed;
        }
        const bool firstStart = !processor_;
        try {
            if (firstStart) {
                processor_ = factory_->CreateDataProcessor(std::move(manager));
            }
            token->Resume();
            threads_.Start(token, [queue = queue_, processor = processor_, token] {
                RunDataHandler(*queue, *processor, *token);
            });
        } catch (...) {
            if (firstStart) {
                processor_.reset();
            }
            subscriber_->Unsubscribe();
            queue_.reset();
            throw;
        }
        token_ = std::move(token);
        kept_.Open();
        return qel::kNoError;
    }

    /// Returns the subscriber's code when that refuses to stop; the handler goes on then. What is
    /// in the queue is still handled, unless the handler thread is just handling what it took out
    /// before: then that is the last. Waits for an observer that is being called, but never on a
    /// handler thread.
    int Stop() override {
        if (token_->IsCanceled()) {
            return qel::kNoError;
        }
        const int unsubscribed = subscriber_->Unsubscribe();
        if (unsubscribed < 0) {
            return unsubscribed;
        }
        token_->Cancel();
        Close(*queue_);
        threads_.Finish();
        queue_.reset();
        kept_.Close();
        return qel::kNoError;
    }

    void KeepForThreads(const std::shared_ptr<const void>& object) override {
        threads_.Keep(object);
        kept_.Add(object);
    }

private:
    using Token = qor::utils::CancellationToken;
    using Action = qor::utils::ICancellationToken::ExecutionAction;

    static constexpr char kSourceFile[] = "data_handler";

    /// What is kept for a run: the subscriber needs it to the end, also when the handler thread
    /// ended before.
    class KeptForRun {
    public:
        void Open() {
            qor::MutexLock lock(mutex_);
            open_ = true;
        }

        void Add(const std::shared_ptr<const void>& object) {
            qor::MutexLock lock(mutex_);
            if (open_) {
                objects_.push_back(object);
            }
        }

        void Close() {
            std::vector<std::shared_ptr<const void>> objects;
            qor::MutexLock lock(mutex_);
            objects.swap(objects_);  // go after the lock
            open_ = false;
        }

    private:
        qor::Mutex mutex_;  // a leaf
        bool open_ QOR_GUARDED_BY(mutex_) = false;
        std::vector<std::shared_ptr<const void>> objects_ QOR_GUARDED_BY(mutex_);
    };

    static void Close(Queue<T>& queue) {
        if (!queue.IsClosed()) {
            queue.Close();
        }
    }

    static int RunDataHandler(Queue<T>& queue, IDataProcessor<T>& processor, const Token& token) {
        while (token.IsContinued()) {
            std::list<T> batch;
            queue.PopAll(batch);
            if (batch.empty() && queue.IsClosed()) {
                WaitForEnd(token);
            }
            const int result = Process(batch, processor);
            if (result < 0) {
                return result;
            }
        }
        return qel::kNoError;
    }

    static int Process(const std::list<T>& batch, IDataProcessor<T>& processor) noexcept {
        try {
            for (const T value : batch) {
                processor.ProcessData(value);
            }
            return qel::kNoError;
        } catch (const std::exception& exception) {
            return Threw(exception.what());
        } catch (...) {
            return Threw("non-std exception");
        }
    }

    static int Threw(const char* text) noexcept {
        return common::Failure(common::Here(kSourceFile, "RunDataHandler"),
                               "DataHandler: ProcessData threw exception: {}", text);
    }

    /// The subscriber's thread has ended, and with it the queue, though the pipeline was not
    /// stopped: nothing more will come.
    static void WaitForEnd(const Token& token) {
        Action action{};
        while (token.IsContinued()) {
            token.GetExecutionAction(action, std::chrono::hours(1));
        }
    }

    KeptForRun kept_;  // outlives the subscriber
    const std::unique_ptr<IDataSubscriber<T, Queue>> subscriber_;
    const std::unique_ptr<IDataProcessorFactory<T, Manager>> factory_;
    /// Queue, processor and token are shared with the thread. The token is new for every run, so
    /// that one that was cancelled stays so.
    std::shared_ptr<IDataProcessor<T>> processor_;
    std::shared_ptr<Queue<T>> queue_;
    std::shared_ptr<Token> token_ = std::make_shared<Token>(Action::Cancel);
    HandlerThreads threads_;
};

}  // namespace zam_connector::proxy
