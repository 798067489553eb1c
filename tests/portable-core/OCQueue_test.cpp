#include "portable-core/OCQueue.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <deque>
#include <random>

namespace
{
struct Record
{
    uint64_t sequence;
    uint64_t check;
    uint32_t tail[2];
};

Record MakeRecord(uint64_t sequence)
{
    return {sequence, ~sequence * 0x9E3779B97F4A7C15ull, {static_cast<uint32_t>(sequence), 0xA5A5A5A5u}};
}

bool SameRecord(const Record& a, const Record& b)
{
    return a.sequence == b.sequence && a.check == b.check && a.tail[0] == b.tail[0] && a.tail[1] == b.tail[1];
}

TEST(OCQueue, SizeMustBeAPowerOfTwo)
{
    for (int bad : {0, -4, 3, 1000})
    {
        int thrown = 0;
        try
        {
            OCQueue queue(bad, 8);
        }
        catch (int code)
        {
            thrown = code;
        }
        EXPECT_EQ(thrown, -1) << bad;
    }
    EXPECT_THROW(OCQueueIndex(12), int);
    EXPECT_NO_THROW(OCQueueIndex(1));
}

TEST(OCQueue, NullRecordsClaimAndReleaseSlots)
{
    OCQueue queue(8, sizeof(Record));
    EXPECT_TRUE(queue.Enqueue(nullptr));
    const Record r = MakeRecord(5);
    EXPECT_TRUE(queue.Enqueue(&r));
    EXPECT_TRUE(queue.Dequeue(nullptr));
    Record out{};
    ASSERT_TRUE(queue.Dequeue(&out));
    EXPECT_TRUE(SameRecord(out, r));
}

TEST(OCQueueIndex, APutThatEndsLateHoldsBackThoseBehindIt)
{
    OCQueueIndex index(16);
    const int first = index.BeginPut(3);
    const int second = index.BeginPut(2);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 3);
    index.EndPut(2);
    EXPECT_EQ(index.MinLength(), 0);
    EXPECT_EQ(index.BeginGet(1), -1);
    index.EndPut(3);
    EXPECT_EQ(index.MinLength(), 5);

    const int get1 = index.BeginGet(4);
    const int get2 = index.BeginGet(1);
    EXPECT_EQ(get1, 0);
    EXPECT_EQ(get2, 4);
    EXPECT_EQ(index.BeginGet(1), -1);
    // Space comes back only when every get that began has ended.
    EXPECT_EQ(index.BeginPut(11), -1);
    index.EndGet(1);
    EXPECT_EQ(index.BeginPut(11), -1);
    index.EndGet(4);
    EXPECT_EQ(index.BeginPut(11), 5);
    EXPECT_EQ(index.BeginPut(0), -1);
    EXPECT_EQ(index.BeginGet(-1), -1);
}

// Against a plain record queue of capacity size - 1, starting the counters at
// 0 and just below the 32-bit wrap.
class QueueModelTest : public ::testing::TestWithParam<std::tuple<int, uint32_t>>
{
};

TEST_P(QueueModelTest, RandomOperationsMatchTheModel)
{
    const auto [size, firstCount] = GetParam();
    OCQueue queue(size, sizeof(Record), OCQueue::DumbCopy, OCQueue::DumbCopyOut, firstCount);
    std::deque<Record> model;
    std::mt19937 random(4242u + static_cast<unsigned>(size));
    uint64_t next = 0;
    for (int step = 0; step < 40000; ++step)
    {
        // Lean towards filling for a while, then towards emptying.
        const bool fillPhase = (step / 500) % 2 == 0;
        const bool put = random() % 10 < (fillPhase ? 7u : 3u);
        if (put)
        {
            const Record r = MakeRecord(next);
            const bool accepted = queue.Enqueue(&r);
            ASSERT_EQ(accepted, static_cast<int>(model.size()) < size - 1) << "step " << step;
            if (accepted)
            {
                model.push_back(r);
                ++next;
            }
        }
        else
        {
            Record out{};
            const bool got = queue.Dequeue(&out);
            ASSERT_EQ(got, !model.empty()) << "step " << step;
            if (got)
            {
                ASSERT_TRUE(SameRecord(out, model.front())) << "step " << step;
                model.pop_front();
            }
        }
        ASSERT_EQ(queue.MinLength(), static_cast<int>(model.size()));
    }
    if (size > 1)
    {
        EXPECT_GT(next, 1000u) << "the run should pass the counters' wrap";
    }
    else
    {
        EXPECT_EQ(next, 0u) << "a ring of one slot holds nothing";
    }
}

INSTANTIATE_TEST_SUITE_P(SizesAndStarts, QueueModelTest,
                         ::testing::Combine(::testing::Values(1, 2, 4, 64),
                                            ::testing::Values(0u, 0xFFFFFF00u, 0xFFFFFFFFu)));
}  // namespace
