// Replaces the global operator new and delete of a test executable with ones
// that count the calls of operator new while counting is on: for the whole
// process, or for the calling thread only. Include it in exactly one file of
// the executable (a replacement operator may be defined only once).
#pragma once
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // new is malloc underneath, on purpose

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace tidemix::test
{
class OperatorNewCounter
{
public:
    enum class Scope
    {
        Process,
        ThisThread
    };

    // Counting starts from zero at construction and stops at Stop() or destruction.
    explicit OperatorNewCounter(Scope scope) : scope_(scope)
    {
        Calls().store(0);
        SetCounting(true);
    }
    ~OperatorNewCounter() { Stop(); }
    OperatorNewCounter(const OperatorNewCounter&) = delete;
    OperatorNewCounter& operator=(const OperatorNewCounter&) = delete;

    // Stops counting and gives the count.
    int64_t Stop()
    {
        SetCounting(false);
        return Calls().load();
    }

    static void Note()
    {
        if (ProcessFlag().load(std::memory_order_relaxed) || ThreadFlag())
        {
            Calls().fetch_add(1, std::memory_order_relaxed);
        }
    }

private:
    void SetCounting(bool on)
    {
        if (scope_ == Scope::Process)
        {
            ProcessFlag().store(on);
        }
        else
        {
            ThreadFlag() = on;
        }
    }
    static std::atomic<bool>& ProcessFlag()
    {
        static std::atomic<bool> counting{false};
        return counting;
    }
    static bool& ThreadFlag()
    {
        static thread_local bool counting = false;
        return counting;
    }
    static std::atomic<int64_t>& Calls()
    {
        static std::atomic<int64_t> calls{0};
        return calls;
    }

    Scope scope_;
};
}  // namespace tidemix::test

namespace
{
void* CountedAllocate(size_t size, size_t alignment)
{
    tidemix::test::OperatorNewCounter::Note();
    void* p = alignment <= alignof(std::max_align_t)
                  ? std::malloc(size == 0 ? 1 : size)
                  : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (p == nullptr)
    {
        throw std::bad_alloc();
    }
    return p;
}
}  // namespace

void* operator new(size_t size)
{
    return CountedAllocate(size, 0);
}
void* operator new[](size_t size)
{
    return CountedAllocate(size, 0);
}
void* operator new(size_t size, std::align_val_t alignment)
{
    return CountedAllocate(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment)
{
    return CountedAllocate(size, static_cast<size_t>(alignment));
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete(void* p, size_t, std::align_val_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, size_t, std::align_val_t) noexcept
{
    std::free(p);
}
