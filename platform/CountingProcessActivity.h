#pragma once

#include <atomic>
#include <string>

#include "platform/ProcessActivity.h"

namespace tidemix::platform
{

// A process activity that only keeps count; what the simulated world uses,
// and the Linux backend until it holds a real inhibitor.
class CountingProcessActivity : public ProcessActivity
{
public:
    void Begin(const std::string&) override { active_.store(true); ++begins_; }
    void End() override { active_.store(false); }
    bool IsActive() const override { return active_.load(); }
    int Begins() const { return begins_.load(); }

private:
    std::atomic<bool> active_{false};
    std::atomic<int> begins_{0};
};

}  // namespace tidemix::platform
