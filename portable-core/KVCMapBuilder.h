#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "portable-core/DRAVPropertyNames.h"
#include "portable-core/KVCMap.h"
#include "portable-core/KVCTypedProperty.h"
#include "portable-core/KVOProperty.h"

// Builds the property map of class T, starting from its base class's map so
// that the base's descriptors (and their observer lists) are shared. The usual
// shape, which makes the map once even when several threads ask at the same
// time:
//
//     KVCMap* MyUnit::GetMyObjectProperties()
//     {
//         static KVCMap* const sClassProperties = KVCMapBuilder<MyUnit>(DRAVUnit::GetMyObjectProperties())
//             .Double(kPropertyNodeGain, &MyUnit::SetGain, &MyUnit::GetGain)     // read and write
//             .Double(kPropertyNodeVULevelChannel1, nullptr, &MyUnit::GetLevel)  // read-only
//             .Command(kPropertyUnitDumpPinStatistics, &MyUnit::DumpStatistics)  // write-only bool
//             .CommonObserver()
//             .Build();
//         return sClassProperties;
//     }
//
// Accessors are as for the typed properties (KVCTypedProperty.h). A name that
// the base map already has is replaced in this map only. Maps and descriptors
// are never destroyed: objects and observers may outlive static destruction.
template <class T>
class KVCMapBuilder
{
public:
    explicit KVCMapBuilder(const KVCMap* baseMap = nullptr)
        : map_(baseMap != nullptr ? std::make_unique<KVCMap>(*baseMap) : std::make_unique<KVCMap>())
    {
        map_->max_load_factor(1.0f);
    }

    template <class SetterT, class GetterT>
    KVCMapBuilder& Int(std::string name, SetterT setter, GetterT getter)
    {
        return Add(new KVCIntProperty<T>(std::move(name), setter, getter));
    }
    template <class SetterT, class GetterT>
    KVCMapBuilder& Double(std::string name, SetterT setter, GetterT getter)
    {
        return Add(new KVCDoubleProperty<T>(std::move(name), setter, getter));
    }
    template <class SetterT, class GetterT>
    KVCMapBuilder& String(std::string name, SetterT setter, GetterT getter)
    {
        return Add(new KVCStringProperty<T>(std::move(name), setter, getter));
    }
    template <class SetterT, class GetterT>
    KVCMapBuilder& Json(std::string name, SetterT setter, GetterT getter)
    {
        return Add(new KVCJsonProperty<T>(std::move(name), setter, getter));
    }
    template <class SetterT, class GetterT>
    KVCMapBuilder& Size(std::string name, SetterT setter, GetterT getter)
    {
        return Add(new KVCSizeProperty<T>(std::move(name), setter, getter));
    }
    template <class SetterT, class GetterT>
    KVCMapBuilder& Bool(std::string name, SetterT setter, GetterT getter)
    {
        return Add(new KVCBoolProperty<T>(std::move(name), setter, getter));
    }

    // A write-only bool that runs `action` each time it is set to true (see
    // DRAVObject::ExecuteCommandProperty). `action` takes (T&) or (T&, bool);
    // the second form also sees sets to false.
    template <class ActionT>
    KVCMapBuilder& Command(std::string name, ActionT action)
    {
        if constexpr (std::is_invocable_v<ActionT, T&, const bool&>)
        {
            return Add(new KVCBoolProperty<T>(std::move(name), action, nullptr));
        }
        else
        {
            static_assert(std::is_invocable_v<ActionT, T&>, "a command takes (T&) or (T&, bool)");
            auto onTrue = [action](T& object, bool value)
            {
                if (value)
                {
                    std::invoke(action, object);
                }
            };
            return Add(new KVCBoolProperty<T>(std::move(name), onTrue, nullptr));
        }
    }

    // Lets observers register for every property change of the class.
    KVCMapBuilder& CommonObserver() { return Add(new KVOProperty(kPropertyCommonObserver)); }

    // Any other descriptor; the map takes it for the life of the process.
    KVCMapBuilder& Add(KVCProperty* descriptor)
    {
        map_->Insert(descriptor);
        return *this;
    }

    // The finished map. Call once.
    KVCMap* Build() { return map_.release(); }

private:
    std::unique_ptr<KVCMap> map_;
};
