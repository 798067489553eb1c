#pragma once

#include <cstdint>
#include <string>

#include "engine/units/DRAVUnit.h"

using DRAVFilterType = int32_t;

struct DRAVFilterConfig
{
    DRAVFilterType type = 0;
    bool blocking = false;
};

class DRAVFilterInterface
{
public:
    virtual ~DRAVFilterInterface() = default;
    virtual DRAVFilterType GetType() = 0;
    virtual DRAVResult InitFilter(DRAVPinType input, DRAVPinType output) = 0;
};

// A unit with input and output pins that works on frames on their way.
// A concrete filter's Init ends with SetUnitInitialized(true) on success.
class DRAVFilter : public DRAVUnit, public DRAVFilterInterface
{
public:
    static constexpr DRAVFilterType kTypeProcessor = 1;

    DRAVFilter(const std::string& name, KVCMap* propertyMap, const DRAVFilterConfig& config, int inputPins,
               int outputPins)
        : DRAVUnit(name, propertyMap, inputPins, outputPins), config_(config)
    {
    }

    // Threaded (or ThreadedBlocking) in, passthrough out.
    DRAVResult Init() override
    {
        return InitFilter(config_.blocking ? kDRAVPinTypeThreadedBlocking : kDRAVPinTypeThreaded,
                          kDRAVPinTypePassthrough);
    }
    DRAVFilterType GetType() override { return config_.type; }
    DRAVResult InitFilter(DRAVPinType input, DRAVPinType output) override { return InitUnit(input, output); }
    const DRAVFilterConfig& GetFilterConfig() const { return config_; }

private:
    const DRAVFilterConfig config_;
};
