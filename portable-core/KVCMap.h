#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "portable-core/DRAVLog.h"
#include "portable-core/KVCProperty.h"

class DRAVObject;

// The properties of one class, by name. A map holds its descriptors without
// owning them: descriptors live as long as the process, and the map of a
// derived class shares the very descriptors of its base class's map.
//
// A class map is built once and only read afterwards, so any number of
// threads may look names up at the same time.
class KVCMap : public std::unordered_map<std::string, KVCProperty*>
{
public:
    KVCMap() { max_load_factor(1.0f); }

    // Null for an unknown name.
    KVCProperty* Find(const std::string& name) const
    {
        const auto it = find(name);
        return it != end() ? it->second : nullptr;
    }

    // Adds a descriptor under its name, replacing an inherited one of the same
    // name in this map only. A null descriptor is ignored.
    void Insert(KVCProperty* descriptor)
    {
        if (descriptor != nullptr)
        {
            (*this)[descriptor->GetName()] = descriptor;
        }
    }

    // One line per property: prefix, four blanks, the name in 36 columns, the
    // type name in 9 columns, then the value as `object` reports it (nothing
    // without an object).
    std::string GetContentString(const std::shared_ptr<DRAVObject>& object, const std::string& prefix) const;
    // Writes GetContentString's lines to the log at `level`.
    void Dump(const char* prefix, const std::shared_ptr<DRAVObject>& object,
              eDbgPrintLevel level = kDbgPrintLevelInfo) const;
};
