#pragma once
// Persistent per-vertex arrays of N floats.

#include "Core/Objects/QLM_BaseClass.h"

/// Count x N floats. May borrow another array's storage: then it may shrink and grow back up to the lender's
/// capacity; more raises "Cannot grow and external array to be larger than the original". Sized on the main thread.
template <class Scalar, int N> class QLM_VertexMap : public virtual QLM_BaseClass {
  public:
    QLM_VertexMap() = default;
    ~QLM_VertexMap() override;

    uint32_t GetCount() const { return count; }
    Scalar* GetData() { return data; }
    const Scalar* GetData() const { return data; }
    Scalar* operator[](int64_t i) { return data + i * N; }
    const Scalar* operator[](int64_t i) const { return data + i * N; }

    /// Keeps the common part when `preserve`, zeroes what is new when `zeroNew`. Memory grows to exactly n elements
    /// and is given back at 0 only.
    void Resize(uint32_t n, bool preserve, bool zeroNew);
    void Free() { Resize(0, false, false); }
    void CopyFrom(const QLM_VertexMap& source);
    /// Stands on the lender's storage from now on; to be repeated after each resize of the lender.
    void Borrow(QLM_VertexMap& lender);
    /// Ends a loan: empty and owning again. Does nothing without one.
    void EndLoan();
    bool IsExternal() const { return External; }

    /// Hands the data to the virtual memory store; only the count can be asked for then. Does nothing on a loan,
    /// without data or when parked already.
    void Park();
    /// Brings parked data back. False, with zeros instead, when the store answers another size. Does nothing else.
    bool Unpark();
    bool IsParked() const { return Handle != 0; }
    /// The record: "Count", "dim" (N) and the compressed block "data".
    bool SaveToStream_Text(FILE* stream, bool writeBlock = true) override;
    bool LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key, const std::string& value) override;

  private:
    Scalar* data = nullptr;
    uint32_t count = 0;
    uint32_t Handle = 0;   ///< of the parked data; the pointer is null then
    bool External = false;
    uint32_t capacity = 0; ///< of the block that is owned or borrowed
    uint32_t announcedCount = 0; ///< by the record that is being read
};
using QLM_VertexMap1D = QLM_VertexMap<float, 1>;
using QLM_VertexMap2D = QLM_VertexMap<float, 2>;
using QLM_VertexMap3D = QLM_VertexMap<float, 3>;
