#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "channels/rebuild_meter.h"
#include "data/content_hash.h"
#include "data_client.h"
#include "endpoints/endpoint_catalog.h"
#include "endpoints/product_data_holder_endpoint.h"
#include "lanes.h"
#include "qx/endpoint_names.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "support/temporary_folder.h"
#include "tree_json/tree_json.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/server/listening_socket.h"

namespace zam_service {
namespace {

using zam_service::testing::Closed;
using zam_service::testing::DataClient;
using zam_service::testing::Flattened;
using zam_service::testing::kRefused;
using zam_service::testing::RawList;
using zam_test::TemporaryFolder;

/// The endpoint alone, with limits of the test's.
class UploadLimits : public ::testing::Test {
protected:
    UploadLimits() { ::setenv("ZAM_RUNTIME_DIR", runtime_.Path().c_str(), 1); }

    ~UploadLimits() override {
        server_.Stop();
        if (thread_.joinable()) {
            thread_.join();
        }
        workers_.Finish();
        history_.Close();
        do {
            server_.Context().restart();
        } while (server_.Context().poll() != 0);
    }

    void Begin(std::size_t perUpload, std::size_t perUser,
               std::size_t channelsPerUser = kMaxUserChannels) {
        channelQuota_.emplace(channelsPerUser);
        endpoint_.emplace(server_, ids_, *channelQuota_, uploads_, ChannelLimits{},
                          UploadQuota(perUpload, perUser));
        server_.Serve(RuleOf(EndpointOf("ProductDataHolder"), *endpoint_));
        server_.Accept(socket_.Release());
        thread_ = std::thread([this] { server_.Run(); });
        client_.emplace();
        logger_.Clear();  // of the endpoint that is not there
    }

    /// What a list takes of the quota.
    static std::size_t SizeOf(const RawList& records) {
        RebuildMeter meter;
        std::size_t bytes = 0;
        for (const auto& record : records) {
            bytes += meter.Add(record);
        }
        return bytes;
    }

    /// Three records that rebuild to a vector of so many values and some more.
    static RawList Gap(unsigned long values) {
        zuv::Vector two(2);
        RawList records = Flattened(zuv::TValue(two));
        records.back().path = std::to_string(values) + "/";
        return records;
    }

    Closed Upload(const RawList& records, int status) {
        const std::int64_t channel = client_->OpenSetSettings();
        EXPECT_EQ(client_->Send(channel, records), status);
        return client_->CloseUpload(channel);
    }

    bool Logged(const std::string& text) const {
        for (const auto& record : logger_.Records()) {
            if (record.level == 4 && record.text == text) {
                return true;
            }
        }
        return false;
    }

