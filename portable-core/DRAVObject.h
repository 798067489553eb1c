#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "portable-core/CDplThreadMutex.h"
#include "portable-core/DRAVPropertyKVPair.h"
#include "portable-core/DRAVResult.h"
#include "portable-core/KVCMap.h"
#include "portable-core/KVCProperty.h"
#include "portable-core/KVObserver.h"

// An object with an identity (a fresh UUID) and named, typed, observable
// properties. The properties are described by its class's map (see
// KVCMapBuilder.h), shared by every instance; observers of a property hear of
// changes on every instance and tell them apart by the object id.
//
// A set runs on the caller's thread: the class's setter, then the property's
// observers, then the class's common observers, each list in order of
// registration and under that list's recursive mutex. Nothing on a property
// path throws. Objects are held by shared_ptr.
class DRAVObject : public KVObserver, public std::enable_shared_from_this<DRAVObject>
{
public:
    // A null map means an object without properties (every set is ignored).
    explicit DRAVObject(std::string friendlyName = std::string(),
                        KVCMap* propertyMap = DRAVObject::GetMyObjectProperties());
    ~DRAVObject() override;
    DRAVObject(const DRAVObject&) = delete;
    DRAVObject& operator=(const DRAVObject&) = delete;

    // Object ID (read-only) and Friendly Name (read and write).
    static KVCMap* GetMyObjectProperties();

    // As an observer a plain object ignores what it is told. A subclass that
    // overrides one form adds `using DRAVObject::UpdateObserver;` so that the
    // other one stays visible (hiding it is a build error here).
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair, KVCProperty* property) override;
    void UpdateObserver(const std::string& objectId, DRAVPropertyKVPair pair) override;

    // An unknown name reads as read-only.
    virtual bool IsReadOnlyProperty(const std::string& name);
    virtual bool HasProperty(const std::string& name);

    // A set of the current value does nothing unless `force` is set. A set of
    // a read-only property does not change it but still tells the observers,
    // which makes such a property usable as an event.
    virtual void SetIntProperty(const std::string& name, int64_t value, bool force = false);
    virtual int64_t GetIntProperty(const std::string& name);
    virtual void SetDoubleProperty(const std::string& name, double value, bool force = false);
    virtual double GetDoubleProperty(const std::string& name);
    virtual void SetStringProperty(const std::string& name, const std::string& value, bool force = false);
    virtual std::string GetStringProperty(const std::string& name);
    virtual void SetJsonProperty(const std::string& name, const std::string& jsonText, bool force = false);
    virtual std::string GetJsonProperty(const std::string& name);
    virtual void SetSizeProperty(const std::string& name, const DRCSizeInteger& value, bool force = false);
    virtual DRCSizeInteger GetSizeProperty(const std::string& name);
    virtual void SetBoolProperty(const std::string& name, bool value, bool force = false);
    virtual bool GetBoolProperty(const std::string& name);
    virtual void SetDataProperty(const std::string& name, const std::vector<uint8_t>& value,
                                 bool force = false);
    virtual std::vector<uint8_t> GetDataProperty(const std::string& name);

    // SetBoolProperty(name, true, true).
    virtual void ExecuteCommandProperty(const std::string& name);

    // Called for names without a descriptor of the wanted type; subclasses may
    // accept such names. The base answers ErrNotFound.
    virtual DRAVResult DefaultPropertySetter(const DRAVPropertyKVPair& pair);
    virtual DRAVResult DefaultPropertyGetter(DRAVPropertyKVPair& pair);

    // An empty name means kPropertyCommonObserver (for HasObserver too). A
    // name the class doesn't have is ignored.
    virtual void AddObserver(const KVOItem& item, const std::string& name);
    virtual void RemoveObserver(const KVOItem& item, const std::string& name);
    virtual bool HasObserver(const std::string& name);

    std::string GetFriendlyName() const;
    void SetFriendlyName(const std::string& friendlyName);
    const std::string& GetObjectID() const { return objectId_; }
    KVCMap* GetPropertyMap() const { return propertyMap_; }
    // Null when the class has no such property.
    KVCProperty* FindProperty(const std::string& name) const;

    // Tells the descriptor's observers, then the class's common observers.
    void NotifyObservers(KVCProperty* descriptor, DRAVPropertyKVPair pair);
    // Tells the observers of pair.key about a value that changed by itself;
    // sets nothing.
    void NotifyPropertyObservers(DRAVPropertyKVPair pair);

    // Typed set (force false) or get by the pair's type; Ok for types 1 to 6
    // whatever the set did, ErrNotImplemented for other types, ErrNotFound for
    // a null object.
    static DRAVResult SetPropertyOnObject(const std::shared_ptr<DRAVObject>& object,
                                          const DRAVPropertyKVPair& pair);
    static DRAVResult GetPropertyFromObject(const std::shared_ptr<DRAVObject>& object,
                                            DRAVPropertyKVPair& pair);

private:
    template <class Access>
    void SetTypedProperty(const std::string& name, const typename Access::Value& value, bool force);
    template <class Access>
    typename Access::Value GetTypedProperty(const std::string& name);

    void CallObservers(KVCProperty& list, KVCProperty* changed, const DRAVPropertyKVPair& pair);

    mutable CDplThreadMutex friendlyNameMutex_;
    std::string friendlyName_;
    const std::string objectId_;
    KVCMap* const propertyMap_;
};
