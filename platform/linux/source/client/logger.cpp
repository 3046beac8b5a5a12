#include "zor/logger.h"

#include <pthread.h>
#include <unistd.h>

#include <charconv>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <system_error>

#include "log/stderr_log.h"

namespace zor::logger {
namespace {

using zam_platform::StderrLog;

/// The default logger's threshold until somebody asks for it.
constexpr int kUnread = INT_MIN;

std::atomic<ZORLogger*> g_installed{nullptr};

/// Threshold of the default logger from the environment.
int InitialThreshold() noexcept {
    const char* const text = secure_getenv("ZAM_LOG_LEVEL");
    if (text == nullptr) {
        return kLevelError;
    }
    const char* const end = text + std::strlen(text);
    int level = 0;
    const auto [stop, error] = std::from_chars(text, end, level);
    return error == std::errc() && stop == end ? level : kLevelError;
}

/// What the default loggers write through; never destroyed, since threads may log until the process
/// has ended.
StderrLog& DefaultLog() noexcept {
    alignas(StderrLog) static std::byte place[sizeof(StderrLog)];
    static StderrLog* const log = [] {
        auto* const made = new (place) StderrLog(STDERR_FILENO);
        ::pthread_atfork([] { DefaultLog().LockForFork(); }, [] { DefaultLog().UnlockAfterFork(); },
                         [] { DefaultLog().UnlockInChild(); });
        return made;
    }();
    return *log;
}

/// Tells at the process's end what nothing has told until then.
struct LastWord {
    ~LastWord() { DefaultLog().TellLeftOut(StderrLog::Patience::Bounded); }
};

/// In a place of its own, so that the first record needs no memory.
DefaultLoggerImpl& DefaultLogger() noexcept {
    alignas(DefaultLoggerImpl) static std::byte place[sizeof(DefaultLoggerImpl)];
    static auto* const made = new (place) DefaultLoggerImpl(kUnread);
    return *made;
}

/// Made when the library is loaded, before there are threads that could be making them at a fork.
[[maybe_unused]] StderrLog& g_defaultLog = DefaultLog();
[[maybe_unused]] DefaultLoggerImpl& g_defaultLogger = DefaultLogger();
[[maybe_unused]] const LastWord g_lastWord;

}  // namespace

ZORLogger::~ZORLogger() = default;

ZORLogger& ZORLogger::RootLogger() noexcept {
    ZORLogger* const installed = g_installed.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : DefaultLoggerImpl::Instance();
}

ZORLogger* ZORLogger::InstallRootLogger(ZORLogger* logger) noexcept {
    return g_installed.exchange(logger, std::memory_order_acq_rel);
}

DefaultLoggerImpl::DefaultLoggerImpl(int threshold) noexcept : threshold_(threshold) {}

DefaultLoggerImpl::~DefaultLoggerImpl() = default;

bool DefaultLoggerImpl::IsEnabled(int level) const {
    return Threshold() <= level;
}

void DefaultLoggerImpl::LogImpl(int level, const char* file, int line, const char* function,
                                std::string_view text) {
    DefaultLog().Write(
        {.level = level, .file = file, .line = line, .function = function, .text = text},
        StderrLog::Patience::Bounded);
}

DefaultLoggerImpl& DefaultLoggerImpl::Instance() noexcept {
    // Without a guard around it: a child forked while another thread holds one would wait for ever.
    static std::atomic<bool> isRead{false};
    DefaultLoggerImpl& logger = DefaultLogger();
    if (!isRead.load(std::memory_order_acquire)) {
        int unread = kUnread;
        logger.threshold_.compare_exchange_strong(unread, InitialThreshold());
        isRead.store(true, std::memory_order_release);
    }
    return logger;
}

}  // namespace zor::logger
