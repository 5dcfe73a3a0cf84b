#pragma once
// Depth and gutter planes.

#include "Core/Objects/QLM_BaseClass.h"

/// A plane of floats or bytes. Depth is stored as (1 - z) / 2: 0 is the far end, larger is nearer.
/// Sized on the main thread; elements are written by their owner only.
class QLM_DepthBuffer : public virtual QLM_BaseClass {
  public:
    enum Type : uint32_t { Float = 0, Byte = 1 };
    explicit QLM_DepthBuffer(uint32_t type = Float);
    ~QLM_DepthBuffer() override;

    /// Reallocates when anything changed; new contents are cleared. An unknown type raises.
    void SetSize(uint32_t width, uint32_t height, uint32_t type);
    void SetSize(uint32_t width, uint32_t height) { SetSize(width, height, type); }
    void SetType(uint32_t type);
    void Clear();
    void* GetData(uint32_t type);
    float* GetDataFloat();
    uint8_t* GetDataUC();
    uint32_t GetWidth() const { return width; }
    uint32_t GetHeight() const { return height; }
    uint32_t GetType() const { return type; }

  private:
    void* block = nullptr;
    uint32_t width = 0, height = 0, type = Float;
};
