#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "data_handler/i_data_handler.h"
#include "data_handler/i_data_processor.h"
#include "data_handler/i_data_subscriber.h"
#include "library/zor_ipc/notification/thread_state.h"
#include "qor/utils/blocking_queue.h"

/// Scripted parts of a pipeline. What they are told to do and what happened to them is held outside
/// of them, since the pipeline owns them.
namespace zam_connector::test {

/// What happened, in order. Thread-safe.
class Journal {
public:
    void Add(std::string entry) {
        const std::lock_guard<std::mutex> lock(mutex_);
        entries_.push_back(std::move(entry));
    }

    std::vector<std::string> Entries() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return entries_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
};

/// A `BlockingQueue` that counts, and can have no memory.
template <typename T>
class CountingQueue {
public:
    void Push(T value) {
        ++pushes;
        if (pushesWithoutMemory > 0) {
            --pushesWithoutMemory;
            throw std::bad_alloc();
        }
        queue_.Push(value);
    }
    void PopAll(std::list<T>& out) {
        ++pops;
        queue_.PopAll(out);
    }
    void Close() {
        ++closes;
        queue_.Close();
    }
    bool IsClosed() const { return queue_.IsClosed(); }

    std::atomic<int> pushes{0};
    std::atomic<int> pops{0};
    std::atomic<int> closes{0};
    std::atomic<int> pushesWithoutMemory{0};

private:
    qor::utils::BlockingQueue<T> queue_;
};

/// Who has the observers; the scripted processor has nothing to tell it.
struct ScriptedManager {};

/// The script of a handler's parts: codes to return and things to do, set before the parts run.
struct PartsScript {
    Journal journal;
    int subscribeCode = 0;
    int unsubscribeCode = 0;
    std::function<void()> onSubscribe;
    std::function<void()> onUnsubscribe;
    std::function<void()> onCreate;
    std::function<int(int value)> onProcess;
    std::shared_ptr<CountingQueue<int>> queue;  ///< of the latest run
    std::weak_ptr<ScriptedManager> manager;     ///< that the processor was made with
    std::atomic<pid_t> handlerThread{0};        ///< the one that processed last
    std::atomic<const void*> processor{nullptr};
};

class ScriptedSubscriber final : public proxy::IDataSubscriber<int, CountingQueue> {
public:
    explicit ScriptedSubscriber(PartsScript& script) : script_(script) {}
    ~ScriptedSubscriber() override { script_.journal.Add("~Subscriber"); }

    int Subscribe(std::shared_ptr<CountingQueue<int>> queue) override {
        script_.journal.Add("Subscribe");
        script_.queue = std::move(queue);
        if (script_.onSubscribe) {
            script_.onSubscribe();
        }
        return script_.subscribeCode;
    }

    int Unsubscribe() override {
        script_.journal.Add("Unsubscribe");
        if (script_.onUnsubscribe) {
            script_.onUnsubscribe();
        }
        return script_.unsubscribeCode;
    }

private:
    PartsScript& script_;
};

class ScriptedProcessor final : public proxy::IDataProcessor<int> {
public:
    explicit ScriptedProcessor(PartsScript& script) : script_(script) {}
    ~ScriptedProcessor() override { script_.journal.Add("~Processor"); }

    int ProcessData(int value) override {
        script_.journal.Add("Process " + std::to_string(value));
        script_.handlerThread = ThreadNumber();
        script_.processor = this;
        return script_.onProcess ? script_.onProcess(value) : 0;
    }

private:
    PartsScript& script_;
};

class ScriptedFactory final : public proxy::IDataProcessorFactory<int, ScriptedManager> {
public:
    explicit ScriptedFactory(PartsScript& script) : script_(script) {}
    ~ScriptedFactory() override { script_.journal.Add("~Factory"); }

    std::unique_ptr<proxy::IDataProcessor<int>> CreateDataProcessor(
        std::weak_ptr<ScriptedManager> manager) override {
        script_.journal.Add("Create");
        script_.manager = std::move(manager);
        if (script_.onCreate) {
            script_.onCreate();
        }
        return std::make_unique<ScriptedProcessor>(script_);
    }

private:
    PartsScript& script_;
};

/// A pipeline that only says what is asked of it. Used by one thread at a time.
template <typename Manager>
class ScriptedHandler final : public proxy::IDataHandler<Manager> {
public:
    int Start(std::weak_ptr<Manager> manager) override {
        journal.Add("Start");
        lastManager = std::move(manager);
        if (onCall) {
            onCall();
        }
        return startCode;
    }
    int Stop() override {
        journal.Add("Stop");
        if (onCall) {
            onCall();
        }
        return stopCode;
    }
    void KeepForThreads(const std::shared_ptr<const void>& object) override {
        journal.Add("Keep");
        kept = object;
    }

    Journal journal;
    int startCode = 0;
    int stopCode = 0;
    std::function<void()> onCall;
    std::weak_ptr<Manager> lastManager;
    std::shared_ptr<const void> kept;
};

}  // namespace zam_connector::test
