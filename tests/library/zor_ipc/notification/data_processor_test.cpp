#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "data_handler/zam_data_processor.h"
#include "qel/exception.h"
#include "support/result_codes.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_data_provider.h"

namespace zam_connector::proxy {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogRecord;
using testing::ScriptedDataProvider;

using test::kUnspecified;

/// A manager that journals what it is told, with a number out of each value.
class RecordingDataManager final : public IZamDataManager {
public:
    using Hash = std::uint64_t;

    void NotifyPolicy(const std::pair<Hash, ZamPolicy>& policy) override {
        Told("policy", policy.first);
    }
    void NotifySettings(const std::pair<Hash, ZamProductSettings>& settings) override {
        Told("settings", settings.first);
    }
    void NotifySubscriptions(const std::pair<Hash, ZamSubscriptions>& subscriptions) override {
        Told("subscriptions", subscriptions.first + subscriptions.second.events.size());
    }
    void NotifyZamServerData(const ZamServerData& serverData) override {
        Told("server data", serverData.versionMajor);
    }
    void NotifyReserveCert(const std::string& cert) override { Told("certificate " + cert, 0); }
    void NotifyZamUpdatesStatus(const std::pair<Hash, ZamUpdatesStatus>& status) override {
        Told("updates", status.first + status.second.approved.size());
    }
    void NotifySettingsSynced(const Hash& hash) override { Told("synced", hash); }

    bool IsPolicySubscriberExist() const override { return Asked(1); }
    bool IsSettingsSubscriberExist() const override { return Asked(2); }
    bool IsSubscriptionsSubscriberExist() const override { return Asked(3); }
    bool IsZamServerDataSubscriberExist() const override { return Asked(4); }
    bool IsReserveCertSubscriberExist() const override { return Asked(5); }
    bool IsZamUpdatesStatusExist() const override { return Asked(6); }
    bool IsSettingsSyncedSubscriberExist() const override { return Asked(7); }

    unsigned int subscribed = 0;  ///< the kind that there is an observer of; 0 for none
    mutable std::vector<unsigned int> asked;
    std::vector<std::string> told;
    std::function<void()> onTold;

private:
    bool Asked(unsigned int kind) const {
        asked.push_back(kind);
        return kind == subscribed;
    }
    void Told(const std::string& what, Hash number) {
        told.push_back(what + " " + std::to_string(number));
        if (onTold) {
            onTold();
        }
    }
};

/// A kind, what it tells of the data below, and its text for a failure without the number.
struct Row {
    unsigned int kind;
    const char* told;
    const char* failure;
    const char* end;
};

constexpr Row kRows[] = {
    {1, "policy 11", "ZamDataProcessor: policy wasn't gotten - error ", "!"},
    {2, "settings 22", "ZamDataProcessor: settings wasn't gotten - error ", "!"},
    {3, "subscriptions 34", "ZamDataProcessor: subscriptions wasn't gotten - error ", "!"},
    {4, "server data 44", "ZamDataProcessor: ZamServerData wasn't gotten - error ", "!"},
    {5, "certificate pem 0", "ZamDataProcessor: failed to get ZamCertificate, error ", "!"},
    {6, "updates 67", "ZamDataProcessor: failed to get ZamUpdatesStatus, error ", "!"},
    {7, "synced 77", "ZamDataProcessor: failed to get GetSyncedSettingsHash, error ", "!"},
};

class DataProcessor : public ::testing::Test {
protected:
    DataProcessor() { SetResult(0); }

    void SetResult(int result) {
        ScriptedDataProvider::Data data;
        data.policy.first = 11;
        data.productSettings.first = 22;
        data.subscriptions.first = 33;
        data.subscriptions.second.events["event"] = {};
        data.serverData.versionMajor = 44;
        data.reserveCert = "pem";
        data.updatesStatus.first = 66;
        data.updatesStatus.second.approved.emplace_back();
        data.syncedSettingsHash = 77;
        data.result = result;
        provider_->Set(std::move(data));
    }

    void ExpectLogged(const std::string& text) {
        const std::vector<LogRecord> records = logger_.Records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].level, 4);
        EXPECT_EQ(records[0].file, "zam_data_processor");
        EXPECT_EQ(records[0].function, "ProcessData");
        EXPECT_EQ(records[0].text, text);
        logger_.Clear();
    }

    testing::RecordingLogger logger_;
    std::shared_ptr<ScriptedDataProvider> provider_ = std::make_shared<ScriptedDataProvider>();
    std::shared_ptr<RecordingDataManager> manager_ = std::make_shared<RecordingDataManager>();
    ZamDataProcessor processor_{manager_, provider_};
};

