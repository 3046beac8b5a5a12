#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "support/allocations.h"
#include "support/quiet_logger.h"
#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/in_process_service.h"

// Every operation of library and service with its first allocation failing, its second, and so on:
// whoever lacks memory says so, and goes on.

namespace zam_connector::testing {
namespace {

using ::testing::AnyOf;
using ::testing::Ge;
using zam_test::FailingThreads;

constexpr char kLongText[] = "a text that is too long to be held inside of a string";

std::atomic<long> g_liveBlocks{0};

/// Blocks of memory that are taken and not given back, by the whole process.
void CountLiveBlocks() {
    zam_test::g_onAllocate = [](const void* /*block*/, std::size_t /*bytes*/) { ++g_liveBlocks; };
    zam_test::g_onFree = [](const void* block) { g_liveBlocks -= block == nullptr ? 0 : 1; };
}

class DeafObserver final : public IPolicyObserver, public IZamConnStateObserver {
public:
    int OnChange(const std::pair<std::uint64_t, ZamPolicy>& /*policy*/) override { return 0; }
    int OnChange(const ZamConnectorState& /*state*/) override { return 0; }
};

struct Operation {
    const char* name;
    std::function<int()> call;
};

class WantOfMemory : public ::testing::TestWithParam<bool> {
protected:
    WantOfMemory() {
        ::setenv("ZAM_RUNTIME_DIR", service_.RuntimeDirectory().c_str(), 1);
        // More than a socket takes at once.
        service_.WriteData("policy.json",
                           R"({"b": ["x", 2], "a": ")" + std::string(400'000, 'x') + "\"}");
        service_.WriteData("files/name", "content");
        service_.Start();
        EXPECT_EQ(CreateZamConnector(connector_, {}), 0);
        connector_->GetZamController(controller_);
        connector_->GetSettingsHolder(settings_);
        connector_->GetCommandSender(sender_);
        connector_->GetDataProvider(provider_);
        connector_->GetProductDataHolder(holder_);
        connector_->GetFileDownloader(files_);
        connector_->GetClientCertsDownloader(certs_);
        connector_->GetDataChangeSubscriber(dataSubscriber_);
        connector_->GetStateChangeSubscriber(stateSubscriber_);
    }

