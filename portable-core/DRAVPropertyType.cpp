#include "portable-core/DRAVPropertyType.h"

const char* _DRAVPropertyTypeToString(int32_t type)
{
    switch (type)
    {
        case kDRAVPropertyTypeNone:
            return "None";
        case kDRAVPropertyTypeInteger:
            return "Integer";
        case kDRAVPropertyTypeDouble:
            return "Double";
        case kDRAVPropertyTypeString:
            return "String";
        case kDRAVPropertyTypeJSON:
            return "JSON";
        case kDRAVPropertyTypeSize:
            return "Size";
        case kDRAVPropertyTypeBool:
            return "Bool";
        case kDRAVPropertyTypeData:
            return "Data";
        case kDRAVPropertyTypeObserver:
            return "Observer";
        default:
            return "";
    }
}