TEST_F(DataProcessor, RefusesToBeWithoutADataProvider) {
    EXPECT_THROW(ZamDataProcessor(manager_, nullptr), qel::CheckFailedException);
    EXPECT_THROW(ZamDataProcessorFactory(nullptr), qel::CheckFailedException);
}

TEST_F(DataProcessor, TellsWhatItFetches) {
    for (const int result : {0, 1}) {
        SetResult(result);
        for (const Row& row : kRows) {
            SCOPED_TRACE(row.kind);
            manager_->subscribed = row.kind;
            EXPECT_EQ(processor_.ProcessData(row.kind), 0);
            EXPECT_THAT(manager_->told, ElementsAre(row.told));
            EXPECT_THAT(manager_->asked, ElementsAre(row.kind));
            manager_->told.clear();
            manager_->asked.clear();
        }
    }
    EXPECT_EQ(provider_->Calls(), 14);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataProcessor, FetchesNothingForWhichNobodyAsked) {
    for (const Row& row : kRows) {
        manager_->subscribed = row.kind % 7 + 1;  // to another kind
        EXPECT_EQ(processor_.ProcessData(row.kind), 0);
    }
    EXPECT_EQ(provider_->Calls(), 0);
    EXPECT_THAT(manager_->told, IsEmpty());
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataProcessor, IgnoresKindsThatItDoesNotKnow) {
    for (const unsigned int kind : {0U, 8U, 9U, 256U, 257U, UINT_MAX}) {
        EXPECT_EQ(processor_.ProcessData(kind), 0);
    }
    EXPECT_THAT(manager_->asked, IsEmpty());
    EXPECT_EQ(provider_->Calls(), 0);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(DataProcessor, HandsOnTheCodeOfAFetchThatFailed) {
    for (const int code : {-5, -1, kUnspecified, INT_MIN}) {
        SetResult(code);
        for (const Row& row : kRows) {
            SCOPED_TRACE(row.kind);
            manager_->subscribed = row.kind;
            EXPECT_EQ(processor_.ProcessData(row.kind), code);
            ExpectLogged(row.failure + std::to_string(code) + row.end);
        }
    }
    EXPECT_THAT(manager_->told, IsEmpty());
}

TEST_F(DataProcessor, FetchesAgainAfterAFailure) {
    manager_->subscribed = 1;
    SetResult(-5);
    EXPECT_EQ(processor_.ProcessData(1), -5);
    SetResult(0);
    EXPECT_EQ(processor_.ProcessData(1), 0);
    EXPECT_THAT(manager_->told, ElementsAre("policy 11"));
}

TEST_F(DataProcessor, FailsWithoutAManager) {
    manager_.reset();
    for (const unsigned int kind : {0U, 1U, 7U, 9U}) {
        EXPECT_EQ(processor_.ProcessData(kind), kUnspecified);
        ExpectLogged("ZamDataProcessor: dataManger weak ptr is expired!");
    }
    EXPECT_EQ(provider_->Calls(), 0);
}

TEST_F(DataProcessor, HoldsTheManagerWhileItTells) {
    const std::weak_ptr<RecordingDataManager> weak = manager_;
    bool alive = false;
    manager_->subscribed = 1;
    manager_->onTold = [&] {
        manager_.reset();
        alive = !weak.expired();
    };
    EXPECT_EQ(processor_.ProcessData(1), 0);
    EXPECT_TRUE(alive);
    EXPECT_TRUE(weak.expired());
}

TEST_F(DataProcessor, ThrowsWhatAnObserverThrows) {
    manager_->subscribed = 1;
    manager_->onTold = [] { throw std::runtime_error("of the test"); };
    EXPECT_THROW(processor_.ProcessData(1), std::runtime_error);
}

TEST_F(DataProcessor, IsMadeByItsFactory) {
    auto factory = std::make_unique<ZamDataProcessorFactory>(provider_);
    const auto processor = factory->CreateDataProcessor(manager_);
    const auto withoutManager = factory->CreateDataProcessor({});
    factory.reset();
    manager_->subscribed = 7;
    EXPECT_EQ(processor->ProcessData(7), 0);
    EXPECT_THAT(manager_->told, ElementsAre("synced 77"));
    EXPECT_EQ(withoutManager->ProcessData(7), kUnspecified);
    EXPECT_EQ(manager_.use_count(), 1);
}

}  // namespace
}  // namespace zam_connector::proxy
