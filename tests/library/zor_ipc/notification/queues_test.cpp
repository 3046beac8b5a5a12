#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <list>
#include <memory>
#include <set>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/unique_data_queue.h"
#include "library/zor_ipc/notification/thread_state.h"
#include "qor/utils/blocking_queue.h"

namespace zam_connector {
namespace {

using test::ThreadNumber;
using test::WaitUntilAsleep;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using StateQueue = qor::utils::BlockingQueue<int>;
using KindQueue = common::UniqueDataQueue<unsigned int>;

static_assert(!std::is_copy_constructible_v<StateQueue> && !std::is_copy_assignable_v<StateQueue>);
static_assert(!std::is_copy_constructible_v<KindQueue> && !std::is_copy_assignable_v<KindQueue>);

template <typename Queue>
struct ValueOf;
template <template <typename> class Queue, typename T>
struct ValueOf<Queue<T>> {
    using Type = T;
};

/// What both queues do alike.
template <typename Queue>
class QueueTest : public ::testing::Test {
protected:
    using Value = typename ValueOf<Queue>::Type;
    using Values = std::list<Value>;

    void Push(std::initializer_list<Value> values) {
        for (const Value value : values) {
            queue_->Push(value);
        }
    }

    Values PopAll() {
        Values values;
        queue_->PopAll(values);
        return values;
    }

    /// A thread that takes one batch.
    class Consumer {
    public:
        explicit Consumer(std::shared_ptr<Queue> queue)
            : thread_([this, queue = std::move(queue)] {
                  number_ = ThreadNumber();
                  queue->PopAll(values_);
              }) {}

        bool WaitUntilAsleep() { return test::WaitUntilAsleep(number_); }

        Values Take() {
            thread_.join();
            return values_;
        }

    private:
        std::atomic<pid_t> number_{0};
        Values values_;
        std::thread thread_;
    };

