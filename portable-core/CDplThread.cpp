#include "portable-core/CDplThread.h"

#include <cstring>

#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/DRAVLog.h"
#include "portable-core/DplSleep.h"
#include "portable-core/DplThreadName.h"
#include "portable-core/DplThreading.h"
#include "portable-core/DplTime.h"

namespace
{
constexpr int kPollMs = 10;
constexpr int64_t kDestructorPatienceMs = 10000;

// The CDplThread whose procedure runs on this thread; the destructor clears it
// when the procedure deletes its own object, so the thread then touches
// nothing of it any more.
thread_local CDplThread* tCurrentThreadObject = nullptr;

int64_t MonotonicMilliseconds()
{
    return DplTime_GetMonotonicNanoseconds() / 1000000;
}
}  // namespace

CDplThread::CDplThread(bool deleteOnExit) : deleteOnExit_(deleteOnExit) {}

CDplThread::~CDplThread()
{
    if (tCurrentThreadObject == this)
    {
        // Deleted from inside its own procedure: it can't wait for itself.
        tCurrentThreadObject = nullptr;
    }
    else if (alive_.load())
    {
        terminationRequested_.store(true);
        const int64_t start = MonotonicMilliseconds();
        while (alive_.load() && MonotonicMilliseconds() - start < kDestructorPatienceMs)
        {
            USRSleep(kPollMs);
        }
        if (alive_.load())
        {
            // Freeing the object now would pull it from under the running
            // procedure; better a late destruction than a crash.
            DRAVLogPrintf(kDbgPrintLevelWarning,
                          "CDplThread \"%s\": still running 10 s after termination was requested; waiting on",
                          name_.c_str());
            while (alive_.load())
            {
                USRSleep(kPollMs);
            }
        }
    }
    handle_ = pthread_t{};
    handleValid_.store(false);
}

bool CDplThread::CreateThread(void* (*procedure)(void*), void* argument, const char* name)
{
    if (procedure == nullptr || alive_.load())
    {
        return false;
    }
    procedure_ = procedure;
    argument_ = argument;
    name_ = name != nullptr ? name : "";
    terminationRequested_.store(false);
    running_.store(false);
    threadId_.store(-1);
    alive_.store(true);
    creating_.store(true);

    // Detached: the alive record, not a join, tells when it has ended.
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t handle{};
    const int result = pthread_create(&handle, &attributes, &CDplThread::ThreadEntry, this);
    pthread_attr_destroy(&attributes);
    if (result != 0)
    {
        alive_.store(false);
        creating_.store(false);
        return false;
    }
    handle_ = handle;
    handleValid_.store(true);
    // Last access: a self-deleting thread may free the object from here on.
    creating_.store(false);
    return true;
}

void CDplThread::RequestTermination()
{
    terminationRequested_.store(true);
}

bool CDplThread::StopThread(int timeoutMs, bool reportIfAlive, bool probeIfAlive)
{
    RequestTermination();
    uint32_t limitMs = static_cast<uint32_t>(timeoutMs);
    if (limitMs > 0x7fffffffU)
    {
        limitMs = 0x7fffffffU;
    }
    const int64_t start = MonotonicMilliseconds();
    // The alive record rather than the running flag: right after CreateThread
    // the thread may not have set running yet. Never wait for oneself.
    if (!IsThisThread())
    {
        while (limitMs > 0 && alive_.load() &&
               MonotonicMilliseconds() - start < static_cast<int64_t>(limitMs))
        {
            USRSleep(kPollMs);
        }
    }
    bool result = !alive_.load();
    if (!result && reportIfAlive)
    {
        BreakIntoDebugger();
    }
    if (!result && probeIfAlive)
    {
        // The alive record answers without signalling a handle that a
        // detached thread may already have given up.
        result = handleValid_.load() && alive_.load();
    }
    handle_ = pthread_t{};
    handleValid_.store(false);
    running_.store(false);
    return result;
}

bool CDplThread::IsRunning()
{
    return running_.load();
}

bool CDplThread::IsTerminationRequested()
{
    return terminationRequested_.load();
}

int32_t CDplThread::GetThreadId() const
{
    return threadId_.load();
}

bool CDplThread::IsHandleValid() const
{
    return handleValid_.load();
}

const std::string& CDplThread::GetName() const
{
    return name_;
}

void CDplThread::ResetHandle()
{
    handle_ = pthread_t{};
    handleValid_.store(false);
}

int32_t CDplThread::GetCurrentThreadId()
{
    return DplThreading_GetThreadId();
}

void CDplThread::SetCurrentThreadName(const char* name)
{
    DplSetCurrentThreadName(name);
}

bool CDplThread::GetCurrentThreadName(char* buffer, int size)
{
    if (buffer == nullptr || size <= 0)
    {
        return false;
    }
    buffer[0] = '\0';
    char name[16] = {};  // the system's limit: 15 bytes and the terminator
    if (pthread_getname_np(pthread_self(), name, sizeof(name)) != 0)
    {
        return false;
    }
    const size_t length = strnlen(name, sizeof(name) - 1);
    const size_t copied = length < static_cast<size_t>(size) ? length : static_cast<size_t>(size) - 1;
    memcpy(buffer, name, copied);
    buffer[copied] = '\0';
    return true;
}

void* CDplThread::ThreadEntry(void* self)
{
    static_cast<CDplThread*>(self)->RunOnThread();
    return nullptr;
}

void CDplThread::RunOnThread()
{
    // The procedure may delete this object (or, with deleteOnExit, the thread
    // will): not before CreateThread has stopped writing to it.
    for (int attempts = 0; creating_.load(); ++attempts)
    {
        USRSpinOrYield(attempts < 1000 ? attempts : 1000);
    }
    tCurrentThreadObject = this;
    if (!name_.empty())
    {
        SetCurrentThreadName(name_.c_str());
    }
    threadId_.store(GetCurrentThreadId());
    running_.store(true);

    procedure_(argument_);

    if (tCurrentThreadObject != this)
    {
        return;  // the procedure deleted this object
    }
    tCurrentThreadObject = nullptr;
    threadId_.store(-1);
    running_.store(false);
    if (deleteOnExit_)
    {
        alive_.store(false);
        delete this;
        return;
    }
    alive_.store(false);  // the last access to this object
}

bool CDplThread::IsThisThread() const
{
    return tCurrentThreadObject == this;
}
