#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

// The intrusive reference count under the socket library's objects and the
// sound filters. A new object has a count of 0; the last CCountedPtr to let go
// deletes it. Objects on the stack must not be handed to CCountedPtr.
class CCountedObject
{
public:
    CCountedObject() = default;
    // A copy is a new object with a count of its own.
    CCountedObject(const CCountedObject&) : count_(0) {}
    CCountedObject& operator=(const CCountedObject&) { return *this; }

    // A new object of the same class with one reference; subclasses override.
    virtual CCountedObject* rc_Dup() const;
    virtual int64_t rc_GetResourceUsage(int, void*) const { return 0; }
    virtual ~CCountedObject() = default;
    virtual void rc_FirstRefCreated() const {}
    virtual void rc_LastRefDestroyed() const { rc_Delete(); }
    virtual void rc_Delete() const { delete this; }

    void rc_Ref() const
    {
        if (count_.fetch_add(1, std::memory_order_relaxed) == 0)
        {
            rc_FirstRefCreated();
        }
    }
    void rc_Unref() const
    {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1)
        {
            rc_LastRefDestroyed();
        }
    }
    int32_t rc_Count() const { return count_.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int32_t> count_{0};
};

template <class T>
class CCountedPtr
{
public:
    CCountedPtr() = default;
    CCountedPtr(std::nullptr_t) {}
    CCountedPtr(T* object) : object_(object) { Ref(); }
    CCountedPtr(const CCountedPtr& other) : object_(other.object_) { Ref(); }
    CCountedPtr(CCountedPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    CCountedPtr(const CCountedPtr<U>& other) : object_(other.get())
    {
        Ref();
    }
    ~CCountedPtr() { Unref(); }

    CCountedPtr& operator=(const CCountedPtr& other)
    {
        CCountedPtr(other).swap(*this);
        return *this;
    }
    CCountedPtr& operator=(CCountedPtr&& other) noexcept
    {
        CCountedPtr(std::move(other)).swap(*this);
        return *this;
    }
    CCountedPtr& operator=(T* object)
    {
        CCountedPtr(object).swap(*this);
        return *this;
    }

    void swap(CCountedPtr& other) noexcept { std::swap(object_, other.object_); }
    void reset() { CCountedPtr().swap(*this); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    template <class U>
    bool operator==(const CCountedPtr<U>& other) const
    {
        return object_ == other.get();
    }
    bool operator==(std::nullptr_t) const { return object_ == nullptr; }

private:
    void Ref()
    {
        if (object_ != nullptr)
        {
            object_->rc_Ref();
        }
    }
    void Unref()
    {
        if (object_ != nullptr)
        {
            object_->rc_Unref();
        }
    }

    T* object_ = nullptr;
};
