#include "Rasterizer/QLM_DepthBuffer.h"

#include "Core/Logging/QLM_RaiseError.h"
#include "Core/OS/QLM_Memory.h"

#include <cstring>

namespace {

size_t ElementSize(uint32_t type) {
    switch (type) {
    case QLM_DepthBuffer::Float:
        return sizeof(float);
    case QLM_DepthBuffer::Byte:
        return 1;
    default:
        QLM_RaiseError("Unknown depth buffer type");
    }
}

} // namespace

QLM_DepthBuffer::QLM_DepthBuffer(uint32_t typeIn) : type(typeIn) { ElementSize(type); }

QLM_DepthBuffer::~QLM_DepthBuffer() { QLM_Free(block); }

void QLM_DepthBuffer::SetSize(uint32_t widthIn, uint32_t heightIn, uint32_t typeIn) {
    const size_t size = static_cast<size_t>(widthIn) * heightIn * ElementSize(typeIn);
    if (widthIn == width && heightIn == height && typeIn == type) return;
    // Free first, and stand empty meanwhile: two large planes need not fit into memory together.
    QLM_Free(block);
    block = nullptr;
    width = height = 0;
    type = typeIn;
    block = QLM_Malloc(size, false);
    width = widthIn, height = heightIn;
    Clear();
}

void QLM_DepthBuffer::SetType(uint32_t typeIn) { SetSize(width, height, typeIn); }

void QLM_DepthBuffer::Clear() {
    if (block) memset(block, 0, static_cast<size_t>(width) * height * ElementSize(type));
}

void* QLM_DepthBuffer::GetData(uint32_t typeIn) {
    if (typeIn != type) QLM_RaiseError("Wrong type in QLM_DepthBuffer::GetData()");
    return block;
}

float* QLM_DepthBuffer::GetDataFloat() {
    if (type != Float) QLM_RaiseError("Wrong type in QLM_DepthBuffer::GetDataFloat()");
    return static_cast<float*>(block);
}

uint8_t* QLM_DepthBuffer::GetDataUC() {
    if (type != Byte) QLM_RaiseError("Wrong type in QLM_DepthBuffer::GetDataUC()");
    return static_cast<uint8_t*>(block);
}
