#pragma once
// The software drawing pass of one viewport.

class QLM_Viewport;

/// Made for one pass. The picture is that of drawing objects, leaves and polygons one after another in list order,
/// equal depths going to the earlier, for any number of threads: workers own bands of rows.
class QLM_Renderer4 {
  public:
    explicit QLM_Renderer4(QLM_Viewport& viewport) : viewport(viewport) {}

    /// Main thread: sizes buffers, copies the camera, resolves every map that the pass reads, projects and lights.
    void Prepare();
    /// Rasterizes what Prepare gathered; any one thread, fans out to the cruncher. Stops early on AbortRender.
    void Render();
    /// Main thread, after Render: marks the picture valid (not after an abort).
    void Finish();
    /// Main thread, in an idle pass while Render runs: keeps the maps that it reads from being swapped out.
    void KeepMapsResident();

  private:
    void SizeBuffers();
    void GatherMeshes();

    QLM_Viewport& viewport;
    struct Pass;
    Pass* pass = nullptr;

  public:
    ~QLM_Renderer4();
    QLM_Renderer4(const QLM_Renderer4&) = delete;
    QLM_Renderer4& operator=(const QLM_Renderer4&) = delete;
};
