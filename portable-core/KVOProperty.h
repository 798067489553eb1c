#pragma once

#include <string>

#include "portable-core/KVCProperty.h"

// A property without a value that only holds an observer list. Registered as
// kPropertyCommonObserver it collects the observers of every property change
// of the class.
class KVOProperty : public KVCProperty
{
public:
    explicit KVOProperty(std::string name)
        : KVCProperty(std::move(name), kDRAVPropertyTypeObserver, /*canWrite=*/false, /*canRead=*/true)
    {
    }
};
