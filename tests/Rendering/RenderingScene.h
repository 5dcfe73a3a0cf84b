#pragma once
// An engine with the managers that pictures need, and small scenes in it.

#include "Engine/QLM_Engine.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"

#include <string>
#include <vector>

class RenderingScene {
  public:
    explicit RenderingScene(int canvasWidth = 512, int canvasHeight = 512);
    ~RenderingScene();

    /// Corners index both arrays (three floats a vertex, two a texture vertex); the shape is resolved.
    QLM_Object* AddObject(const std::vector<float>& vertices, const std::vector<float>& uvs,
                          const std::vector<std::vector<int>>& polygons);
    /// The square -0.5..0.5 at a depth, UVs 0..1, facing the front view.
    QLM_Object* AddQuad(float z = 0.0f);
    /// Binds a map to the "Color" channel of material 0, filled with a colour.
    QLM_MaterialMapSource* AddMap(QLM_Object* object, uint32_t width, uint32_t height, uint8_t r, uint8_t g, uint8_t b);
    /// Look-at 0, identity rotation, half the height of 0.5 world units.
    void SetFrontView(int viewport = 0);

    QLM_ViewportManager& Manager() const { return *QLM_GetManagers().GetViewportManager(); }
    QLM_Viewport& View(int index = 0) const { return *Manager().GetViewport(index); }
    /// R, G, B, A of a picture's pixel, row 0 at the bottom.
    std::vector<int> Pixel(int x, int y, int viewport = 0) const;
    /// Over all planes of the picture.
    uint64_t PictureHash(int viewport = 0) const;
};
