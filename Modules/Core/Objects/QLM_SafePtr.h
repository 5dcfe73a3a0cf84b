#pragma once
// The checked pointer and the one-owner holder.

#include "Core/Objects/QLM_GarbageCollectionItem.h"

#include <string>
#include <typeinfo>
#include <utility>

/// Spells "class QLM_Object" for a type, as operation names of checks want it. Any thread.
std::string QLM_ClassName(const std::type_info& type);

/// Runs the failing check with the name "QLM_SafePtr<class T>::" + operation.
void QLM_FailSafePtr(const QLM_GarbageCollectionItem* item, const std::type_info& type, const char* operation);

/// A raw pointer whose every dereference is checked. Owns nothing, is the size of a pointer, copies freely.
/// T may be incomplete where the pointer is only a member.
template <class T> class QLM_SafePtr {
  public:
    QLM_SafePtr() noexcept = default;
    QLM_SafePtr(std::nullptr_t) noexcept {}
    QLM_SafePtr(T* item) : pointer(item) { CheckNonNull("QLM_SafePtr"); }
    QLM_SafePtr& operator=(T* item) { pointer = item; CheckNonNull("operator ="); return *this; }
    QLM_SafePtr& operator=(std::nullptr_t) noexcept { pointer = nullptr; return *this; }

    T* operator->() const { Check("operator ->"); return pointer; }
    T& operator*() const { Check("operator *"); return *pointer; }
    operator T*() const { CheckNonNull(nullptr); return pointer; }

  private:
    void Check(const char* operation) const {
        if (!QLM_IsItemUsable(pointer)) QLM_FailSafePtr(pointer, typeid(T), operation);
    }
    void CheckNonNull(const char* operation) const {
        if (pointer && !QLM_IsItemUsable(pointer)) QLM_FailSafePtr(pointer, typeid(T), operation);
    }
    T* pointer = nullptr;
};

/// The one owner of an item: deletes it (deferred) on destruction and on reset. Movable, not copyable.
template <class T> class QLM_Owned {
  public:
    QLM_Owned() noexcept = default;
    explicit QLM_Owned(T* item) noexcept : pointer(item) {}
    QLM_Owned(QLM_Owned&& other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
    QLM_Owned& operator=(QLM_Owned&& other) noexcept {
        Reset(std::exchange(other.pointer, nullptr));
        return *this;
    }
    ~QLM_Owned() { delete pointer; }

    void Reset(T* item = nullptr) { delete std::exchange(pointer, item); }
    T* Release() noexcept { return std::exchange(pointer, nullptr); }
    T* Get() const noexcept { return pointer; }
    T* operator->() const noexcept { return pointer; }
    T& operator*() const noexcept { return *pointer; }
    explicit operator bool() const noexcept { return pointer != nullptr; }

  private:
    T* pointer = nullptr;
};
