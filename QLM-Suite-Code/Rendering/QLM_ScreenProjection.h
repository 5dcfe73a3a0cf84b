#pragma once
// Projects the vertices of a mesh onto a viewport's screen.

#include "Geometry/QLM_Mesh.h"
#include "Rendering/QLM_Viewport.h"

/// The cache of a mesh with its arrays sized; a stale one is left to be filled. Main thread.
QLM_ScreenCache& QLM_PrepareScreenCache(QLM_Viewport& viewport, QLM_Mesh& mesh);

/// Made on the main thread, run by workers over ranges of vertices. The mesh and the view stay as they are meanwhile.
class QLM_ScreenProjection {
  public:
    QLM_ScreenProjection(const QLM_Viewport& viewport, const QLM_Mesh& mesh);
    void Run(QLM_ScreenCache& cache, int start, int end) const;
    /// True when the picture of a box in world meets a normalised rectangle (min x, min y, max x, max y).
    bool MeetsRectangle(const float* minimum, const float* maximum, const float* rectangle) const;

    const float* GetModelToClip() const { return modelToClip; } ///< of resolved vertices; row vectors

  private:
    float modelToClip[16];
    const float* positions;
};
