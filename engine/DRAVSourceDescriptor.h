#pragma once

#include <string>

// A source the engine can make: a capture device, by name and path.
struct DRAVSourceDescriptor
{
    std::string name;
    std::string path;
    bool operator==(const DRAVSourceDescriptor&) const = default;
};
