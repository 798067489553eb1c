#include "portable-core/DplBipBuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <random>

namespace
{
// Reserves `bytes` and commits them all, filled with `value`.
size_t Put(DplBipBuffer& bip, size_t bytes, unsigned char value)
{
    size_t reserved = 0;
    void* block = bip.reserve(bytes, reserved);
    if (block == nullptr)
    {
        return 0;
    }
    memset(block, value, reserved);
    bip.commit(reserved);
    return reserved;
}

TEST(DplBipBuffer, FreshBufferGivesWhatItHas)
{
    DplBipBuffer bip;
    EXPECT_FALSE(bip.isInitialized());
    size_t reserved = 99;
    EXPECT_EQ(bip.reserve(10, reserved), nullptr);
    EXPECT_EQ(reserved, 0u);
    EXPECT_FALSE(bip.allocate(0));
    ASSERT_TRUE(bip.allocate(1000));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(bip.data()) % 64, 0u);
    void* block = bip.reserve(2000, reserved);
    EXPECT_EQ(block, bip.data());
    EXPECT_EQ(reserved, 1000u);
    bip.commit(0);
    EXPECT_EQ(bip.getReservationSize(), 0u);
    bip.commit(10);  // no reservation open: nothing
    EXPECT_EQ(bip.getCommittedSize(), 0u);
    bip.deallocate();
}

TEST(DplBipBuffer, ReservationBeforeALargerThanAfterStartsRegionB)
{
    DplBipBuffer bip;
    ASSERT_TRUE(bip.allocate(1000));
    ASSERT_EQ(Put(bip, 800, 1), 800u);
    bip.decommitBlock(600);
    size_t reserved = 0;
    void* block = bip.reserve(500, reserved);
    EXPECT_EQ(block, bip.data());
    EXPECT_EQ(reserved, 500u);
    memset(block, 2, reserved);
    bip.commit(500);

    // B in use: only the gap up to A is offered, then nothing.
    block = bip.reserve(400, reserved);
    EXPECT_EQ(reserved, 100u);
    EXPECT_EQ(block, bip.data() + 500);
    bip.commit(100);
    EXPECT_EQ(bip.reserve(1, reserved), nullptr);
    EXPECT_EQ(reserved, 0u);

    // Using up A makes B the block that is read next.
    size_t size = 0;
    auto* a = static_cast<unsigned char*>(bip.getContiguousBlock(size));
    EXPECT_EQ(size, 200u);
    EXPECT_EQ(a[0], 1);
    bip.decommitBlock(size);
    auto* b = static_cast<unsigned char*>(bip.getContiguousBlock(size));
    EXPECT_EQ(b, bip.data());
    EXPECT_EQ(size, 600u);
    EXPECT_EQ(b[0], 2);
    bip.decommitBlock(size + 5);
    EXPECT_EQ(bip.getContiguousBlock(size), nullptr);
    bip.deallocate();
}

TEST(DplBipBuffer, CopyHasItsOwnBlockAndTheSameContent)
{
    DplBipBuffer bip;
    ASSERT_TRUE(bip.allocate(64));
    Put(bip, 10, 7);
    DplBipBuffer copy(bip);
    EXPECT_NE(copy.data(), bip.data());
    EXPECT_EQ(copy.getCommittedSize(), 10u);
    size_t size = 0;
    auto* block = static_cast<unsigned char*>(copy.getContiguousBlock(size));
    ASSERT_EQ(size, 10u);
    EXPECT_EQ(block[9], 7);
    Put(bip, 5, 8);
    EXPECT_EQ(copy.getCommittedSize(), 10u);
    bip.deallocate();
    EXPECT_FALSE(bip.isInitialized());
    // `copy` goes out of scope without deallocate: its destructor frees the block.
}

