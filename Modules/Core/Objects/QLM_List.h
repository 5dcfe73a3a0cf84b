#pragma once
// The growable list and the queue that walks a snapshot of it.

#include "Core/Objects/QLM_SafePtr.h"

#include <cstdint>
#include <cstring>
#include <deque>
#include <type_traits>
#include <vector>

template <class T> struct QLM_IsSafePtr : std::false_type {};
template <class U> struct QLM_IsSafePtr<QLM_SafePtr<U>> : std::true_type { using Item = U; };

template <class T> constexpr bool QLM_IsCheckedPointer =
    QLM_IsSafePtr<T>::value ||
    (std::is_pointer_v<T> && std::is_base_of_v<QLM_GarbageCollectionItem, std::remove_pointer_t<T>>);

/// Composes "<prefix><class X *>::<operation>" (or the name for safe pointers) and runs the failing check.
void QLM_FailContainer(const QLM_GarbageCollectionItem* item, const char* container, const std::type_info& type,
                       bool isSafePtr, const char* operation);

/// A snapshot walked front to back: use the front, then Pop. Checks what it hands out.
template <class T> class QLM_RootClassQueue : public std::deque<T> {
  public:
    bool allowNull = false;
    uint32_t parsedCount = 0;

    void Push(T value) { this->push_back(value); }
    void Pop() { this->pop_front(); ++parsedCount; }
    bool IsEmpty() const { return this->empty(); }
    T operator->() const { Check("operator ->", false); return this->front(); }
    operator T() const { Check("operator ", allowNull); return this->front(); }

  private:
    void Check(const char* operation, bool nullAllowed) const;
};

/// A growable array with a checked snapshot walk and a cached index, reset to -1 by every removal.
template <class T> class QLM_List : public std::vector<T> {
  public:
    using std::vector<T>::vector;
    virtual ~QLM_List() = default;

    void Add(const T& value) { this->push_back(value); }
    /// Removes the first element equal to `value`; false when there is none.
    bool Remove(const T& value) {
        cachedIndex = -1;
        for (auto it = this->begin(); it != this->end(); ++it)
            if (*it == value) { this->erase(it); return true; }
        return false;
    }
    int IndexOf(const T& value) const {
        for (size_t i = 0; i < this->size(); ++i)
            if ((*this)[i] == value) return static_cast<int>(i);
        return -1;
    }
    int Count() const { return static_cast<int>(this->size()); }

    /// Copies the elements in order into a queue; pointer elements are checked. The one way to walk a list
    /// that may change meanwhile.
    QLM_RootClassQueue<T> GetParsingQueue() const;

    int cachedIndex = -1;
};

#include "Core/Objects/QLM_List.inl.h"
