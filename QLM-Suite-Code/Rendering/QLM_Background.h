#pragma once
// The checker behind the model.

#include <cstdint>
#include <vector>

class QLM_Viewport;

/// The checker of one view. It moves and zooms with the scene: at Zoom 1 a view is 160 cells wide; beyond Zoom 8, where
/// cells would be smaller than pixels, the first colour is plain. Made on the main thread, copied from by workers.
class QLM_BackgroundRows {
  public:
    QLM_BackgroundRows() = default;
    explicit QLM_BackgroundRows(const QLM_Viewport& viewport);
    /// Writes row `y` as RGB and as RGBA with alpha 0.
    void CopyRow(int y, uint8_t* rgb, uint8_t* rgba) const;

  private:
    std::vector<uint8_t> rgbRows[2], rgbaRows[2]; ///< the two rows that take turns
    std::vector<uint8_t> rowParity;
};
