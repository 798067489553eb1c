#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>

// A thread that the caller stops cooperatively.
class IDplThread
{
public:
    virtual ~IDplThread() = default;
    virtual bool CreateThread(void* (*procedure)(void*), void* argument, const char* name) = 0;
    virtual void RequestTermination() = 0;
    virtual bool StopThread(int timeoutMs, bool reportIfAlive, bool probeIfAlive) = 0;
    virtual bool IsRunning() = 0;
    virtual bool IsTerminationRequested() = 0;
};

// One system thread running a procedure. The procedure polls
// IsTerminationRequested(); whoever sleeps it on a condition stops it by
// RequestTermination(), a signal of that condition, then StopThread().
//
// Besides the reported running flag the object keeps its own record of
// whether the thread is still alive. StopThread() reports and clears the
// flag as asked, but the destructor and a new CreateThread() go by the alive
// record: this object is never freed or reused while its thread still runs.
// With deleteOnExit the thread deletes the object when its procedure
// returns; nothing else may delete it, nor touch it after starting it. A
// subclass whose procedure uses the subclass's own members stops the thread
// in its own destructor: they are gone before this base waits.
class CDplThread : public IDplThread
{
public:
    explicit CDplThread(bool deleteOnExit = false);
    // Requests termination and waits for the thread to end: 10 s with a
    // warning if it hasn't by then, and on without limit after that.
    ~CDplThread() override;
    CDplThread(const CDplThread&) = delete;
    CDplThread& operator=(const CDplThread&) = delete;

    // False for a null procedure, while a former thread of this object is
    // still alive, or when the system refuses. The thread takes `name` (cut to
    // what the system allows) before it calls the procedure.
    bool CreateThread(void* (*procedure)(void*), void* argument, const char* name) override;
    void RequestTermination() override;
    // Requests termination and waits up to `timeoutMs` for the thread to end
    // (negative: 2,147,483,647 ms; 0: not at all). True when it has ended. If
    // it hasn't: BreakIntoDebugger() with `reportIfAlive`, and with
    // `probeIfAlive` the result says whether the system still knows the
    // thread. Clears handle, handle-valid and running in any case.
    bool StopThread(int timeoutMs, bool reportIfAlive, bool probeIfAlive) override;
    bool IsRunning() override;
    bool IsTerminationRequested() override;

    // The system's id of the thread while it runs, else -1.
    int32_t GetThreadId() const;
    bool IsHandleValid() const;
    const std::string& GetName() const;
    // Forgets the handle; the thread itself goes on.
    void ResetHandle();

    static int32_t GetCurrentThreadId();
    // Names the calling thread. Linux allows 15 bytes: a longer name is cut,
    // never refused. A null name changes nothing.
    static void SetCurrentThreadName(const char* name);
    // Empties the buffer, then fills it with the calling thread's name (cut
    // to fit). False when there is no room or the system has no answer.
    static bool GetCurrentThreadName(char* buffer, int size);

private:
    static void* ThreadEntry(void* self);
    void RunOnThread();
    bool IsThisThread() const;

    pthread_t handle_{};
    void* (*procedure_)(void*) = nullptr;
    void* argument_ = nullptr;
    const bool deleteOnExit_;
    std::atomic<bool> handleValid_{false};
    std::atomic<bool> running_{false};
    std::atomic<bool> terminationRequested_{false};
    std::atomic<int32_t> threadId_{-1};
    std::string name_;
    // Set by CreateThread before the thread exists, cleared by the thread as
    // its very last access to this object.
    std::atomic<bool> alive_{false};
    // True while CreateThread still writes to this object; the thread waits
    // for it before it runs the procedure.
    std::atomic<bool> creating_{false};
};
