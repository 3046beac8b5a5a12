#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "line_log.h"
#include "support/real_connection.h"
#include "support/real_subscribers.h"
#include "zam_connector/zam_connector.h"

/// zam_loaded_client NAME LOG FILE: posts events, uploads settings, downloads pieces of FILE and
/// fetches the policy, over and over, and observes the policy. Writes a line to LOG for what the
/// service has confirmed and for what is not as it must be. Ends at SIGTERM with the line "longest
/// MS": the longest that a call took.

namespace {

using namespace zam_connector;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// For a whole operation; a close may take 0.75 s more, and a failing return is spaced by 0.25 s.
constexpr std::chrono::seconds kDeadline{2};

volatile std::sig_atomic_t g_isDone = 0;

/// The policy and the uploads are maps in which one number stands everywhere; -1 for one that is
/// not.
long NumberIn(const zuv::TValue& tree) {
    const auto* const map = tree.GetIf<zuv::Map>();
    long number = -1;
    for (const auto& [key, value] : map == nullptr ? zuv::Map{} : *map) {
        const auto* const found = value.GetIf<long>();
        if (found == nullptr || (number != -1 && *found != number)) {
            return -1;
        }
        number = *found;
    }
    return number;
}

class PolicyLogger final
    : public qor::observer::IChangeObserver<std::pair<std::uint64_t, ZamPolicy>, int> {
public:
    explicit PolicyLogger(const test::LineLog& log) : log_(log) {}

    int OnChange(const std::pair<std::uint64_t, ZamPolicy>& policy) override {
        log_.Write("told " + std::to_string(NumberIn(policy.second.tree)));
        return 0;
    }

private:
    const test::LineLog& log_;
};

class Load {
public:
    Load(std::string name, const test::LineLog& log, std::string file)
        : name_(std::move(name)), log_(log), file_(std::move(file)) {
        std::shared_ptr<IZamConnector> connector;
        while (CreateZamConnector(connector, {}) != 0) {
        }
        connector_ = std::move(connector);
        connector_->GetFileDownloader(downloader_);
    }

    void Run() {
        for (long number = 0; g_isDone == 0; ++number) {
            const std::string event = name_ + '/' + std::to_string(number);
            Timed([&] {
                if (connection_.CommandSender().PostZamEvent(event) == 0) {
                    log_.Write("event " + event);
                }
            });
            Timed([&] { Upload(number); });
            Timed([&] { Download(number); });
            Timed([&] { Fetch(); });
        }
        log_.Write("longest " + std::to_string(longest_.count()));
    }

private:
    template <typename Call>
    void Timed(const Call& call) {
        const auto begin = steady_clock::now();
        {
            const CallDeadline within(kDeadline);
            call();
        }
        longest_ = std::max(longest_, std::chrono::ceil<milliseconds>(steady_clock::now() - begin));
    }

    void Upload(long number) {
        zuv::Map map;
        for (int entry = 0; entry < 60; ++entry) {
            map["of" + name_ + "_" + std::to_string(entry)] = number;
        }
        unsigned long hash = 0;
        if (connection_.ProductDataHolder().SetSettings({map}, hash) == 0) {
            log_.Write("upload " + std::to_string(hash) + ' ' + std::to_string(number));
        }
    }

    void Download(long number) {
        constexpr std::uint64_t kStep = 7919;
        FileChunk chunk;
        const auto offset = static_cast<std::uint64_t>(number) * kStep % 200'000;
        if (downloader_->GetFileChunk({.path = file_, .offset = offset, .maxSizeBytes = 4096},
                                      chunk) != 0) {
            return;
        }
        std::uint64_t at = chunk.offset;
        const bool isSound =
            chunk.offset == offset &&
            std::all_of(chunk.data.begin(), chunk.data.end(), [&at](auto byte) {
                return static_cast<unsigned char>(byte) == static_cast<unsigned char>(at++ % 251);
            });
        if (!isSound || chunk.data.empty()) {
            log_.Write("wrong chunk at " + std::to_string(offset));
        }
    }

    void Fetch() {
        std::pair<unsigned long, ZamPolicy> policy;
        if (connection_.DataProvider().GetPolicy(policy) == 0 &&
            NumberIn(policy.second.tree) == -1) {
            log_.Write("wrong policy");
        }
    }

    const std::string name_;
    const test::LineLog& log_;
    const std::string file_;
    std::shared_ptr<IZamConnector> connector_;
    std::shared_ptr<IZamFileDownloader> downloader_;
    test::RealConnection connection_;
    milliseconds longest_{0};
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 1;
    }
    std::signal(SIGTERM, [](int /*signal*/) { g_isDone = 1; });
    const test::LineLog log(argv[2]);
    test::RealSubscribers subscribers;
    const auto observer = std::make_shared<PolicyLogger>(log);
    SubscriptionCookie cookie;
    if (subscribers.Data()->SubscribeOnPolicyChange(observer, cookie) != 0) {
        return 1;
    }
    Load(argv[1], log, argv[3]).Run();
    return subscribers.Data()->Unsubscribe(cookie) == 0 ? 0 : 1;
}
