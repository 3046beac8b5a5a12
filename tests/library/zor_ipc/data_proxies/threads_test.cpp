#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <latch>
#include <mutex>
#include <set>
#include <thread>

#include "data_rig.h"

namespace zam_connector {
namespace {

using test::HolderRig;
using test::ProviderRig;
using ::testing::IsEmpty;

using Policy = std::pair<unsigned long, ZamPolicy>;

constexpr int kThreads = 2;
constexpr int kRounds = 10;

/// A tree that tells the thread it is for.
zuv::TValue TreeOfThread(int thread) {
    zuv::Vector numbers;
    for (int number = 0; number < 30; ++number) {
        numbers.emplace_back(1000 * thread + number);
    }
    return numbers;
}

/// Runs `act(thread)` on several threads, which all start at once.
void RunThreads(const std::function<void(int)>& act) {
    std::latch start(kThreads);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            act(thread);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// A service with a channel of its own for every transfer: an even number is one of the first
/// thread, an odd one of the second.
class ConcurrentProvider {
public:
    ConcurrentProvider() {
        for (int thread = 0; thread < kThreads; ++thread) {
            const test::List list = test::Flattened(TreeOfThread(thread));
            for (auto first = list.begin(); first != list.end();) {
                const auto last = first + std::min<std::ptrdiff_t>(5, list.end() - first);
                pieces_[static_cast<std::size_t>(thread)].push_back(test::PieceOf({first, last}));
                first = last;
            }
        }
    }

    testing::ScriptedAnswer Answer(const testing::RecordedCall& call) {
        const std::lock_guard lock(mutex_);
        if (call.request.empty()) {
            qx::OpenChannelResponse response{};
            response.channel = NextChannel(call.requestHeader.operation);
            return testing::AnswerWith(response);
        }
        const std::int64_t channel = call.As<qx::ChannelRequest>()->channel;
        const auto& pieces = pieces_[static_cast<std::size_t>(channel % kThreads)];
        switch (call.requestHeader.operation) {
            case test::kGetData: {
                const std::string& piece = pieces[given_[channel]++];
                qx_zam_connector_ZamDataProvider_GetData_rsp response{};
                response.params.records = {0, static_cast<std::uint32_t>(piece.size())};
                response.sessionStatus = given_[channel] == pieces.size() ? 1 : 0;
                return testing::AnswerWith(response, piece);
            }
            case test::kGetZamHash: {
                qx_zam_connector_ZamDataProvider_GetZamHash_rsp response{};
                response.hash = static_cast<std::uint64_t>(channel);
                return testing::AnswerWith(response);
            }
            default:
                return {};
        }
    }

private:
    /// Policies go to the first thread, settings to the second.
    std::int64_t NextChannel(unsigned operation) {
        nextPair_ += kThreads;
        return nextPair_ + (operation == test::kOpenSettingsChannel ? 1 : 0);
    }

    std::mutex mutex_;  // guards what follows; a leaf
    std::array<std::vector<std::string>, kThreads> pieces_;
    std::map<std::int64_t, std::size_t> given_;
    std::int64_t nextPair_ = 0;
};

TEST(ConcurrentTransfers, OfOneProviderDoNotMix) {
    ProviderRig rig;
    ConcurrentProvider service;
    rig.transport.SetResponder([&](const auto& call) { return service.Answer(call); });
    std::atomic<int> wrong{0};
    RunThreads([&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            Policy policy;
            std::pair<unsigned long, ZamProductSettings> settings;
            const int code =
                thread == 0 ? rig.proxy.GetPolicy(policy) : rig.proxy.GetProductSettings(settings);
            const zuv::TValue& tree = thread == 0 ? policy.second.tree : settings.second.tree;
            const unsigned long hash = thread == 0 ? policy.first : settings.first;
            const bool isOwn = hash % kThreads == static_cast<unsigned long>(thread);
            wrong += code == 0 && tree == TreeOfThread(thread) && isOwn ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

TEST(ConcurrentTransfers, OfOneHolderDoNotMix) {
    HolderRig rig;
    std::atomic<std::int64_t> nextChannel{1};
    std::mutex mutex;
    std::map<std::int64_t, test::List> sent;
    rig.transport.SetResponder([&](const auto& call) -> std::optional<testing::ScriptedAnswer> {
        const unsigned operation = call.requestHeader.operation;
        if (operation == test::kOpenSetSettingsChannel) {
            qx::OpenChannelResponse response{};
            response.channel = nextChannel++;
            return testing::AnswerWith(response);
        }
        if (operation == test::kCloseHolderChannel) {
            qx_zam_connector_ProductDataHolder_CloseChannel_rsp response{};
            response.hash =
                static_cast<std::uint64_t>(call.template As<qx::ChannelRequest>()->channel);
            return testing::AnswerWith(response);
        }
        const auto request = call.template As<qx_zam_connector_ProductDataHolder_SendData_req>();
        const test::List piece = test::PieceIn(call);
        const std::lock_guard lock(mutex);
        test::List& all = sent[request->channel];
        all.insert(all.end(), piece.begin(), piece.end());
        return testing::ScriptedAnswer{};
    });
    std::array<std::vector<unsigned long>, kThreads> hashes;
    RunThreads([&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            unsigned long hash = 0;
            rig.proxy.SetSettings({TreeOfThread(thread)}, hash);
            hashes[static_cast<std::size_t>(thread)].push_back(hash);
        }
    });
    for (int thread = 0; thread < kThreads; ++thread) {
        for (const unsigned long hash : hashes[static_cast<std::size_t>(thread)]) {
            EXPECT_EQ(sent[static_cast<std::int64_t>(hash)], test::Flattened(TreeOfThread(thread)));
        }
    }
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

/// Two calls that wait for each other.
class Meeting {
public:
    /// True when the other one came, which only a proxy that lets one call wait for another keeps
    /// it from.
    bool Meet() {
        std::unique_lock lock(mutex_);
        const int round = arrived_++ / kThreads;
        arrival_.notify_all();
        return arrival_.wait_for(lock, std::chrono::seconds(30),
                                 [&] { return arrived_ / kThreads > round; });
    }

private:
    std::mutex mutex_;  // guards what follows; a leaf
    std::condition_variable arrival_;
    int arrived_ = 0;
};

/// The identifiers of one kind in a channel, all of them different from those of every other.
std::vector<ZamId> IdsOf(std::int64_t channel, std::size_t kind) {
    std::vector<ZamId> ids(3 + kind);
    for (std::size_t index = 0; index < ids.size(); ++index) {
        ids[index] = test::MakeId(static_cast<unsigned char>(index));
        ids[index][0] = static_cast<std::byte>(channel);
        ids[index][1] = static_cast<std::byte>(kind);
    }
    return ids;
}

/// A service that gives every transfer of identifiers a channel and a hash of its own, one
/// identifier in a piece.
class ConcurrentUpdates {
public:
    testing::ScriptedAnswer Answer(const testing::RecordedCall& call) {
        if (call.requestHeader.operation == test::kOpenUpdates) {
            qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp response{};
            response.channel = nextChannel_++;
            response.hash = static_cast<std::uint64_t>(kHashOfChannel * response.channel);
            return testing::AnswerWith(response);
        }
        if (call.requestHeader.operation != test::kGetUpdates) {
            return {};
        }
        const auto request = call.As<qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req>();
        const auto ids = IdsOf(request->channel, request->kind);
        const std::size_t piece = NextPiece(request->channel, request->kind);
        qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp response{};
        if (piece >= ids.size()) {
            response.sessionStatus = 1;
            return testing::AnswerWith(response);
        }
        response.updates.identifiers = {0, sizeof(ZamId)};
        return testing::AnswerWith(
            response, {reinterpret_cast<const char*>(ids[piece].data()), sizeof(ZamId)});
    }

    static constexpr std::int64_t kHashOfChannel = 1'000'000'007;

private:
    std::size_t NextPiece(std::int64_t channel, std::uint32_t kind) {
        const std::lock_guard lock(mutex_);
        return given_[{channel, kind}]++;
    }

    std::atomic<std::int64_t> nextChannel_{1};
    std::mutex mutex_;  // guards what follows; a leaf
    std::map<std::pair<std::int64_t, std::uint32_t>, std::size_t> given_;
};

TEST(ConcurrentTransfers, OfTheUpdatesStatusGoOnTogetherAndDoNotMix) {
    ProviderRig rig;
    ConcurrentUpdates service;
    Meeting meeting;
    std::atomic<int> missed{0};
    rig.transport.SetResponder([&](const auto& call) {
        // Every call of one transfer is under way together with one of the other.
        missed += missed == 0 && !meeting.Meet() ? 1 : 0;
        return service.Answer(call);
    });
    std::array<std::vector<std::pair<unsigned long, ZamUpdatesStatus>>, kThreads> given;
    RunThreads([&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            auto& status = given[static_cast<std::size_t>(thread)].emplace_back();
            EXPECT_EQ(rig.proxy.GetZamUpdatesStatus(status), 0);
        }
    });
    EXPECT_EQ(missed, 0) << "one transfer waited for the other";
    std::set<std::int64_t> channels;
    for (const auto& ofThread : given) {
        for (const auto& [hash, lists] : ofThread) {
            const auto channel =
                static_cast<std::int64_t>(hash) / ConcurrentUpdates::kHashOfChannel;
            channels.insert(channel);
            EXPECT_EQ(lists,
                      (ZamUpdatesStatus{IdsOf(channel, 0), IdsOf(channel, 1), IdsOf(channel, 2)}));
        }
    }
    EXPECT_EQ(channels.size(), std::size_t{kThreads * kRounds}) << "two transfers got one result";
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

TEST(ConcurrentTransfers, GoOnWhileAnotherCallOfTheProxyBlocks) {
    ProviderRig rig;
    ConcurrentProvider service;
    std::latch isBlocked(1);
    std::latch release(1);
    rig.transport.SetResponder([&](const auto& call) {
        if (call.requestHeader.operation == test::kGetPolicyHash) {
            isBlocked.count_down();
            release.wait();
            return testing::ScriptedAnswer{};
        }
        return service.Answer(call);
    });
    int blockedCode = -1;
    std::thread blocked([&] {
        unsigned long hash = 0;
        blockedCode = rig.proxy.GetPolicyHash(hash);
    });
    isBlocked.wait();
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_EQ(policy.second.tree, TreeOfThread(0));
    release.count_down();
    blocked.join();
    EXPECT_EQ(blockedCode, 0);
}

}  // namespace
}  // namespace zam_connector
