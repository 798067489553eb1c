#pragma once

#include <string>

#include "portable-core/DRAVResult.h"

// Base of every settings record that has a text form.
class DRAVJSONSerializationInterface
{
public:
    virtual ~DRAVJSONSerializationInterface() = default;
    virtual std::string ToJSON() const = 0;
    virtual DRAVResult FromJSON(const std::string& text) = 0;
};
