#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "platform/ProcessActivity.h"

namespace tidemix::platform::linuxos
{

// Keeps the machine from idling while mixing runs: Begin takes logind's
// "idle" inhibitor in block mode and End releases it. Begin while active keeps
// the one lock it has. Without a system bus or logind it still tracks
// IsActive and logs once.
class LogindProcessActivity : public ProcessActivity
{
public:
    LogindProcessActivity();
    ~LogindProcessActivity() override;
    LogindProcessActivity(const LogindProcessActivity&) = delete;
    LogindProcessActivity& operator=(const LogindProcessActivity&) = delete;

    void Begin(const std::string& reason) override;
    void End() override;
    bool IsActive() const override { return active_.load(); }

private:
    struct Lock;

    std::mutex mutex_;
    std::unique_ptr<Lock> lock_;  // the inhibitor held, if any
    std::atomic<bool> active_{false};
    bool unavailableReported_ = false;
};

}  // namespace tidemix::platform::linuxos