    zam_connector::testing::RecordingLogger logger_;
    TemporaryFolder data_;
    TemporaryFolder runtime_;
    zam_platform::RuntimeDirectory directory_{runtime_.Path()};
    zam_platform::ListeningSocket socket_{directory_, qx::kConnectorService, false};
    FolderFiles files_{data_.Path()};
    zam_platform::Server server_{{}, {.ownUser = ::geteuid(), .group = {}}, {}};
    zam_platform::WorkerPool workers_{1, kLaneCount, kMaxJobs};
    History history_{server_.Context(), workers_, files_};
    UploadStore uploads_{server_.Context(), workers_, files_, history_};
    ChannelIds ids_;
    std::optional<ChannelQuota> channelQuota_;
    std::optional<ProductDataHolderEndpoint> endpoint_;
    std::optional<DataClient> client_;
    std::thread thread_;
};

TEST_F(UploadLimits, TakeTheGapThatFillsTheLimitAndRefuseTheNextLarger) {
    const std::size_t limit = SizeOf(Gap(1000));
    Begin(limit, 10 * limit);
    const Closed closed = Upload(Gap(1000), 0);
    EXPECT_EQ(closed.code, 0);
    const zuv::TValue stored =
        zam_connector::tree_json::Read(data_.Read("uploads/settings.json"), "settings.json");
    EXPECT_EQ(stored.Get<zuv::Vector>().size(), 1001U);

    EXPECT_EQ(Upload(Gap(1001), -2), kRefused);
    EXPECT_TRUE(Logged(fmt::format("settings upload: it would take {} bytes of memory, limit {}",
                                   SizeOf(Gap(1001)), limit)));
    EXPECT_EQ(HashOf(stored), closed.hash) << "the upload before stays";
    EXPECT_EQ(data_.Read("uploads/history.jsonl").find('\n'),
              data_.Read("uploads/history.jsonl").size() - 1);
}

TEST_F(UploadLimits, AreKeptToTheByte) {
    RawList records = Flattened(zuv::Map{{"text", std::string(500, 't')}});
    const std::size_t size = SizeOf(records);
    Begin(size, size);
    EXPECT_EQ(Upload(records, 0).code, 0);
    records.back().path += "/";  // no tree either, but what counts is that it is a byte longer
    EXPECT_EQ(Upload(records, -2), kRefused);
    EXPECT_TRUE(Logged(fmt::format("settings upload: it would take {} bytes of memory, limit {}",
                                   SizeOf(records), size)));
}

TEST_F(UploadLimits, CountWhatControlCharactersTakeInTheFile) {
    const std::string controls(100'000, '\x01');
    // Room for the text twice, but not for the six bytes that stand for each character.
    Begin(500'000, 1'000'000);
    EXPECT_EQ(Upload(Flattened(zuv::Map{{"text", std::string(100'000, 't')}}), 0).code, 0);
    const std::string before = data_.Read("uploads/settings.json");
    const std::string history = data_.Read("uploads/history.jsonl");
    EXPECT_EQ(Upload(Flattened(zuv::Map{{"text", controls}}), -2), kRefused);
    EXPECT_EQ(data_.Read("uploads/settings.json"), before);
    EXPECT_EQ(data_.Read("uploads/history.jsonl"), history) << "nothing was written";
}

TEST_F(UploadLimits, CountAllUploadsOfAUserTogether) {
    const RawList first = Gap(100);
    const RawList second = Gap(50);
    const std::size_t both = SizeOf(first) + SizeOf(second);
    Begin(both, both);
    const std::int64_t open = client_->OpenEulas();
    EXPECT_EQ(client_->Send(open, first), 0);
    EXPECT_EQ(Upload(Gap(51), -2), kRefused);
    EXPECT_TRUE(
        Logged(fmt::format("settings upload: the uploads of user {} would take {} bytes of memory, "
                           "limit {}",
                           ::geteuid(), SizeOf(first) + SizeOf(Gap(51)), both)));
    EXPECT_EQ(Upload(second, 0).code, 0);
    EXPECT_EQ(client_->CloseUpload(open).code, 0);
    EXPECT_EQ(Upload(first, 0).code, 0) << "what ended is given back";
}

TEST_F(UploadLimits, GiveTheSharesOfLargeUploadsBackWhenTheyAreGone) {
    zuv::Vector many(3000);
    const RawList records = Flattened(zuv::TValue(std::move(many)));
    Begin(2 * SizeOf(records), 2 * SizeOf(records));
    const auto sendAll = [&](std::int64_t channel) {
        int status = 0;
        for (std::size_t first = 0; first < records.size() && status == 0; first += 100) {
            const auto begin = records.begin() + static_cast<std::ptrdiff_t>(first);
            const auto count = std::min<std::size_t>(100, records.size() - first);
            status = client_->Send(channel, {begin, begin + static_cast<std::ptrdiff_t>(count)});
        }
        return status;
    };
    const std::int64_t failing = client_->OpenEulas();
    const std::int64_t failingToo = client_->OpenUpdates();
    ASSERT_EQ(sendAll(failing), 0);
    ASSERT_EQ(sendAll(failingToo), 0);
    // The first is on its way to its end when the second comes.
    std::promise<void> release;
    ASSERT_TRUE(workers_.Post(kUploadLane, [&] { release.get_future().wait(); }));
    for (const std::int64_t channel : {failing, failingToo}) {
        EXPECT_EQ(client_->Send(channel, {}), -1) << "an empty piece";
    }
    EXPECT_EQ(client_->CloseUpload(failing), kRefused);
    EXPECT_EQ(client_->CloseUpload(failingToo), kRefused);
    release.set_value();
    // One record, whose end is no more than its close.
    RawList probe;
    for (std::size_t bytes = 1000; SizeOf(probe) <= SizeOf(records) * 5 / 4; bytes += 1000) {
        probe = Flattened(zuv::TValue(std::string(bytes, 'x')));
    }
    ASSERT_LE(SizeOf(probe), 2 * SizeOf(records));
    EXPECT_TRUE(zam_test::Eventually([&] {
        const std::int64_t next = client_->OpenUpdates();
        const int status = client_->Send(next, probe);
        client_->CloseUpload(next);
        return status == 0;
    }));
}

TEST_F(UploadLimits, KeepNoAbandonedUploadUnansweredWhenItsUserHasNoPlaceLeft) {
    Begin(1000, 1000);
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    while (workers_.Post(kUploadLane, ::geteuid(), [released] { released.wait(); })) {
    }
    EXPECT_EQ(client_->AbandonUpload(client_->OpenEulas()), (Closed{0, 0, kAbsentHash}));
    release.set_value();
}

TEST_F(UploadLimits, RefuseChannelsBeyondThoseOfTheUser) {
    Begin(kMaxUploadBytes, kMaxUserUploadBytes, 1);
    const std::int64_t first = client_->OpenEulas();
    EXPECT_EQ(client_->OpenStatus(), -2);
    EXPECT_EQ(client_->CloseUpload(first).code, 0);
    EXPECT_EQ(client_->OpenStatus(), 0);
}

TEST_F(UploadLimits, CountGapsAcrossPieces) {
    const RawList whole = Gap(40);
    Begin(SizeOf(whole) - 1, SizeOf(whole));
    const std::int64_t channel = client_->OpenUpdates();
    EXPECT_EQ(client_->Send(channel, {whole[0]}), 0);
    EXPECT_EQ(client_->Send(channel, {whole[1]}), 0);
    EXPECT_EQ(client_->Send(channel, {whole[2]}), -2);
    EXPECT_EQ(client_->Send(channel, {whole[2]}), -1) << "a piece has failed";
    EXPECT_EQ(client_->CloseUpload(channel), kRefused);
}

TEST_F(UploadLimits, RefuseAGapBeyondAllNumbers) {
    Begin(kMaxUploadBytes, kMaxUserUploadBytes);
    EXPECT_EQ(Upload(Gap(static_cast<unsigned long>(-1)), -2), kRefused);
    EXPECT_TRUE(
        Logged(fmt::format("settings upload: it would take {} bytes of memory, limit 536870912",
                           static_cast<std::size_t>(-1))));
}

TEST_F(UploadLimits, KeepTheLargestRebuildBelowThem) {
    // Three records that a rebuild alone would still turn into a GiB.
    Begin(kMaxUploadBytes, kMaxUserUploadBytes);
    EXPECT_EQ(Upload(Gap(zam_connector::common::kMaxFilledElements), -2), kRefused);
}

}  // namespace
}  // namespace zam_service
