#pragma once

#include <string>

#include "portable-core/DRAVResult.h"

// A record that has a JSON text form.
class DRAVJSONSerializationInterface
{
public:
    virtual ~DRAVJSONSerializationInterface() = default;
    virtual std::string ToJSON() const = 0;
    // On failure the record keeps its former values.
    virtual DRAVResult FromJSON(const std::string& text) = 0;
};
