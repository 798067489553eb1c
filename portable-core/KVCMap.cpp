#include "portable-core/KVCMap.h"

#include <cstdio>
#include <sstream>

#include "portable-core/DRAVObject.h"

namespace
{
std::string PadRight(const std::string& text, size_t width)
{
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string ValueText(KVCProperty& property, DRAVObject* object)
{
    const std::string& name = property.GetName();
    char buffer[64] = {};
    switch (property.GetType())
    {
        case kDRAVPropertyTypeObserver:
            snprintf(buffer, sizeof(buffer), "%zu item(s)", property.GetObserverCount());
            return buffer;
        case kDRAVPropertyTypeInteger:
            return object != nullptr ? std::to_string(object->GetIntProperty(name)) : std::string();
        case kDRAVPropertyTypeDouble:
            if (object == nullptr)
            {
                return {};
            }
            snprintf(buffer, sizeof(buffer), "%g", object->GetDoubleProperty(name));
            return buffer;
        case kDRAVPropertyTypeString:
            return object != nullptr ? object->GetStringProperty(name) : std::string();
        case kDRAVPropertyTypeJSON:
            return object != nullptr ? object->GetJsonProperty(name) : std::string();
        case kDRAVPropertyTypeSize:
        {
            if (object == nullptr)
            {
                return {};
            }
            const DRCSizeInteger size = object->GetSizeProperty(name);
            snprintf(buffer, sizeof(buffer), "%dx%d", size.width, size.height);
            return buffer;
        }
        case kDRAVPropertyTypeBool:
            if (object == nullptr)
            {
                return {};
            }
            return object->GetBoolProperty(name) ? "true" : "false";
        case kDRAVPropertyTypeData:
            if (object == nullptr)
            {
                return {};
            }
            return "Data(" + std::to_string(object->GetDataProperty(name).size()) + " bytes)";
        default:
            return {};
    }
}
}  // namespace

std::string KVCMap::GetContentString(const std::shared_ptr<DRAVObject>& object,
                                     const std::string& prefix) const
{
    std::string text;
    for (const auto& [name, property] : *this)
    {
        if (property == nullptr)
        {
            continue;
        }
        text += prefix;
        text += "    ";
        text += PadRight(name, 36);
        text += PadRight(_DRAVPropertyTypeToString(property->GetType()), 9);
        text += ValueText(*property, object.get());
        text += '\n';
    }
    return text;
}

void KVCMap::Dump(const char* prefix, const std::shared_ptr<DRAVObject>& object, eDbgPrintLevel level) const
{
    std::istringstream lines(GetContentString(object, prefix != nullptr ? prefix : ""));
    std::string line;
    while (std::getline(lines, line))
    {
        DRAVLogLine(level, line);
    }
}
