#include "Geometry/QLM_VertexMap.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"
#include "Core/TextStream/QLM_TextStream.h"
#include "VirtualMemory/QLM_VirtualMemory.h"

template <class Scalar, int N> QLM_VertexMap<Scalar, N>::~QLM_VertexMap() {
    QLM_VirtualMemory_Release(Handle);
    if (!External) QLM_Free(data);
}

template <class Scalar, int N> void QLM_VertexMap<Scalar, N>::Park() {
    if (External || Handle || !data || !count) return;
    void* block = data;
    QLM_VirtualMemory_Store(&block, static_cast<uint64_t>(count) * N * sizeof(Scalar), Handle, __FILE__, __LINE__);
    data = nullptr;
    capacity = 0;
}

template <class Scalar, int N> bool QLM_VertexMap<Scalar, N>::Unpark() {
    if (!Handle) return true;
    const uint64_t expected = static_cast<uint64_t>(count) * N * sizeof(Scalar);
    void* block = nullptr;
    uint64_t size = 0;
    const bool complete = QLM_VirtualMemory_Fetch(&block, size, Handle) && block && size == expected;
    Handle = 0;
    if (!complete) {
        QLM_Free(block);
        block = QLM_Malloc(expected, false);
        std::memset(block, 0, expected);
    }
    data = static_cast<Scalar*>(block);
    capacity = count;
    return complete;
}

template <class Scalar, int N> void QLM_VertexMap<Scalar, N>::Resize(uint32_t n, bool preserve, bool zeroNew) {
    constexpr size_t elementSize = N * sizeof(Scalar);
    if (Handle && preserve && n) {
        Unpark();
    } else if (Handle) {
        QLM_VirtualMemory_Release(Handle);
        Handle = 0;
    }
    if (External) {
        if (n > capacity) QLM_RaiseError("Cannot grow and external array to be larger than the original");
    } else if (n == 0) {
        QLM_Free(data);
        data = nullptr;
        capacity = 0;
    } else if (n > capacity) {
        Scalar* fresh = static_cast<Scalar*>(QLM_Malloc(n * elementSize, false));
        if (preserve && count) std::memcpy(fresh, data, count * elementSize);
        QLM_Free(data);
        data = fresh;
        capacity = n;
    }
    const uint32_t kept = preserve ? std::min(count, n) : 0;
    if (zeroNew && n > kept) std::memset(data + static_cast<size_t>(kept) * N, 0, (n - kept) * elementSize);
    count = n;
}

template <class Scalar, int N> void QLM_VertexMap<Scalar, N>::CopyFrom(const QLM_VertexMap& source) {
    if (this == &source) return;
    Resize(source.count, false, false);
    if (count) std::memcpy(data, source.data, count * N * sizeof(Scalar));
}

template <class Scalar, int N> void QLM_VertexMap<Scalar, N>::Borrow(QLM_VertexMap& lender) {
    if (!External) QLM_Free(data);
    data = lender.data;
    count = lender.count;
    capacity = lender.capacity;
    External = true;
}

template <class Scalar, int N> void QLM_VertexMap<Scalar, N>::EndLoan() {
    if (!External) return;
    data = nullptr;
    count = capacity = 0;
    External = false;
}

template <class Scalar, int N> bool QLM_VertexMap<Scalar, N>::SaveToStream_Text(FILE* stream, bool writeBlock) {
    if (!QLM_BaseClass::SaveToStream_Text(stream, writeBlock)) return false;
    QLM_WriteInt(stream, "Count", count);
    QLM_WriteInt(stream, "dim", N);
    QLM_WriteCompressedBlock(stream, "data", data, count * N * sizeof(Scalar));
    return true;
}

template <class Scalar, int N>
bool QLM_VertexMap<Scalar, N>::LoadFromStream_Text_ConsiderCommand(FILE* stream, const std::string& key,
                                                                   const std::string& value) {
    TextCommand command(key, value);
    if (command.Is("Count")) command.ReadUnsigned(announcedCount);
    else if (command.Is("dim")) {
        int32_t dimension = 0;
        command.ReadInt(dimension);
        loadFailed = loadFailed || dimension != N;
    } else if (command.Is("data")) {
        // Memory follows the bytes that are there, never the count alone.
        std::vector<uint8_t> bytes;
        const int64_t expected = static_cast<int64_t>(announcedCount) * N * static_cast<int64_t>(sizeof(Scalar));
        if (QLM_ReadCompressedBlock(stream, bytes, expected)) {
            Resize(announcedCount, false, false);
            if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
        } else loadFailed = true;
    }
    if (!command.Handled())
        command.Merge(QLM_BaseClass::LoadFromStream_Text_ConsiderCommand(stream, key, value));
    return command.Handled();
}

template class QLM_VertexMap<float, 1>;
template class QLM_VertexMap<float, 2>;
template class QLM_VertexMap<float, 3>;
template class QLM_VertexMap<float, 4>;
