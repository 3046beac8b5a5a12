#include "zor/logger.h"

#include <poll.h>
#include <pthread.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>

namespace zor::logger {
namespace {

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

/// Writes whole lines to stderr. spdlog's own sink for it ignores what the C library reports, and
/// its mutex would stay locked for ever in the child of a process that forks while it logs.
class StderrSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    void Lock() { mutex_.lock(); }
    void Unlock() { mutex_.unlock(); }

private:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        std::string_view rest(line.data(), line.size());
        while (!rest.empty()) {
            const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
            if (written >= 0) {
                rest.remove_prefix(static_cast<std::size_t>(written));
            } else if (errno == EAGAIN) {
                pollfd ready{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
                ::poll(&ready, 1, -1);
            } else if (errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), "log to stderr");
            }
        }
    }

    void flush_() override {}
};

constexpr bool IsControl(char character) noexcept {
    return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
}

/// A text whose control characters would break the line, or do worse to a terminal.
std::string Escaped(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string escaped;
    for (const char character : text) {
        if (IsControl(character)) {
            const auto byte = static_cast<unsigned char>(character);
            escaped += "\\x";
            escaped += kDigits[byte >> 4U];
            escaped += kDigits[byte & 0x0FU];
        } else {
            escaped += character;
        }
    }
    return escaped;
}

/// What the default logger writes through; never destroyed, since threads may log until the
/// process has ended.
struct StderrLog {
    std::shared_ptr<StderrSink> sink = std::make_shared<StderrSink>();
    spdlog::logger logger{"zam", sink};

    static StderrLog& Instance() {
        static auto* const instance = new StderrLog();
        return *instance;
    }

private:
    StderrLog() {
        logger.set_pattern("%Y-%m-%dT%H:%M:%S.%e %P %L [%s:%# %!] %v");
        logger.set_level(spdlog::level::trace);
        // A failure to log ends the process: logging paths are not allowed to throw.
        logger.set_error_handler([](const std::string&) { throw; });
        ::pthread_atfork([] { Instance().sink->Lock(); }, [] { Instance().sink->Unlock(); },
                         [] { Instance().sink->Unlock(); });
    }
};

/// Made when the library is loaded, before there are threads that could be making it at a fork.
[[maybe_unused]] StderrLog& g_stderrLog = StderrLog::Instance();

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
    const int known = std::clamp<int>(level, spdlog::level::trace, spdlog::level::critical);
    const auto write = [&](std::string_view shown) {
        StderrLog::Instance().logger.log(spdlog::source_loc{file, line, function},
                                         static_cast<spdlog::level::level_enum>(known),
                                         spdlog::string_view_t(shown.data(), shown.size()));
    };
    const bool isLong = text.size() > kMaxLogTextBytes;
    const std::string_view head = text.substr(0, kMaxLogTextBytes);
    if (!isLong && std::none_of(head.begin(), head.end(), IsControl)) {
        write(head);
        return;
    }
    std::string escaped = Escaped(head);
    if (isLong) {
        escaped += "... (" + std::to_string(text.size() - head.size()) + " bytes more)";
    }
    write(escaped);
}

DefaultLoggerImpl& DefaultLoggerImpl::Instance() noexcept {
    // Without a guard around it: a child forked while another thread holds one would wait for ever.
    // Never destroyed: threads may log until the process has ended.
    static std::atomic<DefaultLoggerImpl*> instance{nullptr};
    DefaultLoggerImpl* known = instance.load(std::memory_order_acquire);
    if (known == nullptr) {
        auto* const made = new (std::nothrow) DefaultLoggerImpl(InitialThreshold());
        if (made == nullptr) {
            std::terminate();
        }
        if (instance.compare_exchange_strong(known, made, std::memory_order_acq_rel)) {
            return *made;
        }
        delete made;
    }
    return *known;
}

}  // namespace zor::logger
