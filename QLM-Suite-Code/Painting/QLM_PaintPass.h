#pragma once
// Carries the overlay of a finished stroke over into the maps of one object.

#include "Painting/QLM_ZeroedBlock.h"
#include "Rasterizer/QLM_RasterizeOptions.h"
#include "Rendering/QLM_CullingManager.h"

#include <cstdint>
#include <string>
#include <vector>

class QLM_ImageMap;
class QLM_MaterialMapBinding;
class QLM_MaterialMapSource;
class QLM_Mesh;
class QLM_Object;
class QLM_PaintBrush_Base;
class QLM_Viewport;
class TOverlay_Workhorse;
struct QLM_ScreenCache;

/// What a stroke paints with, copied from tool, managers and engine at the press: nothing that changes meanwhile shows.
struct QLM_PaintSettings {
    float color[4] = {1, 1, 1, 1}; ///< RGB and strength
    int mode = 0;
    bool mirrorX = false, mirrorY = false, lockAlpha = false;
    bool channels[8] = {}; ///< see QLM_ToolManager::paintChannels
    std::string shownChannel;
    bool fadeByAngle = false, excludeBackFaces = false;
    QLM_FadeByAngle fade;
    bool polygonSelection = false;
};

/// Scratch memory that lasts from stroke to stroke; all zero between passes.
struct QLM_PaintBuffers {
    QLM_ZeroedBlock<uint32_t> gutterOwner;
};

/// Main thread; Run fans out. A map's result is that of painting the polygons one after another in list order
/// (ascending index), whatever the number of workers: they own bands of rows and read the map from before the stroke.
class QLM_PaintPass {
  public:
    /// `strokeBounds` is the normalised rectangle that the stroke can have reached; `overlay` has its final size.
    QLM_PaintPass(QLM_Object& object, QLM_Viewport& viewport, const QLM_PaintBrush_Base& tool,
                  const QLM_PaintSettings& settings, const float* strokeBounds, QLM_ImageMap& overlay,
                  const TOverlay_Workhorse& workhorse, QLM_PaintBuffers& buffers);
    /// Paints every map of the object; the number of polygons that left something.
    int Run();
    /// UV range painted in the last map (min u, min v, max u, max v); empty when the minimum exceeds the maximum.
    const float* GetAffectedUV() const { return affectedUV; }

  private:
    struct Entry {
        int32_t polygon;
        uint32_t firstTriangle;   ///< number of the fan's first triangle in the pass
        int32_t firstRow, endRow; ///< rows of the map that it can reach
        bool hasSeam;
        bool written;
    };
    struct Corner {
        QLM_RasterizeVertex vertex;
        bool isSeam;
    };
    /// Scratch of one worker.
    struct Worker {
        QLM_RasterizeOptions options;
        std::vector<Corner> corners;
        std::vector<int32_t> written;
    };

    void CollectCandidates();
    bool IsInAffectedRange(int polygon) const;
    void FillVertexWeights();
    void PaintBinding(const QLM_MaterialMapBinding& binding);
    bool PrepareMap(QLM_MaterialMapSource& source);
    void BuildList(const QLM_MaterialMapBinding& binding);
    void MeasureEntries();
    void MeasureEntry(Entry& entry) const;
    bool IsOverlayTouched(int polygon) const;
    void BuildBands();
    void PaintBands();
    void PaintBand(size_t band, Worker& worker) const;
    void LoadCorners(const Entry& entry, Worker& worker) const;
    float CornerWeight(int polygon, int corner) const;
    /// Calls body(options) for each triangle of the fan, whose corners are loaded.
    template <class Body> void ForEachTriangle(const Entry& entry, Worker& worker, Body body) const;
    void ClearClaims(const QLM_RasterizeOptions& options) const;
    void MergeResults(QLM_MaterialMapSource& source);
    void RefreshSnapshot(QLM_ImageMap& map) const;

    QLM_Object& object;
    QLM_Mesh& mesh;
    QLM_Viewport& viewport;
    const QLM_PaintBrush_Base& tool;
    const QLM_PaintSettings& settings;
    float strokeBounds[4];
    QLM_ImageMap& overlay;
    const TOverlay_Workhorse& workhorse;
    QLM_PaintBuffers& buffers;
    const QLM_ScreenCache* screen = nullptr;
    const QLM_RasterizeFunction rasterize;
    const float* viewDirection;

    std::vector<uint8_t> isCandidate; ///< by polygon
    std::vector<int32_t> candidates;
    std::vector<float> vertexWeights;        ///< by vertex, filled for those of candidates
    QLM_MaterialMapSource* target = nullptr; ///< the layer's member that is painted
    QLM_RasterizeOptions passOptions;
    bool hasSeams = false;
    std::vector<Entry> entries;
    int32_t bandHeight = 1, firstBandRow = 0;
    std::vector<std::vector<int32_t>> bands; ///< entries of each band of rows, in list order
    float affectedUV[4] = {1, 1, 0, 0};
    std::string refusedChannel; ///< one that the tool could not paint, as it isn't displayed
    int writtenPolygons = 0;
};
