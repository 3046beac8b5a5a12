#include "data/rereader.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <new>
#include <string>
#include <utility>

#include "run_until.h"

namespace zam_service {
namespace {

using zam_service::testing::RunUntil;

class RereaderTest : public ::testing::Test {
protected:
    ~RereaderTest() override {
        reader_.Close();
        workers_.Finish();
        loop_.restart();
        loop_.poll();
    }

    bool Publishes(int times) {
        return RunUntil(loop_, [this, times] { return published_ == times; });
    }

    /// Keeps every job that is read from ending until `release_` is set.
    void Hold() { isHeld_ = true; }

    std::atomic<bool> isHeld_ = false;
    std::atomic<int> reads_ = 0;
    std::atomic<int> lacks_ = 0;  ///< readings to come without memory
    std::promise<void> release_;
    const std::shared_future<void> released_ = release_.get_future().share();
    int published_ = 0;
    bool canRead_ = true;
    std::function<void()> onPublish_;
    asio::io_context loop_;
    zam_platform::WorkerPool workers_{2, kLaneCount, 2};
    Rereader reader_{loop_, workers_, kReadLane,
                     [this] {
                         ++reads_;
                         if (lacks_ > 0 && lacks_-- > 0) {
                             throw std::bad_alloc();
                         }
                         if (isHeld_) {
                             released_.wait();
                         }
                         return [this] {
                             ++published_;
                             if (onPublish_) {
                                 onPublish_();
                             }
                         };
                     },
                     [this] { return canRead_; }};
};

TEST_F(RereaderTest, ReadsOnceForEachChange) {
    reader_.Start();
    ASSERT_TRUE(Publishes(1));
    reader_.Start();
    ASSERT_TRUE(Publishes(2));
    EXPECT_EQ(reads_, 2);
}

TEST_F(RereaderTest, ReadsOnceMoreForAllChangesDuringAReading) {
    Hold();
    reader_.Start();
    for (int change = 0; change < 3; ++change) {
        reader_.Start();
    }
    release_.set_value();
    ASSERT_TRUE(Publishes(2));
    workers_.Finish();
    loop_.restart();
    loop_.poll();
    EXPECT_EQ(published_, 2);
    EXPECT_EQ(reads_, 2);
}

TEST_F(RereaderTest, ReadsAgainForAChangeThatItsOwnPublishingTells) {
    onPublish_ = [this] {
        if (published_ == 1) {
            reader_.Start();
        }
    };
    reader_.Start();
    ASSERT_TRUE(Publishes(2));
    EXPECT_EQ(reads_, 2);
}

TEST_F(RereaderTest, ReadsLaterWhatMemoryWasWantingFor) {
    lacks_ = 1;
    reader_.Start();
    ASSERT_TRUE(Publishes(1));
    EXPECT_EQ(reads_, 2);
}

TEST_F(RereaderTest, ReadsAgainLaterWhatCouldNotBePublished) {
    bool hasThrown = false;
    onPublish_ = [&hasThrown] {
        if (!std::exchange(hasThrown, true)) {
            throw std::bad_alloc();
        }
    };
    reader_.Start();
    ASSERT_TRUE(Publishes(2));
    EXPECT_EQ(reads_, 2);
}

TEST_F(RereaderTest, IsNotRefusedWhileUsersTakeEveryJobThereIs) {
    constexpr uid_t kUser = 1000;
    for (uid_t job = 0; job < 2; ++job) {
        ASSERT_TRUE(
            workers_.Post(kTreeLane, kUser + job, [released = released_] { released.wait(); }));
    }
    reader_.Start();
    ASSERT_TRUE(Publishes(1));
    release_.set_value();
}

TEST_F(RereaderTest, ReadsNothingWhileItCannot) {
    canRead_ = false;
    reader_.Start();
    loop_.poll();
    EXPECT_EQ(reads_, 0);
    canRead_ = true;
    reader_.Start();
    ASSERT_TRUE(Publishes(1));
    EXPECT_EQ(reads_, 1);
}

TEST_F(RereaderTest, PublishesWhatIsBeingReadWhenItIsClosedAndReadsNoMore) {
    Hold();
    reader_.Start();
    reader_.Start();
    reader_.Close();
    release_.set_value();
    ASSERT_TRUE(Publishes(1));
    reader_.Start();
    workers_.Finish();
    loop_.restart();
    loop_.poll();
    EXPECT_EQ(published_, 1);
    EXPECT_EQ(reads_, 1);
}

}  // namespace
}  // namespace zam_service
