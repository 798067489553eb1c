#include "portable-core/CDplThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "portable-core/BreakIntoDebugger.h"
#include "portable-core/DplThreading.h"
#include "support/ThreadsTestSupport.h"

namespace
{
using std::chrono::steady_clock;
using threads_test::SecondsSince;
using threads_test::WaitUntil;

// Shared between a test and its thread procedure.
struct Shared
{
    explicit Shared(CDplThread* owner = nullptr) : thread(owner) {}
    CDplThread* thread;
    std::atomic<bool> entered{false};
    std::atomic<bool> release{false};
    std::atomic<bool> returned{false};
    std::atomic<int32_t> idInside{0};
    std::atomic<int32_t> classIdInside{0};
    std::atomic<bool> sawTermination{false};
    std::string name;  // written by the procedure before `returned`
};

// Notes its id and name, and ends when asked to terminate.
void* Cooperative(void* argument)
{
    auto* shared = static_cast<Shared*>(argument);
    char name[64] = {};
    CDplThread::GetCurrentThreadName(name, sizeof(name));
    shared->name = name;
    shared->idInside = DplThreading_GetThreadId();
    shared->classIdInside = CDplThread::GetCurrentThreadId();
    shared->entered = true;
    while (!shared->thread->IsTerminationRequested())
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    shared->returned = true;
    return nullptr;
}

// Ignores termination until released, then looks at its object once more.
void* Stubborn(void* argument)
{
    auto* shared = static_cast<Shared*>(argument);
    shared->entered = true;
    WaitUntil([shared] { return shared->release.load(); }, std::chrono::seconds(120));
    shared->sawTermination = shared->thread->IsTerminationRequested();
    shared->returned = true;
    return nullptr;
}

TEST(CDplThreadThreads, CooperativeProcedureStopsOnRequestAndStartsAgain)
{
    Shared shared;
    CDplThread thread;
    shared.thread = &thread;
    EXPECT_FALSE(thread.CreateThread(nullptr, nullptr, "nothing"));
    EXPECT_FALSE(thread.IsHandleValid());
    ASSERT_TRUE(thread.CreateThread(Cooperative, &shared, "cooperative"));
    ASSERT_TRUE(WaitUntil([&] { return shared.entered.load() && thread.IsRunning(); }));
    EXPECT_EQ(thread.GetThreadId(), shared.idInside.load());
    EXPECT_NE(thread.GetThreadId(), DplThreading_GetThreadId());
    EXPECT_EQ(shared.classIdInside.load(), shared.idInside.load());
    EXPECT_EQ(CDplThread::GetCurrentThreadId(), DplThreading_GetThreadId());
    EXPECT_FALSE(thread.IsTerminationRequested());

    EXPECT_TRUE(thread.StopThread(10000, true, false));
    EXPECT_TRUE(shared.returned.load());
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.GetThreadId(), -1);

    Shared second{&thread};
    ASSERT_TRUE(thread.CreateThread(Cooperative, &second, "second"));
    ASSERT_TRUE(WaitUntil([&] { return second.entered.load(); }));
    EXPECT_FALSE(thread.IsTerminationRequested()) << "a new start clears the request";
    EXPECT_TRUE(thread.StopThread(10000, false, false));
    EXPECT_TRUE(second.returned.load());
}

TEST(CDplThreadThreads, StopRightAfterCreateWaitsForTheRealEnd)
{
    for (int round = 0; round < 20; ++round)
    {
        Shared shared;
        CDplThread thread;
        shared.thread = &thread;
        ASSERT_TRUE(thread.CreateThread(Cooperative, &shared, "quick"));
        // The thread may not have set running yet; the stop must not be fooled.
        ASSERT_TRUE(thread.StopThread(20000, false, false));
        EXPECT_TRUE(shared.returned.load()) << round;
    }
}

TEST(CDplThreadThreads, ZeroTimeoutOnARunningThreadReturnsFalseAtOnce)
{
    Shared shared;
    auto thread = std::make_unique<CDplThread>();
    shared.thread = thread.get();
    ASSERT_TRUE(thread->CreateThread(Stubborn, &shared, "stubborn"));
    ASSERT_TRUE(WaitUntil([&] { return shared.entered.load() && thread->IsRunning(); }));

    const steady_clock::time_point start = steady_clock::now();
    EXPECT_FALSE(thread->StopThread(0, false, false));
    EXPECT_LT(SecondsSince(start), 5.0);
    EXPECT_FALSE(thread->IsRunning()) << "cleared although the thread goes on";
    EXPECT_FALSE(shared.returned.load());

    // Nor can the object be started again while its thread lives.
    EXPECT_FALSE(thread->CreateThread(Cooperative, &shared, "second"));

    shared.release = true;
    thread.reset();  // waits for the thread; the sanitizers see any early free
    EXPECT_TRUE(shared.returned.load());
    EXPECT_TRUE(shared.sawTermination.load());
}

