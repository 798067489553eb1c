#pragma once

#include <cstdint>

// The value type of a property; the number is stored in pairs and descriptors
// as a plain int32 so that it crosses library boundaries unchanged.
enum DRAVPropertyType : int32_t
{
    kDRAVPropertyTypeNone = 0,
    kDRAVPropertyTypeInteger = 1,
    kDRAVPropertyTypeDouble = 2,
    kDRAVPropertyTypeString = 3,
    kDRAVPropertyTypeJSON = 4,
    kDRAVPropertyTypeSize = 5,
    kDRAVPropertyTypeBool = 6,
    kDRAVPropertyTypeData = 7,
    kDRAVPropertyTypeObserver = 8,
};

// "None", "Integer", ... "Observer"; an empty text for a value out of range.
// Never null.
const char* _DRAVPropertyTypeToString(int32_t type);