    /// Calls each operation until it gets through, with one allocation more each time before those
    /// of `who` fail.
    void Sweep(FailingThreads who, const std::vector<Operation>& operations) {
        zam_test::g_isMarkedThread = true;
        zam_test::g_keepFailing = GetParam();
        for (const Operation& operation : operations) {
            SCOPED_TRACE(operation.name);
            ASSERT_GE(operation.call(), 0);
            for (int allowed = 0;; ++allowed) {
                zam_test::g_failed = false;
                zam_test::g_failingThreads = who;
                zam_test::g_allocationsLeft = allowed;
                const int code = CodeOf(operation);
                zam_test::g_allocationsLeft = -1;
                if (who == FailingThreads::Unmarked) {
                    EXPECT_THAT(code, AnyOf(Ge(0), kUnspecified, kInvalidResult, kLacksMemory))
                        << "what lacks memory is no mistake of the client's";
                }
                // The connection of the call may be the price, and be closed behind the answer.
                ZamConnectorState state{};
                ASSERT_TRUE(controller_->GetState(state) == 0 || controller_->GetState(state) == 0)
                    << "the next call works";
                if (!zam_test::g_failed) {
                    ASSERT_GE(code, 0);
                    break;
                }
                ASSERT_LT(allowed, 10'000);
            }
            ASSERT_GE(operation.call(), 0) << "with memory it works as before";
        }
    }

    /// An argument that is passed by value may want memory before the call.
    static int CodeOf(const Operation& operation) {
        try {
            return operation.call();
        } catch (const std::bad_alloc&) {
            return -1;
        }
    }

    std::vector<Operation> Calls() {
        return {
            {"Start", [this] { return StartAndStop(); }},
            {"GetState",
             [this] {
                 ZamConnectorState state{};
                 return controller_->GetState(state);
             }},
            {"Set", [this] { return settings_->Set({}); }},
            {"Get",
             [this] {
                 ZamConnectorSettings settings;
                 return settings_->Get(settings);
             }},
            {"PostZamEvent", [this] { return sender_->PostZamEvent(event_); }},
            {"ScheduleSync",
             [this] {
                 const int code = sender_->ScheduleSync();
                 return code == kNotStarted ? 0 : code;
             }},
            {"GetPolicy", [this] { return Fetch<ZamPolicy>(&IZamDataProvider::GetPolicy); }},
            {"GetProductSettings",
             [this] { return Fetch<ZamProductSettings>(&IZamDataProvider::GetProductSettings); }},
            {"GetSubscriptions",
             [this] { return Fetch<ZamSubscriptions>(&IZamDataProvider::GetSubscriptions); }},
            {"GetZamUpdatesStatus",
             [this] { return Fetch<ZamUpdatesStatus>(&IZamDataProvider::GetZamUpdatesStatus); }},
            {"GetZamServerData",
             [this] {
                 ZamServerData data;
                 return provider_->GetZamServerData(data);
             }},
            {"GetZamReserveCert",
             [this] {
                 std::string cert;
                 return provider_->GetZamReserveCert(cert);
             }},
            {"GetPolicyHash", [this] { return Hash(&IZamDataProvider::GetPolicyHash); }},
            {"GetSettingsHash", [this] { return Hash(&IZamDataProvider::GetSettingsHash); }},
            {"GetSubscriptionHash",
             [this] { return Hash(&IZamDataProvider::GetSubscriptionHash); }},
            {"GetZamUpdatesStatusHash",
             [this] { return Hash(&IZamDataProvider::GetZamUpdatesStatusHash); }},
            {"GetSyncedSettingsHash",
             [this] { return Hash(&IZamDataProvider::GetSyncedSettingsHash); }},
            {"SetAppInfo", [this] { return holder_->SetAppInfo(appInfo_); }},
            {"SetAppInfoDynamic", [this] { return holder_->SetAppInfoDynamic({}); }},
            {"SetSettings",
             [this] {
                 unsigned long hash = 0;
                 return holder_->SetSettings(tree_, hash);
             }},
            {"SetAppEulas",
             [this] {
                 unsigned long hash = 0;
                 return holder_->SetAppEulas(eulas_, hash);
             }},
            {"SetAppUpdates",
             [this] {
                 unsigned long hash = 0;
                 return holder_->SetAppUpdates(updates_, hash);
             }},
            {"GetFileInfo",
             [this] {
                 FileInfo info;
                 return files_->GetFileInfo({"name"}, info);
             }},
            {"GetFileChunk",
             [this] {
                 FileChunk chunk;
                 return files_->GetFileChunk({"name", 0, 0}, chunk);
             }},
            {"GetClientCertificates",
             [this] {
                 std::vector<ClientCertInfo> certs;
                 return certs_->GetClientCertificates({}, certs);
             }},
            {"CreateZamConnector",
             [] {
                 std::shared_ptr<IZamConnector> another;
                 return CreateZamConnector(another, {});
             }},
            {"CreateZamFileDownloader",
             [] {
                 std::shared_ptr<IZamFileDownloader> another;
                 return CreateZamFileDownloader("", another);
             }},
            {"Canceller",
             [this] {
                 const Canceller canceller;
                 const Canceller::Scope scope(canceller);
                 ZamConnectorState state{};
                 return controller_->GetState(state);
             }},
            {"SubscribeOnPolicyChange",
             [this] {
                 SubscriptionCookie cookie;
                 const int code = dataSubscriber_->SubscribeOnPolicyChange(observer_, cookie);
                 return code == 0 ? dataSubscriber_->Unsubscribe(cookie) : code;
             }},
            {"SubscribeOnStateChange",
             [this] {
                 SubscriptionCookie cookie;
                 const int code = stateSubscriber_->SubscribeOnStateChange(observer_, cookie);
                 return code == 0 ? stateSubscriber_->Unsubscribe(cookie) : code;
             }},
        };
    }

    int StartAndStop() {
        ZamConnectionParameters parameters;
        parameters.serverAddress = kLongText;
        parameters.serverPort = 1;
        const int code = controller_->Start(parameters);
        const int stopped = controller_->Stop();
        return code < 0 ? code : stopped < 0 ? stopped : 0;
    }

    int Hash(int (IZamDataProvider::*get)(unsigned long&) noexcept) {
        unsigned long hash = 0;
        return (provider_.get()->*get)(hash);
    }

    template <typename Content>
    int Fetch(int (IZamDataProvider::*get)(std::pair<unsigned long, Content>&) noexcept) {
        std::pair<unsigned long, Content> content;
        return (provider_.get()->*get)(content);
    }

    /// The transport's failures among them.
    static constexpr int kUnspecified = static_cast<int>(0x8000004BU);
    static constexpr int kInvalidResult = static_cast<int>(0x80000071U);
    static constexpr int kLacksMemory = static_cast<int>(0x8000006CU);
    static constexpr int kNotStarted = static_cast<int>(0x80000063U);

    const std::string event_ = kLongText;
    const AppInfo appInfo_ = [] {
        AppInfo info;
        info.productId = kLongText;
        info.components = {{kLongText, "1"}};
        return info;
    }();
    /// More than a connection of the service has room for of its own.
    const ZamProductSettings tree_{zuv::Map{{"key", zuv::MakeVector(1, std::string(5000, 'x'))}}};
    const std::vector<AppEula> eulas_{{.id = {}, .releaseTime = {}, .text = kLongText}};
    const AppUpdates updates_ = [] {
        AppUpdates updates;
        updates.updates.emplace_back().name = kLongText;
        return updates;
    }();
    const std::shared_ptr<DeafObserver> observer_ = std::make_shared<DeafObserver>();
    zam_test::QuietLogger logger_;
    InProcessService service_;
    std::shared_ptr<IZamConnector> connector_;
    std::shared_ptr<IZamConnController> controller_;
    std::shared_ptr<IZamConnSettingsHolder> settings_;
    std::shared_ptr<IZamConnCommandSender> sender_;
    std::shared_ptr<IZamDataProvider> provider_;
    std::shared_ptr<IProductDataHolder> holder_;
    std::shared_ptr<IZamFileDownloader> files_;
    std::shared_ptr<IZamClientCertsDownloader> certs_;
    std::shared_ptr<IZamDataChangeSubscriber> dataSubscriber_;
    std::shared_ptr<IZamConnStateSubscriber> stateSubscriber_;
};

TEST_P(WantOfMemory, OfAClientFailsTheCallAndNothingElse) {
    Sweep(FailingThreads::Marked, Calls());
}

TEST_P(WantOfMemory, LeavesNothingBehind) {
    CountLiveBlocks();
    const auto sweepAll = [this] {
        Sweep(FailingThreads::Marked, Calls());
        Sweep(FailingThreads::Unmarked, Calls());
        // No connection, session or job of before is left when the service has ended.
        service_.Restart();
        return g_liveBlocks.load();
    };
    const long before = sweepAll();
    const long after = sweepAll();
    // What is kept once for the process, or grows by what it has seen, is a few blocks; each sweep
    // fails hundreds of calls.
    EXPECT_LT(after - before, 60);
}

TEST_P(WantOfMemory, OfTheServiceFailsTheCallAndNothingElse) {
    Sweep(FailingThreads::Unmarked, Calls());
}

INSTANTIATE_TEST_SUITE_P(Once, WantOfMemory, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(FromThenOn, WantOfMemory, ::testing::Values(true));

}  // namespace
}  // namespace zam_connector::testing