TEST(CDplThreadThreads, ReportAndProbeAThreadThatWontStop)
{
    Shared shared;
    CDplThread thread;
    shared.thread = &thread;
    ASSERT_TRUE(thread.CreateThread(Stubborn, &shared, "report"));
    ASSERT_TRUE(WaitUntil([&] { return shared.entered.load(); }));

    const uint64_t breaks = BreakIntoDebugger_GetCallCount();
    const steady_clock::time_point start = steady_clock::now();
    // With the probe the answer is whether the system still has the thread: it has.
    EXPECT_TRUE(thread.StopThread(50, true, true));
    EXPECT_GE(SecondsSince(start), 0.05) << "waited the timeout out";
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
    EXPECT_FALSE(thread.IsHandleValid());
    EXPECT_FALSE(shared.returned.load());

    // Without a handle the probe has nothing to ask about.
    EXPECT_FALSE(thread.StopThread(0, false, true));
    EXPECT_FALSE(thread.StopThread(0, false, false));
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1) << "reported only when asked";

    shared.release = true;
    EXPECT_TRUE(thread.StopThread(-1, false, false)) << "a negative timeout waits as long as needed";
    EXPECT_TRUE(shared.returned.load());
    EXPECT_TRUE(thread.StopThread(0, true, true)) << "an ended thread stops at once";
    EXPECT_EQ(BreakIntoDebugger_GetCallCount(), breaks + 1);
}

class Observed : public CDplThread
{
public:
    explicit Observed(std::atomic<int>* deletions) : CDplThread(true), deletions_(deletions) {}
    ~Observed() override { ++*deletions_; }

private:
    std::atomic<int>* deletions_;
};

void* ReturnsAtOnce(void*)
{
    return nullptr;
}

TEST(CDplThreadThreads, DeleteOnExitDeletesItselfWhenTheProcedureReturns)
{
    std::atomic<int> deletions{0};
    for (int i = 0; i < 10; ++i)
    {
        auto* thread = new Observed(&deletions);
        ASSERT_TRUE(thread->CreateThread(ReturnsAtOnce, nullptr, "self-deleting"));
        // From here on the object belongs to its thread.
    }
    EXPECT_TRUE(WaitUntil([&] { return deletions.load() == 10; }));
}

void* DeletesItsObject(void* argument)
{
    auto* shared = static_cast<Shared*>(argument);
    delete shared->thread;
    shared->returned = true;
    return nullptr;
}

TEST(CDplThreadThreads, ProcedureMayDeleteItsOwnObject)
{
    Shared state{new CDplThread(false)};
    ASSERT_TRUE(state.thread->CreateThread(DeletesItsObject, &state, "deleter"));
    EXPECT_TRUE(WaitUntil([&] { return state.returned.load(); }));
    // Give the thread time to finish; the sanitizers see any touch of the freed object.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST(CDplThreadThreads, DestructorWarnsAfterTenSecondsAndWaitsOn)
{
    Shared shared;
    std::atomic<int> warnings{0};
    threads_test::ScopedLogCapture capture(
        [&](eDbgPrintLevel level, const std::string& line)
        {
            if (level == kDbgPrintLevelWarning && line.find("ten-seconds") != std::string::npos)
            {
                ++warnings;
                shared.release = true;  // only now may the procedure end
            }
        });
    auto thread = std::make_unique<CDplThread>();
    shared.thread = thread.get();
    ASSERT_TRUE(thread->CreateThread(Stubborn, &shared, "ten-seconds"));
    ASSERT_TRUE(WaitUntil([&] { return shared.entered.load(); }));
    const steady_clock::time_point start = steady_clock::now();
    thread.reset();
    EXPECT_GE(SecondsSince(start), 9.9);
    EXPECT_EQ(warnings.load(), 1);
    EXPECT_TRUE(shared.returned.load());
    EXPECT_TRUE(shared.sawTermination.load());
}

TEST(CDplThreadThreads, ThreadNamesAreCutToFifteenBytes)
{
    Shared shared;
    CDplThread thread;
    shared.thread = &thread;
    ASSERT_TRUE(thread.CreateThread(Cooperative, &shared, "a-name-well-beyond-fifteen"));
    ASSERT_TRUE(thread.StopThread(10000, false, false));
    EXPECT_EQ(shared.name, "a-name-well-bey");
    EXPECT_EQ(thread.GetName(), "a-name-well-beyond-fifteen") << "kept as given";

    std::thread other(
        []
        {
            CDplThread::SetCurrentThreadName("0123456789abcdefghij");
            char buffer[32] = {};
            EXPECT_TRUE(CDplThread::GetCurrentThreadName(buffer, sizeof(buffer)));
            EXPECT_STREQ(buffer, "0123456789abcde");

            // A multi-byte character is never cut in half.
            CDplThread::SetCurrentThreadName("abcdefghijklmn\xc3\xa9z");
            EXPECT_TRUE(CDplThread::GetCurrentThreadName(buffer, sizeof(buffer)));
            EXPECT_STREQ(buffer, "abcdefghijklmn");
            CDplThread::SetCurrentThreadName(nullptr);  // changes nothing, and doesn't crash
            EXPECT_TRUE(CDplThread::GetCurrentThreadName(buffer, sizeof(buffer)));
            EXPECT_STREQ(buffer, "abcdefghijklmn");

            char small[4] = {'x', 'x', 'x', 'x'};
            EXPECT_TRUE(CDplThread::GetCurrentThreadName(small, sizeof(small)));
            EXPECT_STREQ(small, "abc");
            EXPECT_FALSE(CDplThread::GetCurrentThreadName(small, 0));
            EXPECT_FALSE(CDplThread::GetCurrentThreadName(nullptr, 16));
        });
    other.join();
}

}  // namespace
