// Replaces the global operator new and delete of a test executable with ones
// that count the calls of operator new while counting is on: for the whole
// process, or for the calling thread only. Include it in exactly one file of
// the executable (a replacement operator may be defined only once).
#pragma once
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"  // new is malloc underneath, on purpose

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <thread>

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

// Heap calls of the whole process over one second of a running road, counted
// in the first of up to six windows in which `events` (the road's drift
// counters) doesn't change: a thread held up by the host makes the road absorb
// drift, which logs. news is -1 when no window was quiet; played is what
// `played` (frames played) advanced in the window measured last.
struct QuietSecond
{
    int64_t news = -1;
    int64_t played = 0;
};
inline QuietSecond CountHeapCallsInAQuietSecond(const std::function<int64_t()>& events,
                                                const std::function<int64_t()>& played)
{
    QuietSecond result;
    for (int window = 0; window < 6; ++window)
    {
        const int64_t eventsBefore = events();
        const int64_t playedBefore = played();
        // An event just before the window would log within it; one in this
        // guard spoils the window too.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        OperatorNewCounter counter(OperatorNewCounter::Scope::Process);
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const int64_t windowNews = counter.Stop();
        result.played = played() - playedBefore;
        const int64_t windowEvents = events() - eventsBefore;
        if (windowEvents == 0)
        {
            result.news = windowNews;
            break;
        }
        printf("window %d: the road absorbed %lld drift events; measuring again\n", window,
               static_cast<long long>(windowEvents));
    }
    return result;
}

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
