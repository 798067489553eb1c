#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "portable-core/DRAVLog.h"
#include "portable-core/KVCProperty.h"

// The typed descriptors: each binds a property of class T to a setter and a
// getter of T. A setter or getter may be
// - a pointer to a member function of T (its return value, if any, is
//   dropped; its argument may be any type the property's value converts to),
// - any callable taking (T&, value) or (T&),
// - nullptr, where the access mode excludes it.
// Without explicit flags a property with both accessors is read and write,
// one with a getter only read-only, one with a setter only write-only.
//
// The object handed to Set.../Get... is converted to T with dynamic_cast; an
// object of another class gets the zero value and no call. An accessor that
// throws is logged and treated as if it had done nothing.

namespace kvc_detail
{
template <class Accessor>
bool IsAbsent(const Accessor& accessor)
{
    if constexpr (std::is_null_pointer_v<Accessor>)
    {
        return true;
    }
    else if constexpr (std::is_member_pointer_v<Accessor> || std::is_pointer_v<Accessor>)
    {
        return accessor == nullptr;
    }
    else
    {
        return false;
    }
}

template <class T, class Value, class Setter>
std::function<void(T&, const Value&)> MakeSetter(Setter setter)
{
    if constexpr (std::is_null_pointer_v<Setter>)
    {
        return {};
    }
    else
    {
        static_assert(std::is_invocable_v<Setter, T&, const Value&>,
                      "the setter must accept the property's value on the class");
        if (IsAbsent(setter))
        {
            return {};
        }
        return [setter](T& object, const Value& value) { std::invoke(setter, object, value); };
    }
}

template <class T, class Value, class Getter>
std::function<Value(T&)> MakeGetter(Getter getter)
{
    if constexpr (std::is_null_pointer_v<Getter>)
    {
        return {};
    }
    else
    {
        static_assert(std::is_invocable_v<Getter, T&>, "the getter must be callable on the class");
        static_assert(std::is_constructible_v<Value, std::invoke_result_t<Getter, T&>>,
                      "the getter must return something the property's value can be made from");
        if (IsAbsent(getter))
        {
            return {};
        }
        return [getter](T& object) { return static_cast<Value>(std::invoke(getter, object)); };
    }
}

void LogAccessorFailure(const std::string& propertyName, const char* what, const char* reason);
}  // namespace kvc_detail

template <class T, class Value, int32_t TypeCode>
class KVCTypedProperty : public KVCProperty
{
public:
    using Setter = std::function<void(T&, const Value&)>;
    using Getter = std::function<Value(T&)>;

    // Access mode from the accessors that are present.
    template <class SetterT, class GetterT>
    KVCTypedProperty(std::string name, SetterT setter, GetterT getter)
        : KVCTypedProperty(std::move(name), setter, getter, !kvc_detail::IsAbsent(setter),
                           !kvc_detail::IsAbsent(getter))
    {
    }

    // Access mode from explicit flags.
    template <class SetterT, class GetterT>
    KVCTypedProperty(std::string name, SetterT setter, GetterT getter, bool canWrite, bool canRead)
        : KVCProperty(std::move(name), TypeCode, canWrite, canRead),
          setter_(kvc_detail::MakeSetter<T, Value>(setter)),
          getter_(kvc_detail::MakeGetter<T, Value>(getter))
    {
    }

protected:
    void WriteValue(DRAVObject* object, const Value& value)
    {
        if (GetAccessMode() == kKVCAccessReadOnly || !setter_)
        {
            return;
        }
        T* target = dynamic_cast<T*>(object);
        if (target == nullptr)
        {
            return;
        }
        try
        {
            setter_(*target, value);
        }
        catch (const std::exception& e)
        {
            kvc_detail::LogAccessorFailure(GetName(), "setter", e.what());
        }
        catch (...)
        {
            kvc_detail::LogAccessorFailure(GetName(), "setter", "unknown exception");
        }
    }

    Value ReadValue(DRAVObject* object)
    {
        if (GetAccessMode() == kKVCAccessWriteOnly || !getter_)
        {
            return Value{};
        }
        T* target = dynamic_cast<T*>(object);
        if (target == nullptr)
        {
            return Value{};
        }
        try
        {
            return getter_(*target);
        }
        catch (const std::exception& e)
        {
            kvc_detail::LogAccessorFailure(GetName(), "getter", e.what());
        }
        catch (...)
        {
            kvc_detail::LogAccessorFailure(GetName(), "getter", "unknown exception");
        }
        return Value{};
    }

private:
    const Setter setter_;
    const Getter getter_;
};

template <class T>
class KVCIntProperty : public KVCTypedProperty<T, int64_t, kDRAVPropertyTypeInteger>
{
public:
    using KVCTypedProperty<T, int64_t, kDRAVPropertyTypeInteger>::KVCTypedProperty;
    void SetInt(DRAVObject* object, int64_t value) override { this->WriteValue(object, value); }
    int64_t GetInt(DRAVObject* object) override { return this->ReadValue(object); }
};

template <class T>
class KVCDoubleProperty : public KVCTypedProperty<T, double, kDRAVPropertyTypeDouble>
{
public:
    using KVCTypedProperty<T, double, kDRAVPropertyTypeDouble>::KVCTypedProperty;
    void SetDouble(DRAVObject* object, double value) override { this->WriteValue(object, value); }
    double GetDouble(DRAVObject* object) override { return this->ReadValue(object); }
};

template <class T>
class KVCStringProperty : public KVCTypedProperty<T, std::string, kDRAVPropertyTypeString>
{
public:
    using KVCTypedProperty<T, std::string, kDRAVPropertyTypeString>::KVCTypedProperty;
    void SetString(DRAVObject* object, const std::string& value) override { this->WriteValue(object, value); }
    std::string GetString(DRAVObject* object) override { return this->ReadValue(object); }
};

// The value is JSON text; parsing it is the setter's business.
template <class T>
class KVCJsonProperty : public KVCTypedProperty<T, std::string, kDRAVPropertyTypeJSON>
{
public:
    using KVCTypedProperty<T, std::string, kDRAVPropertyTypeJSON>::KVCTypedProperty;
    void SetJson(DRAVObject* object, const std::string& jsonText) override
    {
        this->WriteValue(object, jsonText);
    }
    std::string GetJson(DRAVObject* object) override { return this->ReadValue(object); }
};

template <class T>
class KVCSizeProperty : public KVCTypedProperty<T, DRCSizeInteger, kDRAVPropertyTypeSize>
{
public:
    using KVCTypedProperty<T, DRCSizeInteger, kDRAVPropertyTypeSize>::KVCTypedProperty;
    void SetSize(DRAVObject* object, const DRCSizeInteger& value) override
    {
        this->WriteValue(object, value);
    }
    DRCSizeInteger GetSize(DRAVObject* object) override { return this->ReadValue(object); }
};

template <class T>
class KVCBoolProperty : public KVCTypedProperty<T, bool, kDRAVPropertyTypeBool>
{
public:
    using KVCTypedProperty<T, bool, kDRAVPropertyTypeBool>::KVCTypedProperty;
    void SetBool(DRAVObject* object, bool value) override { this->WriteValue(object, value); }
    bool GetBool(DRAVObject* object) override { return this->ReadValue(object); }
};
