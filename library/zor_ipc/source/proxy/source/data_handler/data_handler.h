#pragma once

#include <atomic>
#include <chrono>
#include <exception>
#include <list>
#include <memory>
#include <utility>

#include "call_canceller.h"
#include "call_scope.h"
#include "common/log.h"
#include "data_handler/handler_threads.h"
#include "data_handler/i_data_handler.h"
#include "data_handler/i_data_processor.h"
#include "data_handler/i_data_subscriber.h"
#include "data_handler/kept_objects.h"
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
        if (run_) {
            Close(run_->queue);  // still there when the subscriber refused to stop
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
        auto run = std::make_shared<Run>(KeptForNewRun());
        const int subscribed = subscriber_->Subscribe({run, &run->queue});
        if (subscribed < 0) {
            return subscribed;
        }
        const bool firstStart = !processor_;
        try {
            if (firstStart) {
                processor_ = factory_->CreateDataProcessor(std::move(manager));
            }
            token->Resume();
            threads_.Start(token, Rounds{run, processor_, token}, run->calls);
        } catch (...) {
            if (firstStart) {
                processor_.reset();
            }
            subscriber_->Unsubscribe();  // a subscriber that refuses goes on holding the run
            throw;
        }
        token_ = std::move(token);
        run_ = std::move(run);
        return qel::kNoError;
    }

    /// Returns the subscriber's code when that refuses to stop; the handler goes on then. What is
    /// in the queue is still handled, unless the handler thread is just handling what it took out
    /// before: then that is the last. Waits for an observer that is being called, but never on a
    /// handler thread. What the handler thread itself has asked the service for fails when that has
    /// not come in `HandlerThreads::kLongestCalls`. When the service could not be told, all calls
    /// that the handler thread has under way fail, an observer's own included.
    int Stop() override {
        if (token_->IsCanceled()) {
            return qel::kNoError;
        }
        const auto begin = std::chrono::steady_clock::now();
        *VdZorTransport_LastStatus() = 0;
        const int unsubscribed = subscriber_->Unsubscribe();
        if (unsubscribed < 0) {
            return unsubscribed;
        }
        // The cancel first: the thread that the closed queue wakes handles what waits, and sees
        // that this was its last round.
        token_->Cancel();
        Close(run_->queue);
        if (std::exchange(*VdZorTransport_LastStatus(), 0) != 0) {
            // A service that took no farewell may answer nothing else either. An observer that is
            // here keeps its own calls until it has returned.
            run_->isUntold = true;
            threads_.EndCalls();
        }
        threads_.Finish(HandlerThreads::LeftForCalls(std::chrono::steady_clock::now() - begin));
        run_.reset();
        return qel::kNoError;
    }

    void KeepForThreads(const std::shared_ptr<const void>& object) override {
        const std::shared_ptr<KeptObjects> kept = Kept();
        if (kept) {
            kept->Add(object);
        }
    }

private:
    using Token = qor::utils::CancellationToken;
    using Action = qor::utils::ICancellationToken::ExecutionAction;

    static constexpr char kSourceFile[] = "data_handler";

    /// What one run is made of. Both threads hold it to their ends, and the subscriber until it has
    /// unsubscribed: it gets the queue by a pointer that owns the whole.
    struct Run {
        explicit Run(std::shared_ptr<KeptObjects> keptObjects) : kept(std::move(keptObjects)) {}

        const std::shared_ptr<KeptObjects> kept;
        Queue<T> queue;
        const std::shared_ptr<CallCanceller> calls = std::make_shared<CallCanceller>();
        std::atomic<bool> isUntold = false;  ///< the service does not know that the run has ended
    };

    /// What the handler thread holds. The processor goes first: what it uses may be what the run
    /// keeps.
    struct Rounds {
        std::shared_ptr<Run> run;
        std::shared_ptr<IDataProcessor<T>> processor;
        std::shared_ptr<const Token> token;

        void operator()() const { RunDataHandler(*run, *processor, *token); }
    };

    /// Shared with the threads of earlier runs that are still inside an observer: what those use
    /// behind the end of a connector is what the new run uses too.
    std::shared_ptr<KeptObjects> KeptForNewRun() {
        qor::MutexLock lock(mutex_);
        std::shared_ptr<KeptObjects> kept = kept_.lock();
        if (!kept) {
            kept = std::make_shared<KeptObjects>();
            kept_ = kept;
        }
        return kept;
    }

    std::shared_ptr<KeptObjects> Kept() {
        qor::MutexLock lock(mutex_);
        return kept_.lock();
    }

    static void Close(Queue<T>& queue) {
        if (!queue.IsClosed()) {
            queue.Close();
        }
    }

    static int RunDataHandler(Run& run, IDataProcessor<T>& processor, const Token& token) {
        while (token.IsContinued()) {
            std::list<T> batch;
            run.queue.PopAll(batch);
            if (batch.empty() && run.queue.IsClosed()) {
                WaitForEnd(token);
            }
            const int result = Process(batch, processor, run);
            if (result < 0) {
                return result;
            }
            if constexpr (requires { run.queue.GiveBack(batch); }) {
                run.queue.GiveBack(batch);
            }
        }
        return qel::kNoError;
    }

    static int Process(const std::list<T>& batch, IDataProcessor<T>& processor,
                       const Run& run) noexcept {
        try {
            for (const T value : batch) {
                processor.ProcessData(value);
                if (run.isUntold) {
                    run.calls->Cancel();
                }
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
    /// stopped: nothing more will come, and a closed queue gives back at once, so that the loop
    /// would only burn a processor.
    static void WaitForEnd(const Token& token) {
        Action action{};
        while (token.IsContinued()) {
            token.GetExecutionAction(action, std::chrono::hours(1));
        }
    }

    const std::unique_ptr<IDataSubscriber<T, Queue>> subscriber_;
    const std::unique_ptr<IDataProcessorFactory<T, Manager>> factory_;
    /// Processor, run and token are shared with the thread. The token is new for every run, so that
    /// one that was cancelled stays so.
    std::shared_ptr<IDataProcessor<T>> processor_;
    std::shared_ptr<Run> run_;  // set while it runs
    std::shared_ptr<Token> token_ = std::make_shared<Token>(Action::Cancel);
    HandlerThreads threads_;
    qor::Mutex mutex_;  // a leaf
    /// Of the latest run, while somebody holds that.
    std::weak_ptr<KeptObjects> kept_ QOR_GUARDED_BY(mutex_);
};

}  // namespace zam_connector::proxy
