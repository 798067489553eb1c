#pragma once

#include <string>

namespace tidemix::platform
{

// Keeps the system from idling the process while mixing runs (an inhibitor
// on Linux). Begin and End pair up; End without Begin does nothing.
class ProcessActivity
{
public:
    virtual ~ProcessActivity() = default;
    virtual void Begin(const std::string& reason) = 0;
    virtual void End() = 0;
    virtual bool IsActive() const = 0;
};

}  // namespace tidemix::platform
