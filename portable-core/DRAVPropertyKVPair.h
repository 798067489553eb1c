#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "portable-core/DRAVPropertyType.h"
#include "portable-core/DRCSizeInteger.h"

// One key and one value in transit between an object and its observers. A
// plain copyable record: every observer receives its own copy.
//
// The scalar slot holds the int64, the double or the bool, according to the
// type; read it through GetInt/GetDouble/GetBool, which give the zero value
// when the pair is of another type.
struct DRAVPropertyKVPair
{
    int32_t type = kDRAVPropertyTypeNone;
    std::string key;
    union
    {
        int64_t intValue = 0;
        double doubleValue;
        bool boolValue;
    };
    DRCSizeInteger sizeValue;
    std::string stringValue;  // also the JSON text
    std::vector<uint8_t> dataValue;

    DRAVPropertyKVPair() = default;
    DRAVPropertyKVPair(int32_t pairType, std::string pairKey) : type(pairType), key(std::move(pairKey)) {}

    static DRAVPropertyKVPair MakeInt(std::string key, int64_t value)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeInteger, std::move(key));
        pair.intValue = value;
        return pair;
    }
    static DRAVPropertyKVPair MakeDouble(std::string key, double value)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeDouble, std::move(key));
        pair.doubleValue = value;
        return pair;
    }
    static DRAVPropertyKVPair MakeBool(std::string key, bool value)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeBool, std::move(key));
        pair.boolValue = value;
        return pair;
    }
    static DRAVPropertyKVPair MakeString(std::string key, std::string value)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeString, std::move(key));
        pair.stringValue = std::move(value);
        return pair;
    }
    static DRAVPropertyKVPair MakeJson(std::string key, std::string jsonText)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeJSON, std::move(key));
        pair.stringValue = std::move(jsonText);
        return pair;
    }
    static DRAVPropertyKVPair MakeSize(std::string key, DRCSizeInteger value)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeSize, std::move(key));
        pair.sizeValue = value;
        return pair;
    }
    static DRAVPropertyKVPair MakeData(std::string key, std::vector<uint8_t> value)
    {
        DRAVPropertyKVPair pair(kDRAVPropertyTypeData, std::move(key));
        pair.dataValue = std::move(value);
        return pair;
    }

    int64_t GetInt() const { return type == kDRAVPropertyTypeInteger ? intValue : 0; }
    double GetDouble() const { return type == kDRAVPropertyTypeDouble ? doubleValue : 0.0; }
    bool GetBool() const { return type == kDRAVPropertyTypeBool ? boolValue : false; }

    // Store a value and make the pair of that type; the key stays.
    void SetInt(int64_t value)
    {
        type = kDRAVPropertyTypeInteger;
        intValue = value;
    }
    void SetDouble(double value)
    {
        type = kDRAVPropertyTypeDouble;
        doubleValue = value;
    }
    void SetBool(bool value)
    {
        type = kDRAVPropertyTypeBool;
        boolValue = value;
    }
};
