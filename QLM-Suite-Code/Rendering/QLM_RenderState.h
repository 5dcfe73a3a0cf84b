#pragma once
// What lasts of a viewport's drawing between passes.

#include "Maps/QLM_ImageMap.h"
#include "Rasterizer/QLM_DepthBuffer.h"

#include <atomic>

class QLM_Mesh;

/// The camera of a pass, copied by SetupViewport so that nothing read during the pass can change.
/// View: v = (p - lookAt) x R / H (x right, y up, z to the viewer); clip: x = v.x x height / width, y = v.y,
/// z = -v.z x H / D, w = 1, so z = -1 is near. Depth is stored as (1 - z) / 2: 1 near, 0 far.
struct QLM_Camera {
    float lookAt[3] = {};
    float rotation[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    float halfHeight = 1.0f;  ///< H: world length of half the viewport's height
    float depthRange = 1.01f; ///< D
    float aspect = 1.0f;      ///< width / height
    float worldToClip[16];    ///< row vector x matrix
    float clipToWorld[16];
    float viewDirection[3];   ///< V, to the viewer, in world: (R[2], R[6], R[10])

    void Update(); ///< derives the matrices from the fields above
};

/// Position of every vertex of one mesh on one viewport's screen: sx, sy in -1..1, z of clip; three floats each.
/// Filled by the cruncher before a pass, read only after that; stale with a change of view or shape.
struct QLM_ScreenCache {
    uint32_t meshID = 0;
    bool valid = false;        ///< the points are those of the present view and shape
    std::vector<float> points;
    /// As of the last full render: the light of each vertex, 0.2..1; with flat shading its share of the selection.
    std::vector<float> lights;
};

/// A finished picture that stays on the screen while the next one of the same view is being made. Main thread.
struct QLM_LastPicture {
    std::vector<uint8_t> pixels; ///< RGBA, row 0 at the bottom
    uint32_t width = 0, height = 0, number = 0;
    float worldToClip[16] = {};
};

struct QLM_RenderState {
    QLM_Camera camera;
    QLM_ImageMap Pixels;              ///< depth 4: the picture of the software engine
    QLM_ImageMap UnlitRenderedPixels; ///< depth 3: textured colours before lighting
    QLM_ImageMap PolygonIDMask;       ///< depth 1: 0 off the model, else 1 + polygon mod 255
    QLM_ImageMap Background;          ///< depth 3
    QLM_DepthBuffer DepthBuffer;
    std::vector<uint32_t> DepthOwner; ///< 1 + list number of the polygon that owns each depth
    uint32_t RenderEngine = 0;        ///< 0 software, 1 OpenGL
    uint32_t RenderMode = 11;
    bool PartialUpdate = false, DrawBackground = true;
    std::atomic<bool> AbortRender{false};
    uint32_t pictureNumber = 0;       ///< counts the finished renders
    QLM_LastPicture lastPicture;      ///< kept by the OpenGL road
    bool pictureValid = false;        ///< the buffers hold a finished render of the present view
    bool needsFullRender = true, needsPartialRender = false;
    std::map<uint32_t, QLM_ScreenCache> screenCaches; ///< by mesh ID
};
