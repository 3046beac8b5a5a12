#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "data_handler/i_data_provider.h"

namespace zam_connector::test {

/// The service's end of a pipeline: notices are handed in, and calls are recorded. Outlives the
/// providers over it. Thread-safe.
template <typename T>
class Notifier {
public:
    /// What a waiting call returns.
    struct Notice {
        int result = 0;
        T value{};
    };

    void Tell(T value) { Give({0, value}); }

    void Give(Notice notice) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            notices_.push_back(notice);
        }
        changed_.notify_all();
    }

    /// Codes of the calls from now on.
    void SetRegister(int code) {
        const std::lock_guard<std::mutex> lock(mutex_);
        registerCode_ = code;
    }
    void SetUnregister(int code) {
        const std::lock_guard<std::mutex> lock(mutex_);
        unregisterCode_ = code;
    }

    /// "Register" and "Unregister" so far, in order.
    std::vector<std::string> Calls() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

    /// How many waiting calls have begun.
    int Waits() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return waits_;
    }

    /// Returns when all notices have been taken and a call waits for another.
    void WaitUntilIdle() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return notices_.empty() && waiting_; });
    }

    int Register() {
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.emplace_back("Register");
        if (registerCode_ >= 0) {
            registered_ = true;
        }
        return registerCode_;
    }

    int GetData(T& value) {
        std::unique_lock<std::mutex> lock(mutex_);
        ++waits_;
        waiting_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !notices_.empty() || !registered_; });
        waiting_ = false;
        if (!registered_) {
            return 1;
        }
        const Notice notice = notices_.front();
        notices_.pop_front();
        value = notice.value;
        return notice.result;
    }

    int Unregister() {
        int code = 0;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            calls_.emplace_back("Unregister");
            code = unregisterCode_;
            if (code >= 0) {
                registered_ = false;
                notices_.clear();
            }
        }
        changed_.notify_all();
        return code;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Notice> notices_;
    std::vector<std::string> calls_;
    int registerCode_ = 0;
    int unregisterCode_ = 0;
    int waits_ = 0;
    bool registered_ = false;
    bool waiting_ = false;
};

template <typename T>
class ScriptedProvider final : public proxy::IDataProvider<T> {
public:
    explicit ScriptedProvider(std::shared_ptr<Notifier<T>> notifier)
        : notifier_(std::move(notifier)) {}

    int Register() override { return notifier_->Register(); }
    int GetData(T& value) override { return notifier_->GetData(value); }
    int Unregister() override { return notifier_->Unregister(); }

private:
    const std::shared_ptr<Notifier<T>> notifier_;
};

}  // namespace zam_connector::test
