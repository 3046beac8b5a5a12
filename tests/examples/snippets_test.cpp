// The pieces of programs that stand in the documents, as they stand there: each file that is
// included below is cut out of one when the tests are built.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <utility>

#include "tree_json/tree_json.h"
#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/in_process_service.h"
#include "zuv/zuv.h"

#include "deadlines_fetch.inc"

namespace {

using zam_connector::testing::InProcessService;

/// Takes what is written to `std::cout`, by observers on threads of the library too.
class PrintedText : private std::streambuf {
public:
    PrintedText() : before_(std::cout.rdbuf(this)) {}
    PrintedText(const PrintedText&) = delete;
    PrintedText& operator=(const PrintedText&) = delete;
    ~PrintedText() override { std::cout.rdbuf(before_); }

    std::string Text() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return text_;
    }

    bool WaitForLine() {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(60),
                                 [this] { return text_.find('\n') != std::string::npos; });
    }

private:
    int_type overflow(int_type character) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        text_ += traits_type::to_char_type(character);
        changed_.notify_all();
        return character;
    }

    std::streambuf* before_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
};

TEST(SnippetOfTheReadme, MakesAsksAndChangesATree) {
    PrintedText printed;
    {
#include "readme_trees.inc"
        EXPECT_EQ(files, 100);
    }
    EXPECT_EQ(printed.Text(),
              "0 levels down: {\"enabled\": true, \"limits\": {\"files\": int32 100, "
              "\"rate\": double 2.5}, \"servers\": [\"alpha.example\", \"beta.example\", "
              "\"gamma.example\"]}\n"
              "1 levels down: true\n"
              "1 levels down: {\"files\": int32 100, \"rate\": double 2.5}\n"
              "2 levels down: int32 100\n"
              "2 levels down: double 2.5\n"
              "1 levels down: [\"alpha.example\", \"beta.example\", \"gamma.example\"]\n"
              "2 levels down: \"alpha.example\"\n"
              "2 levels down: \"beta.example\"\n"
              "2 levels down: \"gamma.example\"\n");
}

class SnippetOfAnObserver : public ::testing::Test {
protected:
    SnippetOfAnObserver() {
        ::setenv("ZAM_RUNTIME_DIR", service_.RuntimeDirectory().c_str(), 1);
        service_.Start();
        EXPECT_EQ(zam_connector::CreateZamConnector(connector_, {}), 0);
    }

    /// An observer that has subscribed prints the hash of a new policy.
    void ExpectHashOfANewPolicy(PrintedText& printed) const {
        service_.WriteData("policy.json", R"({"a": 1})");
        EXPECT_TRUE(printed.WaitForLine());
        std::shared_ptr<zam_connector::IZamDataProvider> provider;
        EXPECT_EQ(connector_->GetDataProvider(provider), 0);
        unsigned long hash = 0;
        EXPECT_EQ(provider->GetPolicyHash(hash), 0);
        EXPECT_EQ(printed.Text(), "policy " + std::to_string(hash) + '\n');
    }

    InProcessService service_;
    std::shared_ptr<zam_connector::IZamConnector> connector_;
};

TEST_F(SnippetOfAnObserver, InTheReadmePrintsTheHashOfANewPolicy) {
    const auto& connector = connector_;
    PrintedText printed;
#include "readme_changes.inc"
    ExpectHashOfANewPolicy(printed);
    EXPECT_EQ(subscriber->Unsubscribe(cookie), 0);
}

TEST_F(SnippetOfAnObserver, OfTheContractPrintsTheHashOfANewPolicy) {
    std::shared_ptr<zam_connector::IZamDataChangeSubscriber> subscriber;
    ASSERT_EQ(connector_->GetDataChangeSubscriber(subscriber), 0);
    PrintedText printed;
#include "notification_observer.inc"
    ExpectHashOfANewPolicy(printed);
    EXPECT_EQ(subscriber->Unsubscribe(cookie), 0);
}

TEST(SnippetOfDeadlines, FetchesAPolicyUntilItIsCancelled) {
    InProcessService service;
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    service.WriteData("policy.json", R"({"a": 1})");
    service.Start();
    std::shared_ptr<zam_connector::IZamConnector> connector;
    ASSERT_EQ(zam_connector::CreateZamConnector(connector, {}), 0);
    std::shared_ptr<zam_connector::IZamDataProvider> provider;
    ASSERT_EQ(connector->GetDataProvider(provider), 0);
    zam_connector::Canceller canceller;
    std::pair<unsigned long, zam_connector::ZamPolicy> policy;
    EXPECT_EQ(FetchPolicy(*provider, canceller, policy), 0);
    EXPECT_EQ(policy.second.tree, zuv::TValue(zuv::Map{{"a", 1L}}));
    canceller.Cancel();
    EXPECT_LT(FetchPolicy(*provider, canceller, policy), 0);
    EXPECT_EQ(zam_connector::LastTransportStatus().failure,
              zam_connector::TransportFailure::Cancelled);
}

// The snippet reads the tree back under its own name.
#pragma GCC diagnostic ignored "-Wshadow"

TEST(SnippetOfTypedJson, WritesATreeAndReadsItBack) {
    const zuv::TValue tree = zuv::Map{{"port", 443}};
    const zuv::TValue& before = tree;
    {
#include "typed_json.inc"
        EXPECT_EQ(text, "{\n  \"port\": {\"$int32\": 443}\n}");
        EXPECT_EQ(tree, before);
    }
}

}  // namespace
