#pragma once
// A whole program without a shell, and small scenes in it.

#include <cstdint>
#include <string>
#include <vector>

class QLM_MaterialMapSource;
class QLM_Mesh;
class QLM_Object;
class QLM_Viewport;

/// A polygon of a test mesh: corners as (vertex, texture vertex).
using TestPolygon = std::vector<std::pair<int, int>>;

/// Starts the program on first use (seed 1, no user settings, log in a temporary folder) and empties the project.
/// One lives at a time; the program itself stops when the process's last scene and tests are done.
class TestScene {
  public:
    explicit TestScene(int canvasWidth = 512, int canvasHeight = 512);
    ~TestScene();

    /// An object from arrays (three floats a vertex, two a texture vertex), finished by AfterRawBuild and made current.
    QLM_Object* AddObject(const std::string& name, const std::vector<float>& vertices,
                          const std::vector<float>& textureVertices, const std::vector<TestPolygon>& polygons);
    /// A map of one colour bound to the "Color" channel of the object's material 0.
    QLM_MaterialMapSource* AddMap(QLM_Object* object, uint32_t width, uint32_t height, uint8_t r, uint8_t g, uint8_t b);
    QLM_Viewport* GetViewport() const;
    /// Look-at 0, identity rotation, half the viewport's height of `halfHeight` world units.
    void SetView(float halfHeight);
    /// Idle passes until nothing is pending, then one frame; as a script settles.
    void Settle();
    /// Press and release of the left button at a canvas place, settled behind each.
    void Click(float x, float y);
    /// Press, moves and release.
    void Stroke(const std::vector<std::pair<float, float>>& points);
    /// Gives every pixel of an RGB map one colour; notifies nobody.
    static void Fill(QLM_MaterialMapSource* map, uint8_t r, uint8_t g, uint8_t b);
    /// RGB of a map's pixel, row 0 at the bottom.
    static std::vector<int> PixelAt(QLM_MaterialMapSource* map, int x, int y);
    /// The box of pixels that differ from a colour: min x, min y, max x, max y, and their count; all -1 when none
    /// differs.
    static std::vector<int> ChangedBox(QLM_MaterialMapSource* map, uint8_t r, uint8_t g, uint8_t b);
};
