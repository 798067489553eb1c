#include "portable-core/CDplRingBuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <numeric>
#include <random>
#include <vector>

namespace
{
std::vector<unsigned char> Bytes(int count, int first)
{
    std::vector<unsigned char> bytes(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
    {
        bytes[static_cast<size_t>(i)] = static_cast<unsigned char>(first + i);
    }
    return bytes;
}

std::vector<unsigned char> ReadAll(CDplRingBuffer& ring)
{
    std::vector<unsigned char> out(static_cast<size_t>(ring.GetSize()));
    out.resize(static_cast<size_t>(ring.Read(out.data(), static_cast<int>(out.size()), false)));
    return out;
}

TEST(CDplRingBuffer, NullDataAndMissingStorage)
{
    CDplRingBuffer ring(nullptr);
    EXPECT_EQ(ring.GetName(), "");
    bool overrun = true;
    unsigned char byte = 1;
    EXPECT_EQ(ring.Write(&byte, 1, &overrun, false), 0);
    EXPECT_TRUE(overrun) << "left unwritten without storage";
    EXPECT_EQ(ring.Read(&byte, 1, false), 0);

    ASSERT_TRUE(ring.Create(16));
    EXPECT_EQ(ring.Write(nullptr, 4, &overrun, false), 0);
    EXPECT_TRUE(overrun) << "left unwritten for null data";
    ring.Write(Bytes(8, 0).data(), 8, &overrun, false);
    EXPECT_EQ(ring.Read(nullptr, 4, false), 0) << "no destination and no discard: nothing taken";
    EXPECT_EQ(ring.Skip(2), 2);
    EXPECT_EQ(ReadAll(ring), Bytes(6, 2));
}

TEST(CDplRingBuffer, CreateAgainAndDestroy)
{
    CDplRingBuffer ring("r");
    EXPECT_FALSE(ring.Create(0));
    ASSERT_TRUE(ring.Create(32));
    bool overrun = false;
    ring.Write(Bytes(20, 0).data(), 20, &overrun, false);
    ASSERT_TRUE(ring.Create(8));  // replaces the storage and forgets the content
    EXPECT_EQ(ring.GetSize(), 8);
    EXPECT_EQ(ring.GetFill(), 0);
    ring.Destroy();
    EXPECT_EQ(ring.GetSize(), 0);
    EXPECT_EQ(ring.Write(Bytes(1, 0).data(), 1, &overrun, false), 0);
}

// The ring against a plain model: a byte queue holding at most `size` bytes,
// where an overrun keeps the newest `size` (or size / 2 with drop-half). Odd
// sizes put drop-half's cut on the wrap; reads of -1 and 0 bytes, discarding
// reads and resets come up too.
class RingModelTest : public ::testing::TestWithParam<int>
{
};

TEST_P(RingModelTest, RandomOperationsMatchTheModel)
{
    const int size = GetParam();
    CDplRingBuffer ring("model");
    ASSERT_TRUE(ring.Create(size));
    std::deque<unsigned char> model;
    std::mt19937 random(12345u + static_cast<unsigned>(size));
    unsigned char next = 0;
    std::vector<unsigned char> buffer(static_cast<size_t>(3 * size + 8));

    for (int step = 0; step < 20000; ++step)
    {
        const int op = static_cast<int>(random() % 10);
        if (op < 5)
        {
            const int length = static_cast<int>(random() % static_cast<unsigned>(2 * size + 2));
            const bool dropHalf = random() % 2 == 0;
            for (int i = 0; i < length; ++i)
            {
                buffer[static_cast<size_t>(i)] = next++;
            }
            bool overrun = false;
            const int stored = ring.Write(buffer.data(), length, &overrun, dropHalf);
            const int expectedStored = std::min(length, size);
            ASSERT_EQ(stored, expectedStored) << "step " << step;
            for (int i = length - expectedStored; i < length; ++i)
            {
                model.push_back(buffer[static_cast<size_t>(i)]);
            }
            const bool expectedOverrun = static_cast<int>(model.size()) > size;
            if (expectedOverrun)
            {
                const size_t keep = dropHalf ? static_cast<size_t>(size / 2) : static_cast<size_t>(size);
                model.erase(model.begin(), model.end() - static_cast<long>(keep));
            }
            ASSERT_EQ(overrun, expectedOverrun) << "step " << step;
        }
        else if (op < 9)
        {
            const int length = static_cast<int>(random() % static_cast<unsigned>(size + 3)) - 1;
            const bool discard = op == 8;
            const int got = ring.Read(discard ? nullptr : buffer.data(), length, discard);
            const int expected = std::max(0, std::min(length, static_cast<int>(model.size())));
            ASSERT_EQ(got, expected) << "step " << step;
            for (int i = 0; i < got; ++i)
            {
                if (!discard)
                {
                    ASSERT_EQ(buffer[static_cast<size_t>(i)], model.front())
                        << "step " << step << " byte " << i;
                }
                model.pop_front();
            }
        }
        else if (random() % 50 == 0)
        {
            ring.Reset();
            model.clear();
        }
        ASSERT_GE(ring.GetFill(), 0);
        ASSERT_LE(ring.GetFill(), size);
        ASSERT_EQ(ring.GetFill(), static_cast<int>(model.size())) << "step " << step;
        ASSERT_EQ(ring.GetMaxWriteSize(), size - ring.GetFill());
    }
    const auto rest = ReadAll(ring);
    EXPECT_EQ(rest, std::vector<unsigned char>(model.begin(), model.end()));
}

INSTANTIATE_TEST_SUITE_P(Sizes, RingModelTest, ::testing::Values(1, 2, 7, 64, 100, 101, 7680));
}  // namespace