    std::shared_ptr<Queue> queue_ = std::make_shared<Queue>();
};

using Queues = ::testing::Types<StateQueue, KindQueue>;
TYPED_TEST_SUITE(QueueTest, Queues);

TYPED_TEST(QueueTest, IsOpenAtFirst) {
    EXPECT_FALSE(this->queue_->IsClosed());
}

TYPED_TEST(QueueTest, GivesAllInTheOrderOfArrival) {
    this->Push({5, 0, 7, 3});
    EXPECT_THAT(this->PopAll(), ElementsAre(5, 0, 7, 3));
}

TYPED_TEST(QueueTest, GivesEachValueOnce) {
    this->Push({5});
    EXPECT_THAT(this->PopAll(), ElementsAre(5));
    this->Push({6});
    EXPECT_THAT(this->PopAll(), ElementsAre(6));
}

TYPED_TEST(QueueTest, AppendsToWhatTheCallerHas) {
    typename TestFixture::Values values{9, 8};
    this->Push({8, 1});
    this->queue_->PopAll(values);
    EXPECT_THAT(values, ElementsAre(9, 8, 8, 1));
}

TYPED_TEST(QueueTest, TakesAValueAgainThatHasBeenPopped) {
    this->Push({4});
    this->PopAll();
    this->Push({4});
    EXPECT_THAT(this->PopAll(), ElementsAre(4));
}

TYPED_TEST(QueueTest, IsClosedAfterClose) {
    this->queue_->Close();
    EXPECT_TRUE(this->queue_->IsClosed());
    this->queue_->Close();
    EXPECT_TRUE(this->queue_->IsClosed());
}

TYPED_TEST(QueueTest, TakesNothingWhenItIsClosed) {
    this->queue_->Close();
    this->Push({1, 2});
    EXPECT_THAT(this->PopAll(), IsEmpty());
}

TYPED_TEST(QueueTest, GivesWhatItHeldWhenItWasClosed) {
    this->Push({1, 2});
    this->queue_->Close();
    this->Push({3});
    EXPECT_THAT(this->PopAll(), ElementsAre(1, 2));
    EXPECT_THAT(this->PopAll(), IsEmpty());
}

TYPED_TEST(QueueTest, LeavesTheCallersListAloneWhenItIsClosedAndEmpty) {
    typename TestFixture::Values values{9};
    this->queue_->Close();
    this->queue_->PopAll(values);
    EXPECT_THAT(values, ElementsAre(9));
}

TYPED_TEST(QueueTest, WakesAConsumerWithAValue) {
    typename TestFixture::Consumer consumer(this->queue_);
    ASSERT_TRUE(consumer.WaitUntilAsleep());
    this->Push({6});
    EXPECT_THAT(consumer.Take(), ElementsAre(6));
}

TYPED_TEST(QueueTest, WakesAConsumerWhenItIsClosed) {
    typename TestFixture::Consumer consumer(this->queue_);
    ASSERT_TRUE(consumer.WaitUntilAsleep());
    this->queue_->Close();
    EXPECT_THAT(consumer.Take(), IsEmpty());
}

TYPED_TEST(QueueTest, WakesAllConsumersWhenItIsClosed) {
    typename TestFixture::Consumer first(this->queue_);
    typename TestFixture::Consumer second(this->queue_);
    ASSERT_TRUE(first.WaitUntilAsleep());
    ASSERT_TRUE(second.WaitUntilAsleep());
    this->queue_->Close();
    EXPECT_THAT(first.Take(), IsEmpty());
    EXPECT_THAT(second.Take(), IsEmpty());
}

TYPED_TEST(QueueTest, GivesAllToAConsumerBesideAProducer) {
    constexpr typename TestFixture::Value kCount = 1000;
    std::thread producer([queue = this->queue_] {
        for (typename TestFixture::Value value = 0; value < kCount; ++value) {
            queue->Push(value);
        }
        queue->Close();
    });
    typename TestFixture::Values values;
    do {
        this->queue_->PopAll(values);
    } while (!this->queue_->IsClosed());
    this->queue_->PopAll(values);
    producer.join();
    ASSERT_EQ(values.size(), static_cast<std::size_t>(kCount));
    typename TestFixture::Value expected = 0;
    for (const auto value : values) {
        EXPECT_EQ(value, expected++);
    }
}

TEST(BlockingQueue, KeepsEqualValues) {
    StateQueue queue;
    for (const int value : {2, 2, 1}) {
        queue.Push(value);
    }
    std::list<int> values;
    queue.PopAll(values);
    EXPECT_THAT(values, ElementsAre(2, 2, 1));
}

TEST(BlockingQueue, TakesNegativeValues) {
    StateQueue queue;
    queue.Push(-1);
    std::list<int> values;
    queue.PopAll(values);
    EXPECT_THAT(values, ElementsAre(-1));
}

std::set<const int*> PlacesOf(const std::list<int>& values) {
    std::set<const int*> places;
    for (const int& value : values) {
        places.insert(&value);
    }
    return places;
}

TEST(BlockingQueue, UsesElementsAgainThatAreGivenBack) {
    StateQueue queue;
    std::list<int> values;
    for (const int value : {4, 5, 6}) {
        queue.Push(value);
    }
    queue.PopAll(values);
    const std::set<const int*> places = PlacesOf(values);
    for (int round = 0; round < 3; ++round) {
        queue.GiveBack(values);
        EXPECT_THAT(values, IsEmpty());
        for (const int value : {1, 1, 2}) {
            queue.Push(value);
        }
        queue.PopAll(values);
        EXPECT_THAT(values, ElementsAre(1, 1, 2));
        EXPECT_EQ(PlacesOf(values), places);
    }
}

TEST(BlockingQueue, KeepsNoMoreElementsThanABusyBatchHas) {
    constexpr int kMost = 4096;
    StateQueue queue;
    std::list<int> few(kMost);
    std::list<int> one(1);
    const std::set<const int*> places = PlacesOf(few);
    queue.GiveBack(few);
    queue.GiveBack(one);
    EXPECT_THAT(one, IsEmpty());
    for (int value = 0; value <= kMost; ++value) {
        queue.Push(value);
    }
    std::list<int> values;
    queue.PopAll(values);
    ASSERT_EQ(values.size(), std::size_t{kMost} + 1);
    EXPECT_EQ(places.count(&values.back()), 0U) << "there was no other left";
    values.pop_back();
    EXPECT_EQ(PlacesOf(values), places);
    for (int value = kMost; !values.empty(); values.pop_back()) {
        EXPECT_EQ(values.back(), --value);
    }
}

TEST(BlockingQueue, DropsWhatComesBehindItsEndWhateverItWasGivenBack) {
    StateQueue queue;
    std::list<int> values{1, 2};
    queue.GiveBack(values);
    queue.Push(3);
    queue.Close();
    queue.Push(4);
    queue.PopAll(values);
    EXPECT_THAT(values, ElementsAre(3));
}

TEST(UniqueDataQueue, KeepsAValueOnceAtThePlaceOfItsFirstArrival) {
    KindQueue queue;
    for (const unsigned int value : {3U, 5U, 3U, 3U, 7U}) {
        queue.Push(value);
    }
    std::list<unsigned int> values;
    queue.PopAll(values);
    EXPECT_THAT(values, ElementsAre(3, 5, 7));
}

TEST(UniqueDataQueue, FindsAValueAtBothEndsAndWithin) {
    KindQueue queue;
    for (const unsigned int value : {1U, 2U, 3U, 3U, 2U, 1U}) {
        queue.Push(value);
    }
    std::list<unsigned int> values;
    queue.PopAll(values);
    EXPECT_THAT(values, ElementsAre(1, 2, 3));
}

TEST(UniqueDataQueue, LooksOnlyAtWhatWaits) {
    KindQueue queue;
    std::list<unsigned int> values;
    queue.Push(3);
    queue.PopAll(values);
    queue.Push(3);
    queue.Push(3);
    queue.PopAll(values);
    EXPECT_THAT(values, ElementsAre(3, 3));
}

}  // namespace
}  // namespace zam_connector
