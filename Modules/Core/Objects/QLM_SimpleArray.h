#pragma once
// Plain array for per-vertex and per-pixel data.

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// A block of trivially copyable elements without growth policy. May borrow foreign storage; any operation
/// that would allocate or free then raises "ExternalDataNotAllowed". No locking.
template <class T> class QLM_SimpleArray {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    QLM_SimpleArray() = default;
    virtual ~QLM_SimpleArray() { if (!externalData) QLM_Free(data); }
    QLM_SimpleArray(const QLM_SimpleArray&) = delete;
    QLM_SimpleArray& operator=(const QLM_SimpleArray&) = delete;

    int32_t GetCount() const { return count; }
    int32_t GetCapacity() const { return capacity; }
    bool IsExternal() const { return externalData; }
    T* GetData() { return data; }
    const T* GetData() const { return data; }
    T& operator[](int64_t i) { return data[i]; }
    const T& operator[](int64_t i) const { return data[i]; }
    T* begin() { return data; }
    T* end() { return data + count; }
    const T* begin() const { return data; }
    const T* end() const { return data + count; }

    /// Sizes without keeping contents; a request within the capacity only sets the count.
    void SetCount(int32_t n) {
        RefuseExternal();
        if (capacity < n) {
            QLM_Free(data);
            data = nullptr; // there may be no memory for the next
            count = capacity = 0;
            data = static_cast<T*>(QLM_Malloc(static_cast<size_t>(n) * sizeof(T), false));
            capacity = n;
        }
        count = n;
    }
    /// Resizes to exactly n; keeps the common part when `preserve`, zeroes new elements when `zeroNew`.
    void Resize(int32_t n, bool preserve, bool zeroNew) {
        RefuseExternal();
        if (n > capacity) {
            T* fresh = static_cast<T*>(QLM_Malloc(static_cast<size_t>(n) * sizeof(T), false));
            if (preserve && count > 0) std::memcpy(fresh, data, static_cast<size_t>(count) * sizeof(T));
            QLM_Free(data);
            data = fresh;
            capacity = n;
        }
        const int32_t kept = preserve ? std::min(count, n) : 0;
        if (zeroNew && n > kept) std::memset(static_cast<void*>(data + kept), 0, static_cast<size_t>(n - kept) * sizeof(T));
        count = n;
    }
    void Free() {
        RefuseExternal();
        QLM_Free(data);
        data = nullptr;
        count = capacity = 0;
    }
    /// Unchecked append: the caller has sized the array before.
    void Add(const T& value) { data[count++] = value; }
    void SetExternal(T* pointer, int32_t n) {
        if (!externalData) QLM_Free(data);
        data = pointer;
        count = capacity = n;
        externalData = true;
    }
    /// Ends a loan without touching the lender's block; the array is empty and owns again.
    void ReleaseExternal() {
        if (!externalData) return;
        data = nullptr;
        count = capacity = 0;
        externalData = false;
    }

  private:
    void RefuseExternal() const { if (externalData) QLM_RaiseError("ExternalDataNotAllowed"); }

    int32_t count = 0;
    int32_t capacity = 0;
    T* data = nullptr;
    bool externalData = false;
};
