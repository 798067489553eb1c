// Proves that the steady-state paths of the rings never allocate: the shared
// counter replaces operator new/delete, and outside the sanitizer builds
// (whose runtimes own malloc) this file replaces the malloc family too.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <vector>

#include "portable-core/CDplRingBuffer.h"
#include "portable-core/CForwardingLogger.h"
#include "portable-core/CRelayBuffer.h"
#include "portable-core/DplBipBuffer.h"
#include "portable-core/OCQueue.h"
#include "support/OperatorNewCounter.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TIDEMIX_COUNT_MALLOC 0
#else
#define TIDEMIX_COUNT_MALLOC 1
#endif

using tidemix::test::OperatorNewCounter;

#if TIDEMIX_COUNT_MALLOC
extern "C"
{
    void* __libc_malloc(size_t);
    void* __libc_calloc(size_t, size_t);
    void* __libc_realloc(void*, size_t);
    void* __libc_memalign(size_t, size_t);
    void __libc_free(void*);

    void* malloc(size_t bytes)
    {
        OperatorNewCounter::Note();
        return __libc_malloc(bytes);
    }
    void* calloc(size_t count, size_t bytes)
    {
        OperatorNewCounter::Note();
        return __libc_calloc(count, bytes);
    }
    void* realloc(void* block, size_t bytes)
    {
        OperatorNewCounter::Note();
        return __libc_realloc(block, bytes);
    }
    void* aligned_alloc(size_t alignment, size_t bytes)
    {
        OperatorNewCounter::Note();
        return __libc_memalign(alignment, bytes);
    }
    void* memalign(size_t alignment, size_t bytes)
    {
        OperatorNewCounter::Note();
        return __libc_memalign(alignment, bytes);
    }
    int posix_memalign(void** result, size_t alignment, size_t bytes)
    {
        OperatorNewCounter::Note();
        *result = __libc_memalign(alignment, bytes);
        return *result != nullptr ? 0 : ENOMEM;
    }
    void free(void* block)
    {
        __libc_free(block);
    }
}
#endif

namespace
{
constexpr int kBlockBytes = 960 * 2 * 4;  // one 960-frame stereo float block
constexpr int kIterations = 2000;

void NoteWhatIsCounted()
{
    if (!TIDEMIX_COUNT_MALLOC)
    {
        std::cout
            << "[ note ] sanitizer build: counting operator new only; the debug build counts malloc too\n";
    }
}

TEST(RingAllocation, CounterSeesAllocations)
{
    // The counter itself must work, or the zero counts below prove nothing.
    OperatorNewCounter counter(OperatorNewCounter::Scope::Process);
    auto* vector = new std::vector<int>(100);
    delete vector;
#if TIDEMIX_COUNT_MALLOC
    void* block = std::malloc(64);
    std::free(block);
    // Two operator new calls (each also a malloc) and one malloc.
    EXPECT_EQ(counter.Stop(), 5);
#else
    EXPECT_EQ(counter.Stop(), 2);  // two operator new calls
#endif
}

class CountingTarget : public CRelayLogger
{
public:
    int WriteLogBytes(const char*, CRelayLogLevel, const char*, int length) override
    {
        bytes += length;
        return length;
    }
    long bytes = 0;
};

TEST(RingAllocation, SteadyStateOfEveryRingDoesNotAllocate)
{
    NoteWhatIsCounted();
    std::vector<unsigned char> in(kBlockBytes, 1);
    std::vector<unsigned char> out(kBlockBytes);
    CDplRingBuffer ring("steady");
    ASSERT_TRUE(ring.Create(4 * kBlockBytes + 100));
    DplBipBuffer bip;
    ASSERT_TRUE(bip.allocate(4 * kBlockBytes + 100));
    OCQueue queue(64, kBlockBytes / 8);
    CCountedPtr<CountingTarget> target(new CountingTarget());
    CCountedPtr<CForwardingLogger> logger(new CForwardingLogger(target, kRelayLogLevelVerbose, 1024, true));
    static const char kLine[] = "a short line from a real-time thread\n";
    bool overrun = false;

    OperatorNewCounter counter(OperatorNewCounter::Scope::Process);
    for (int i = 0; i < kIterations; ++i)
    {
        in[0] = static_cast<unsigned char>(i);
        ring.Write(in.data(), kBlockBytes, &overrun, true);
        ASSERT_EQ(ring.Read(out.data(), kBlockBytes, false), kBlockBytes);
        ASSERT_EQ(out[0], static_cast<unsigned char>(i));

        size_t reserved = 0;
        void* block = bip.reserve(kBlockBytes, reserved);
        ASSERT_NE(block, nullptr);
        memcpy(block, in.data(), reserved);
        bip.commit(reserved);
        size_t size = 0;
        while (void* readable = bip.getContiguousBlock(size))
        {
            memcpy(out.data(), readable, std::min<size_t>(size, out.size()));
            bip.decommitBlock(size);
        }

        ASSERT_TRUE(queue.Enqueue(in.data()));
        ASSERT_TRUE(queue.Dequeue(out.data()));
        ASSERT_EQ(logger->WriteLogBytes("rt", kRelayLogLevelInformation, kLine, sizeof(kLine) - 1),
                  static_cast<int>(sizeof(kLine) - 1));
        logger->ForwardSome();
        CRelayBuffer shortText;
        shortText.Add("%d frames late", i);
    }
    EXPECT_EQ(counter.Stop(), 0);
    EXPECT_EQ(target->bytes, static_cast<long>(kIterations) * static_cast<long>(sizeof(kLine) - 1));
    bip.deallocate();
}
}  // namespace
