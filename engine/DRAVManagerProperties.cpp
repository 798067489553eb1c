// The engine manager's property access by object id and its observers of
// every unit's properties.
#include "engine/DRAVManager.h"

KVCMap* DRAVManager::GetObjectProperties(const std::string& objectId)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit ? unit->GetPropertyMap() : nullptr;
}

bool DRAVManager::IsReadOnlyProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr && unit->IsReadOnlyProperty(name);
}

bool DRAVManager::HasProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr && unit->HasProperty(name);
}

void DRAVManager::SetIntProperty(const std::string& objectId, const char* name, int64_t value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetIntProperty(name, value, false);
    }
}

int64_t DRAVManager::GetIntProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetIntProperty(name) : 0;
}

void DRAVManager::SetDoubleProperty(const std::string& objectId, const char* name, double value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetDoubleProperty(name, value, false);
    }
}

double DRAVManager::GetDoubleProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetDoubleProperty(name) : 0.0;
}

void DRAVManager::SetStringProperty(const std::string& objectId, const char* name, const std::string& value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetStringProperty(name, value, false);
    }
}

std::string DRAVManager::GetStringProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetStringProperty(name) : std::string();
}

void DRAVManager::SetJsonProperty(const std::string& objectId, const char* name, const std::string& value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetJsonProperty(name, value, false);
    }
}

std::string DRAVManager::GetJsonProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetJsonProperty(name) : std::string();
}

void DRAVManager::SetSizeProperty(const std::string& objectId, const char* name, const DRCSizeInteger& value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetSizeProperty(name, value, false);
    }
}

DRCSizeInteger DRAVManager::GetSizeProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr ? unit->GetSizeProperty(name) : DRCSizeInteger();
}

void DRAVManager::SetBoolProperty(const std::string& objectId, const char* name, bool value)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->SetBoolProperty(name, value, false);
    }
}

bool DRAVManager::GetBoolProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    return unit && name != nullptr && unit->GetBoolProperty(name);
}

void DRAVManager::ExecuteCommandProperty(const std::string& objectId, const char* name)
{
    std::shared_ptr<DRAVUnit> unit = FindRegisteredUnit(objectId);
    if (unit && name != nullptr)
    {
        unit->ExecuteCommandProperty(name);
    }
}

void DRAVManager::AddObserver(KVObserver* observer, const char* name)
{
    if (observer == nullptr)
    {
        return;
    }
    const std::string property = (name == nullptr || *name == '\0') ? kPropertyCommonObserver : name;
    for (const auto& unit : GetActiveUnitList())
    {
        if (unit->FindProperty(property) != nullptr)
        {
            unit->AddObserver(KVOItem::Raw(observer), property);
        }
    }
}

void DRAVManager::RemoveObserver(KVObserver* observer, const char* name)
{
    if (observer == nullptr)
    {
        return;
    }
    const std::string property = (name == nullptr || *name == '\0') ? kPropertyCommonObserver : name;
    for (const auto& unit : GetActiveUnitList())
    {
        if (unit->FindProperty(property) != nullptr)
        {
            unit->RemoveObserver(KVOItem::Raw(observer), property);
        }
    }
}
