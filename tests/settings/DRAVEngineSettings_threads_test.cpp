#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "settings/DRAVEngineSettings.h"

namespace
{
class RecordingHandler : public DRAVSettingsNotificationInterface
{
public:
    void SettingsChanged(const DRAVEngineSettings& settings) override
    {
        std::lock_guard<std::mutex> guard(mutex_);
        delays_.push_back(settings.processorAdditionalDelayMs);
        threads_.push_back(std::this_thread::get_id());
        changed_.notify_all();
    }
    bool WaitFor(size_t count)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(30), [&] { return delays_.size() >= count; });
    }
    std::vector<int64_t> Delays()
    {
        std::lock_guard<std::mutex> guard(mutex_);
        return delays_;
    }
    std::vector<std::thread::id> Threads()
    {
        std::lock_guard<std::mutex> guard(mutex_);
        return threads_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int64_t> delays_;
    std::vector<std::thread::id> threads_;
};

// Unregisters itself from within its own call.
class OneShotHandler : public DRAVSettingsNotificationInterface,
                       public std::enable_shared_from_this<OneShotHandler>
{
public:
    explicit OneShotHandler(DRAVEngineSettings& owner) : owner_(owner) {}
    void SettingsChanged(const DRAVEngineSettings&) override
    {
        calls.fetch_add(1);
        owner_.UnregisterNotificationHandler(shared_from_this());
    }
    std::atomic<int> calls{0};

private:
    DRAVEngineSettings& owner_;
};
}  // namespace

TEST(DRAVEngineSettingsThreads, AsyncNotificationsRunOnTheirOwnThreadWithTheValuesOfTheChange)
{
    auto handler = std::make_shared<RecordingHandler>();
    {
        DRAVEngineSettings settings;
        settings.RegisterNotificationHandler(handler);
        DRAVEngineSettings other = settings;
        for (int i = 1; i <= 20; ++i)
        {
            other.processorAdditionalDelayMs = 100 + i;
            ASSERT_TRUE(settings.UpdateSettings(other, true));
            // The caller goes on changing its object while handlers run.
            settings.processorAdditionalDelayMs = -1;
        }
        ASSERT_TRUE(handler->WaitFor(20));
    }  // the destructor waits for all notifier threads
    std::vector<int64_t> delays = handler->Delays();
    std::sort(delays.begin(), delays.end());
    for (int i = 1; i <= 20; ++i)
    {
        EXPECT_EQ(delays[static_cast<size_t>(i - 1)], 100 + i);
    }
    for (std::thread::id id : handler->Threads())
    {
        EXPECT_NE(id, std::this_thread::get_id());
    }
}

TEST(DRAVEngineSettingsThreads, HandlersMayUnregisterThemselvesWhileOthersRegister)
{
    DRAVEngineSettings settings;
    auto oneShot = std::make_shared<OneShotHandler>(settings);
    settings.RegisterNotificationHandler(oneShot);
    std::atomic<bool> stop{false};
    std::thread registrar(
        [&]
        {
            while (!stop.load())
            {
                auto extra = std::make_shared<RecordingHandler>();
                settings.RegisterNotificationHandler(extra);
                settings.UnregisterNotificationHandler(extra);
            }
        });
    DRAVEngineSettings other = settings;
    for (int i = 0; i < 50; ++i)
    {
        other.maxNumberLogFiles = 20 + i;
        settings.UpdateSettings(other, false);
    }
    stop.store(true);
    registrar.join();
    EXPECT_EQ(oneShot->calls.load(), 1);
}
