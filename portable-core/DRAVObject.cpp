#include "portable-core/DRAVObject.h"

#include <uuid/uuid.h>

#include <exception>
#include <mutex>

#include "portable-core/DRAVLog.h"
#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMapBuilder.h"

namespace
{
std::string MakeObjectId()
{
    // libuuid keeps process-wide state for its random source; objects are
    // made on control paths only, so serialising costs nothing.
    static std::mutex uuidMutex;
    uuid_t uuid;
    char text[37] = {};
    {
        std::lock_guard<std::mutex> lock(uuidMutex);
        uuid_generate(uuid);
    }
    uuid_unparse_lower(uuid, text);
    return text;
}

// How each typed set and get reaches its descriptor and its pair.
struct IntAccess
{
    using Value = int64_t;
    static constexpr int32_t kType = kDRAVPropertyTypeInteger;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetInt(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetInt(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.intValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.intValue; }
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

struct DoubleAccess
{
    using Value = double;
    static constexpr int32_t kType = kDRAVPropertyTypeDouble;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetDouble(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetDouble(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.doubleValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.doubleValue; }
    // Floating comparison: a NaN never equals anything, so it always notifies.
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

struct StringAccess
{
    using Value = std::string;
    static constexpr int32_t kType = kDRAVPropertyTypeString;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetString(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetString(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.stringValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.stringValue; }
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

struct JsonAccess
{
    using Value = std::string;
    static constexpr int32_t kType = kDRAVPropertyTypeJSON;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetJson(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetJson(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.stringValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.stringValue; }
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

struct SizeAccess
{
    using Value = DRCSizeInteger;
    static constexpr int32_t kType = kDRAVPropertyTypeSize;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetSize(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetSize(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.sizeValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.sizeValue; }
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

struct BoolAccess
{
    using Value = bool;
    static constexpr int32_t kType = kDRAVPropertyTypeBool;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetBool(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetBool(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.boolValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.boolValue; }
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

struct DataAccess
{
    using Value = std::vector<uint8_t>;
    static constexpr int32_t kType = kDRAVPropertyTypeData;
    static Value Read(KVCProperty& d, DRAVObject* o) { return d.GetData(o); }
    static void Write(KVCProperty& d, DRAVObject* o, const Value& v) { d.SetData(o, v); }
    static void Store(DRAVPropertyKVPair& p, const Value& v) { p.dataValue = v; }
    static Value Load(const DRAVPropertyKVPair& p) { return p.dataValue; }
    static bool Equal(const Value& a, const Value& b) { return a == b; }
};

void LogObserverFailure(const std::string& propertyName, const char* reason)
{
    DRAVLogPrintf(kDbgPrintLevelError, "Observer of property <%s> failed: %s", propertyName.c_str(), reason);
}
}  // namespace

DRAVObject::DRAVObject(std::string friendlyName, KVCMap* propertyMap)
    : friendlyName_(std::move(friendlyName)), objectId_(MakeObjectId()), propertyMap_(propertyMap)
{
}

DRAVObject::~DRAVObject() = default;

KVCMap* DRAVObject::GetMyObjectProperties()
{
    static KVCMap* const sClassProperties =
        KVCMapBuilder<DRAVObject>()
            .String(kPropertyUnitObjectID, nullptr, &DRAVObject::GetObjectID)
            .String(kPropertyFriendlyName, &DRAVObject::SetFriendlyName, &DRAVObject::GetFriendlyName)
            .Build();
    return sClassProperties;
}

void DRAVObject::UpdateObserver(const std::string&, DRAVPropertyKVPair, KVCProperty*) {}

void DRAVObject::UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair)
{
    UpdateObserver(objectId, std::move(pair), nullptr);
}

bool DRAVObject::IsReadOnlyProperty(const std::string& name)
{
    const KVCProperty* descriptor = FindProperty(name);
    return descriptor == nullptr || descriptor->GetAccessMode() == kKVCAccessReadOnly;
}

bool DRAVObject::HasProperty(const std::string& name)
{
    return FindProperty(name) != nullptr;
}

KVCProperty* DRAVObject::FindProperty(const std::string& name) const
{
    return propertyMap_ != nullptr ? propertyMap_->Find(name) : nullptr;
}

template <class Access>
void DRAVObject::SetTypedProperty(const std::string& name, const typename Access::Value& value, bool force)
{
    if (propertyMap_ == nullptr)
    {
        return;
    }
    KVCProperty* descriptor = propertyMap_->Find(name);
    DRAVPropertyKVPair pair(Access::kType, name);
    Access::Store(pair, value);
    if (descriptor == nullptr || descriptor->GetType() != Access::kType)
    {
        (void)DefaultPropertySetter(pair);
        return;
    }
    if (!force && Access::Equal(value, Access::Read(*descriptor, this)))
    {
        return;
    }
    // A read-only descriptor ignores the write; its observers still hear of it.
    Access::Write(*descriptor, this, value);
    NotifyObservers(descriptor, std::move(pair));
}

template <class Access>
typename Access::Value DRAVObject::GetTypedProperty(const std::string& name)
{
    KVCProperty* descriptor = FindProperty(name);
    if (descriptor != nullptr && descriptor->GetType() == Access::kType)
    {
        return Access::Read(*descriptor, this);
    }
    DRAVPropertyKVPair pair(Access::kType, name);
    if (DefaultPropertyGetter(pair).Succeeded())
    {
        return Access::Load(pair);
    }
    return typename Access::Value{};
}

void DRAVObject::SetIntProperty(const std::string& name, int64_t value, bool force)
{
    SetTypedProperty<IntAccess>(name, value, force);
}
int64_t DRAVObject::GetIntProperty(const std::string& name)
{
    return GetTypedProperty<IntAccess>(name);
}

void DRAVObject::SetDoubleProperty(const std::string& name, double value, bool force)
{
    SetTypedProperty<DoubleAccess>(name, value, force);
}
double DRAVObject::GetDoubleProperty(const std::string& name)
{
    return GetTypedProperty<DoubleAccess>(name);
}

void DRAVObject::SetStringProperty(const std::string& name, const std::string& value, bool force)
{
    SetTypedProperty<StringAccess>(name, value, force);
}
std::string DRAVObject::GetStringProperty(const std::string& name)
{
    return GetTypedProperty<StringAccess>(name);
}

void DRAVObject::SetJsonProperty(const std::string& name, const std::string& jsonText, bool force)
{
    SetTypedProperty<JsonAccess>(name, jsonText, force);
}
std::string DRAVObject::GetJsonProperty(const std::string& name)
{
    return GetTypedProperty<JsonAccess>(name);
}

void DRAVObject::SetSizeProperty(const std::string& name, const DRCSizeInteger& value, bool force)
{
    SetTypedProperty<SizeAccess>(name, value, force);
}
DRCSizeInteger DRAVObject::GetSizeProperty(const std::string& name)
{
    return GetTypedProperty<SizeAccess>(name);
}

void DRAVObject::SetBoolProperty(const std::string& name, bool value, bool force)
{
    SetTypedProperty<BoolAccess>(name, value, force);
}
bool DRAVObject::GetBoolProperty(const std::string& name)
{
    return GetTypedProperty<BoolAccess>(name);
}

void DRAVObject::SetDataProperty(const std::string& name, const std::vector<uint8_t>& value, bool force)
{
    SetTypedProperty<DataAccess>(name, value, force);
}
std::vector<uint8_t> DRAVObject::GetDataProperty(const std::string& name)
{
    return GetTypedProperty<DataAccess>(name);
}

void DRAVObject::ExecuteCommandProperty(const std::string& name)
{
    SetBoolProperty(name, true, true);
}

DRAVResult DRAVObject::DefaultPropertySetter(const DRAVPropertyKVPair&)
{
    return DRAVResult(kDRAVResultErrNotFound);
}

DRAVResult DRAVObject::DefaultPropertyGetter(DRAVPropertyKVPair&)
{
    return DRAVResult(kDRAVResultErrNotFound);
}

void DRAVObject::AddObserver(const KVOItem& item, const std::string& name)
{
    if (KVCProperty* descriptor = FindProperty(name.empty() ? std::string(kPropertyCommonObserver) : name))
    {
        descriptor->AddObserver(item);
    }
}

void DRAVObject::RemoveObserver(const KVOItem& item, const std::string& name)
{
    if (KVCProperty* descriptor = FindProperty(name.empty() ? std::string(kPropertyCommonObserver) : name))
    {
        descriptor->RemoveObserver(item);
    }
}

bool DRAVObject::HasObserver(const std::string& name)
{
    KVCProperty* descriptor = FindProperty(name.empty() ? std::string(kPropertyCommonObserver) : name);
    return descriptor != nullptr && descriptor->HasObservers();
}

std::string DRAVObject::GetFriendlyName() const
{
    CDplScopedLock lock(friendlyNameMutex_);
    return friendlyName_;
}

void DRAVObject::SetFriendlyName(const std::string& friendlyName)
{
    CDplScopedLock lock(friendlyNameMutex_);
    friendlyName_ = friendlyName;
}

void DRAVObject::NotifyObservers(KVCProperty* descriptor, DRAVPropertyKVPair pair)
{
    if (descriptor == nullptr)
    {
        return;
    }
    CallObservers(*descriptor, descriptor, pair);

    KVCProperty* common = FindProperty(kPropertyCommonObserver);
    if (common != nullptr && common != descriptor && common->GetType() == kDRAVPropertyTypeObserver)
    {
        CallObservers(*common, descriptor, pair);
    }
}

void DRAVObject::NotifyPropertyObservers(DRAVPropertyKVPair pair)
{
    if (KVCProperty* descriptor = FindProperty(pair.key))
    {
        NotifyObservers(descriptor, std::move(pair));
    }
}

void DRAVObject::CallObservers(KVCProperty& list, KVCProperty* changed, const DRAVPropertyKVPair& pair)
{
    list.ForEachObserver(
        [&](const KVOItem& item)
        {
            // Each observer gets its own copy of the pair. An observer that
            // throws must not cut the others off, nor escape into the setter.
            try
            {
                if (const std::shared_ptr<KVObserver> locked = item.weakObserver.lock())
                {
                    locked->UpdateObserver(objectId_, pair, changed);
                }
                else if (item.observer != nullptr)
                {
                    item.observer->UpdateObserver(objectId_, pair);
                }
                else if (item.sharedObserver != nullptr)
                {
                    item.sharedObserver->UpdateObserver(objectId_, pair);
                }
            }
            catch (const std::exception& e)
            {
                LogObserverFailure(changed->GetName(), e.what());
            }
            catch (...)
            {
                LogObserverFailure(changed->GetName(), "unknown exception");
            }
        });
}

DRAVResult DRAVObject::SetPropertyOnObject(const std::shared_ptr<DRAVObject>& object,
                                           const DRAVPropertyKVPair& pair)
{
    if (object == nullptr)
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    switch (pair.type)
    {
        case kDRAVPropertyTypeInteger:
            object->SetIntProperty(pair.key, pair.intValue, false);
            break;
        case kDRAVPropertyTypeDouble:
            object->SetDoubleProperty(pair.key, pair.doubleValue, false);
            break;
        case kDRAVPropertyTypeString:
            object->SetStringProperty(pair.key, pair.stringValue, false);
            break;
        case kDRAVPropertyTypeJSON:
            object->SetJsonProperty(pair.key, pair.stringValue, false);
            break;
        case kDRAVPropertyTypeSize:
            object->SetSizeProperty(pair.key, pair.sizeValue, false);
            break;
        case kDRAVPropertyTypeBool:
            object->SetBoolProperty(pair.key, pair.boolValue, false);
            break;
        default:
            return DRAVResult(kDRAVResultErrNotImplemented);
    }
    return DRAVResult(kDRAVResultOk);
}

DRAVResult DRAVObject::GetPropertyFromObject(const std::shared_ptr<DRAVObject>& object,
                                             DRAVPropertyKVPair& pair)
{
    if (object == nullptr)
    {
        return DRAVResult(kDRAVResultErrNotFound);
    }
    switch (pair.type)
    {
        case kDRAVPropertyTypeInteger:
            pair.intValue = object->GetIntProperty(pair.key);
            break;
        case kDRAVPropertyTypeDouble:
            pair.doubleValue = object->GetDoubleProperty(pair.key);
            break;
        case kDRAVPropertyTypeString:
            pair.stringValue = object->GetStringProperty(pair.key);
            break;
        case kDRAVPropertyTypeJSON:
            pair.stringValue = object->GetJsonProperty(pair.key);
            break;
        case kDRAVPropertyTypeSize:
            pair.sizeValue = object->GetSizeProperty(pair.key);
            break;
        case kDRAVPropertyTypeBool:
            pair.boolValue = object->GetBoolProperty(pair.key);
            break;
        default:
            return DRAVResult(kDRAVResultErrNotImplemented);
    }
    return DRAVResult(kDRAVResultOk);
}