void CheckInvariants(const DplBipBuffer& bip)
{
    const size_t length = bip.getBufferSize();
    ASSERT_LE(bip.regionAStart() + bip.regionASize(), length);
    if (bip.regionBSize() > 0)
    {
        ASSERT_GT(bip.regionASize(), 0u);
        ASSERT_EQ(bip.regionBStart(), 0u);
        ASSERT_LE(bip.regionBStart() + bip.regionBSize(), bip.regionAStart());
    }
    if (bip.regionASize() == 0)
    {
        ASSERT_EQ(bip.regionBSize(), 0u);
    }
    if (bip.getReservationSize() > 0)
    {
        const size_t start = bip.reservationStart();
        const size_t end = start + bip.getReservationSize();
        ASSERT_LE(end, length);
        const bool afterA = start >= bip.regionAStart() + bip.regionASize();
        const bool beforeA = end <= bip.regionAStart() && start >= bip.regionBStart() + bip.regionBSize();
        ASSERT_TRUE(bip.regionASize() == 0 || afterA || beforeA) << "reservation overlaps committed bytes";
        if (bip.regionBSize() > 0)
        {
            ASSERT_EQ(start, bip.regionBSize());
        }
    }
}

// Against a byte queue: what the reader takes is what the writer committed, in order.
class BipModelTest : public ::testing::TestWithParam<size_t>
{
};

TEST_P(BipModelTest, RandomOperationsMatchTheModel)
{
    const size_t length = GetParam();
    DplBipBuffer bip;
    ASSERT_TRUE(bip.allocate(length));
    std::deque<unsigned char> model;
    std::mt19937 random(777u + static_cast<unsigned>(length));
    unsigned char next = 0;
    for (int step = 0; step < 20000; ++step)
    {
        const unsigned op = random() % 10;
        if (op < 5)
        {
            const size_t wanted = 1 + random() % (length + length / 2);
            size_t reserved = 0;
            auto* block = static_cast<unsigned char*>(bip.reserve(wanted, reserved));
            ASSERT_LE(reserved, wanted);
            ASSERT_EQ(block == nullptr, reserved == 0);
            ASSERT_NO_FATAL_FAILURE(CheckInvariants(bip));
            if (block != nullptr)
            {
                // Commit all, part, or (rarely) more than reserved.
                const unsigned how = random() % 4;
                size_t keep = how == 0 ? random() % (reserved + 1) : how == 1 ? reserved + 3 : reserved;
                for (size_t i = 0; i < reserved; ++i)
                {
                    block[i] = static_cast<unsigned char>(next + i);
                }
                keep = std::min(keep, reserved);
                for (size_t i = 0; i < keep; ++i)
                {
                    model.push_back(static_cast<unsigned char>(next + i));
                }
                next = static_cast<unsigned char>(next + keep);
                bip.commit(how == 1 ? reserved + 3 : keep);
            }
        }
        else if (op < 9)
        {
            size_t size = 0;
            auto* block = static_cast<unsigned char*>(bip.getContiguousBlock(size));
            ASSERT_EQ(block == nullptr, model.empty());
            ASSERT_LE(size, model.size());
            for (size_t i = 0; i < size; ++i)
            {
                ASSERT_EQ(block[i], model[i]) << "step " << step << " byte " << i;
            }
            const size_t take = size == 0 ? 0 : random() % (size + 2);
            bip.decommitBlock(take);
            model.erase(model.begin(), model.begin() + static_cast<long>(std::min(take, size)));
        }
        else if (random() % 100 == 0)
        {
            bip.clear();
            model.clear();
        }
        ASSERT_NO_FATAL_FAILURE(CheckInvariants(bip));
        ASSERT_EQ(bip.getCommittedSize(), model.size()) << "step " << step;
        ASSERT_LE(bip.getCommittedSize(), length);
    }
    bip.deallocate();
}

INSTANTIATE_TEST_SUITE_P(Sizes, BipModelTest,
                         ::testing::Values(size_t{1}, size_t{7}, size_t{100}, size_t{7680}));
}  // namespace
