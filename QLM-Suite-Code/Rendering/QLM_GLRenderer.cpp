#include "Rendering/QLM_GLRenderer.h"

#include "Core/Logging/QLM_Logger.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Geometry/QLM_ObjectManager.h"
#include "Images/QLM_GL_Textures.h"
#include "Maps/QLM_Material.h"
#include "Maps/QLM_MaterialMapSource.h"
#include "Math/QLM_Matrix.h"
#include "Rendering/QLM_Background.h"
#include "Rendering/QLM_MeshArrays.h"
#include "Rendering/QLM_SceneAccess.h"
#include "Rendering/QLM_ScreenProjection.h"
#include "Rendering/QLM_Viewport.h"
#include "Rendering/QLM_ViewportManager.h"
#include "Tools/QLM_ToolManager.h"

#define GL_GLEXT_PROTOTYPES // glWindowPos
#include <GL/gl.h>
#include <GL/glext.h>

namespace {

constexpr float AmbientLight = 0.2f;
constexpr float CanvasGrey = 128 / 255.0f, FrameDark = 51 / 255.0f, FrameLight = 204 / 255.0f;
constexpr double DepthReach = 10000.0; ///< of what tools draw

/// The place of a viewport as OpenGL counts, from the lower left of the canvas.
struct Place {
    Place(const QLM_Viewport& viewport, int canvasHeight)
        : x(viewport.x), y(canvasHeight - viewport.y - viewport.height), width(viewport.width),
          height(viewport.height) {}
    int x, y, width, height;
};

// --- State ----------------------------------------------------------------------------------------------------------

/// What every step starts from and leaves behind.
void ResetState() {
    for (GLenum state : {GL_BLEND, GL_TEXTURE_2D, GL_LIGHTING, GL_DEPTH_TEST, GL_CULL_FACE, GL_SCISSOR_TEST, GL_DITHER,
                         GL_ALPHA_TEST, GL_FOG, GL_STENCIL_TEST, GL_COLOR_LOGIC_OP, GL_NORMALIZE})
        glDisable(state);
    glColor3f(1, 1, 1);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelZoom(1, 1);
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glShadeModel(GL_SMOOTH);
}

/// Fills a rectangle, in pixels from the lower left of the canvas, with a grey.
void FillRectangle(int x, int y, int width, int height, float grey) {
    glScissor(x, y, width, height);
    glClearColor(grey, grey, grey, 1);
    glClear(GL_COLOR_BUFFER_BIT);
}

void DrawPixels(const Place& place, const uint8_t* rgba) {
    glWindowPos2i(place.x, place.y);
    glDrawPixels(place.width, place.height, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
}

// --- The finished picture -------------------------------------------------------------------------------------------

/// The picture to show for the present view: the finished one, or the last one while its successor is being made. Null
/// when there is none.
const uint8_t* FindPicture(QLM_Viewport& viewport) {
    QLM_RenderState& state = viewport.r4s;
    QLM_LastPicture& last = state.lastPicture;
    const uint32_t width = static_cast<uint32_t>(viewport.width), height = static_cast<uint32_t>(viewport.height);
    const bool isSized = state.Pixels.GetWidth() == width && state.Pixels.GetHeight() == height;
    if (state.pictureValid && isSized) {
        const uint8_t* pixels = state.Pixels.GetPixels();
        // Workers will write over the picture long before its successor is whole.
        if (pixels && (last.number != state.pictureNumber || last.pixels.empty())) {
            last.pixels.assign(pixels, pixels + static_cast<size_t>(width) * height * 4);
            last.width = width;
            last.height = height;
            last.number = state.pictureNumber;
            std::copy_n(state.camera.worldToClip, 16, last.worldToClip);
        }
        return pixels;
    }
    const bool isSameView = last.width == width && last.height == height && !last.pixels.empty() &&
                            std::equal(last.worldToClip, last.worldToClip + 16, state.camera.worldToClip);
    return isSameView ? last.pixels.data() : nullptr;
}

// --- Polygons -------------------------------------------------------------------------------------------------------

/// The vertex arrays of the meshes that are drawn, by ID; one smooth, one flat.
class MeshArrayCache {
  public:
    const QLM_MeshArrays& Find(QLM_Mesh& mesh, bool smooth) {
        Entry& entry = entries[mesh.GetID()];
        entry.used = true;
        auto* root = mesh.GetRoot();
        if (root && !(root->Flags & eNode_DrawingValid)) {
            entry.arrays[0].reset();
            entry.arrays[1].reset();
            root->Flags |= eNode_DrawingValid;
        }
        auto& arrays = entry.arrays[smooth];
        if (!arrays) arrays = std::make_unique<QLM_MeshArrays>(mesh, smooth);
        return *arrays;
    }
    /// Drops what wasn't asked for since the last call.
    void DropUnused() {
        std::erase_if(entries, [](const auto& entry) { return !entry.second.used; });
        for (auto& [id, entry] : entries) entry.used = false;
    }

  private:
    struct Entry {
        std::unique_ptr<QLM_MeshArrays> arrays[2];
        bool used = false;
    };
    std::map<uint32_t, Entry> entries;
};
MeshArrayCache meshArrays;

/// What fills polygons without a map: its one texel is white, their colour comes from the texture environment.
uint32_t plainTexture = 0;

/// Textures the polygons of a material by the preview of its map, or plainly by its colour.
void SetFill(const QLM_Mesh& mesh, QLM_Material* material, const QLM_Viewport& viewport) {
    QLM_MaterialChannel* channel =
        material ? static_cast<QLM_MaterialChannel*>(material->FindChannel(viewport.MaterialChannelName)) : nullptr;
    QLM_MaterialMapSource* source = nullptr;
    if (channel && viewport.DisplayMode == 3 && viewport.Textured)
        source = QLM_GetChannelMap(mesh.GetMapList(), channel);
    if (source && source->GetDepth() == 3) {
        source->UpdatePreviewTexture();
        if (source->GetPreviewTexture() != 0) {
            glBindTexture(GL_TEXTURE_2D, source->GetPreviewTexture());
            glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
            return;
        }
    }
    if (plainTexture == 0) {
        const uint8_t white[3] = {255, 255, 255};
        QLM_GL_UploadPreview(plainTexture, white, 1, 1);
    }
    // The light is clamped before it meets the colour, as with a map.
    float color[4] = {1, 1, 1, 1};
    if (channel) std::copy_n(channel->Color, 3, color);
    glBindTexture(GL_TEXTURE_2D, plainTexture);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_COMBINE);
    glTexEnvi(GL_TEXTURE_ENV, GL_COMBINE_RGB, GL_MODULATE);
    glTexEnvi(GL_TEXTURE_ENV, GL_SOURCE0_RGB, GL_PRIMARY_COLOR);
    glTexEnvi(GL_TEXTURE_ENV, GL_SOURCE1_RGB, GL_CONSTANT);
    glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, color);
}

/// Loads the camera's mapping. Places and normals stay in world behind the first matrix, where the light is given too.
void LoadMatrices(const QLM_Camera& camera) {
    const QLM_Engine* engine = QLM_GetEngine();
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixf(camera.worldToClip);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    // |N . V| of the software picture: one light along the view and one against it, never both on a vertex.
    const float* v = camera.viewDirection;
    const float from[4] = {v[0], v[1], v[2], 0}, against[4] = {-v[0], -v[1], -v[2], 0};
    glLightfv(GL_LIGHT0, GL_POSITION, from);
    glLightfv(GL_LIGHT1, GL_POSITION, against);
    if (engine) glMultMatrixf(engine->sceneMatrix);
}

void SetLights(const QLM_Viewport& viewport) {
    if (!viewport.UseLighting) return;
    const float ambient[4] = {AmbientLight, AmbientLight, AmbientLight, 1}, black[4] = {0, 0, 0, 1},
                white[4] = {1, 1, 1, 1};
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, ambient);
    glLightModeli(GL_LIGHT_MODEL_LOCAL_VIEWER, 0);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, 0);
    for (GLenum light : {GL_LIGHT0, GL_LIGHT1}) {
        glLightfv(light, GL_AMBIENT, black);
        glLightfv(light, GL_DIFFUSE, white);
        glLightfv(light, GL_SPECULAR, black);
        glEnable(light);
    }
    glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE, white);
    glEnable(GL_LIGHTING);
    glEnable(GL_NORMALIZE);
}

void DrawMesh(QLM_Viewport& viewport, QLM_Mesh& mesh) {
    const QLM_MeshArrays& arrays = meshArrays.Find(mesh, viewport.Smooth);
    if (arrays.indices.empty()) return;
    const float screen[4] = {-1, -1, 1, 1};
    const QLM_ScreenProjection projection(viewport, mesh);
    std::vector<bool> isVisible;
    for (const auto* leaf : mesh.GetLeaves())
        isVisible.push_back(projection.MeetsRectangle(leaf->BoundsMin, leaf->BoundsMax, screen));

    glInterleavedArrays(GL_T2F_N3F_V3F, 0, arrays.vertices.data());
    const int materialCount = mesh.GetMaterialCount();
    const QLM_Engine* engine = QLM_GetEngine();
    int filled = -1;
    const auto& batches = arrays.batches;
    for (size_t i = 0; i < batches.size();) {
        const QLM_MeshArrays::Batch& batch = batches[i++];
        if (!isVisible[batch.leaf]) continue;
        size_t count = batch.count;
        // Leaves behind one another go in one call.
        for (; i < batches.size() && batches[i].material == batch.material && isVisible[batches[i].leaf]; ++i)
            count += batches[i].count;
        if (filled != batch.material) {
            if (batch.material < materialCount) SetFill(mesh, mesh.GetMaterial(batch.material), viewport);
            else SetFill(mesh, engine ? engine->emptyMaterial : nullptr, viewport);
            filled = batch.material;
        }
        glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(count), GL_UNSIGNED_INT, arrays.indices.data() + batch.first);
    }
    glDisableClientState(GL_TEXTURE_COORD_ARRAY);
    glDisableClientState(GL_NORMAL_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
}

void DrawBackground(const QLM_Viewport& viewport, const Place& place) {
    static std::vector<uint8_t> rgba, rgb;
    const QLM_BackgroundRows rows(viewport);
    rgba.resize(static_cast<size_t>(place.width) * place.height * 4);
    rgb.resize(static_cast<size_t>(place.width) * 3);
    for (int y = 0; y < place.height; ++y)
        rows.CopyRow(y, rgb.data(), rgba.data() + static_cast<size_t>(y) * place.width * 4);
    DrawPixels(place, rgba.data());
}

/// Draws the scene as polygons, textured by the previews of its maps.
void DrawPolygons(QLM_Viewport& viewport, const Place& place) {
    QLM_TRACE(3);
    DrawBackground(viewport, place);
    QLM_ObjectManager* objects = QLM_ObjectManagerOrNull();
    if (!objects) return;
    LoadMatrices(viewport.r4s.camera);
    SetLights(viewport);
    glColor3f(1, 1, 1);
    glClearDepth(1);
    glDepthMask(GL_TRUE);
    glClear(GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS); // equal depths go to the earlier
    glEnable(GL_TEXTURE_2D);
    glFrontFace(GL_CCW);
    glCullFace(GL_BACK);
    for (QLM_Object* object : objects->GetObjects(true)) {
        QLM_Mesh* mesh = object->GetMesh();
        if (!mesh || mesh->GetPCount() == 0) continue;
        if (object->RenderDoubleSided) glDisable(GL_CULL_FACE);
        else glEnable(GL_CULL_FACE);
        DrawMesh(viewport, *mesh);
    }
    for (GLenum state : {GL_CULL_FACE, GL_TEXTURE_2D, GL_DEPTH_TEST, GL_LIGHTING, GL_NORMALIZE}) glDisable(state);
}

// --- On top ---------------------------------------------------------------------------------------------------------

/// Lets the current tool draw, in pixels of the viewport.
void DrawTool(QLM_Viewport& viewport) {
    QLM_Managers* managers = QLM_ManagersOrNull();
    const QLM_ToolManager* tools = managers ? managers->GetToolManager() : nullptr;
    QLM_Tool* tool = tools ? tools->GetCurrentTool() : nullptr;
    if (!tool) return;
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, viewport.width, 0, viewport.height, -DepthReach, DepthReach);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    tool->OnDraw(&viewport);
    glColor3f(1, 1, 1);
}

void DrawFrame(const Place& place) {
    FillRectangle(place.x, place.y + place.height - 1, place.width, 1, FrameDark);
    FillRectangle(place.x, place.y, 1, place.height, FrameDark);
    FillRectangle(place.x, place.y, place.width, 1, FrameLight);
    FillRectangle(place.x + place.width - 1, place.y, 1, place.height, FrameLight);
}

} // namespace

void QLM_GL_DrawCanvas(bool interacting) {
    QLM_Managers* managers = QLM_ManagersOrNull();
    QLM_ViewportManager* manager = managers ? managers->GetViewportManager() : nullptr;
    if (!manager || !QLM_GL_IsAvailable()) return;
    QLM_TRACE(3);
    QLM_GL_DeleteQueuedTextures();
    ResetState();
    glEnable(GL_SCISSOR_TEST);
    FillRectangle(0, 0, manager->GetCanvasWidth(), manager->GetCanvasHeight(), CanvasGrey);
    bool drewPolygons = false;
    for (int i = 0; i < 4; ++i) {
        QLM_Viewport& viewport = *manager->GetViewport(i);
        if (!viewport.shown || viewport.width <= 0 || viewport.height <= 0) continue;
        const Place place(viewport, manager->GetCanvasHeight());
        glViewport(place.x, place.y, place.width, place.height);
        glScissor(place.x, place.y, place.width, place.height);
        // A view that nobody moves keeps its picture.
        const bool moves = interacting && (viewport.Current || !viewport.r4s.pictureValid);
        const uint8_t* picture = moves ? nullptr : FindPicture(viewport);
        if (picture) DrawPixels(place, picture);
        else DrawPolygons(viewport, place);
        drewPolygons = drewPolygons || !picture;
        DrawTool(viewport);
        DrawFrame(place);
    }
    if (drewPolygons) meshArrays.DropUnused();
    glDisable(GL_SCISSOR_TEST);
}

void QLM_GL_TestOpenGL() {
    static bool isTested = false;
    if (isTested || !QLM_GL_IsAvailable()) return;
    isTested = true;
    const std::pair<const char*, GLenum> rows[] = {
        {"vendor", GL_VENDOR}, {"renderer", GL_RENDERER}, {"version", GL_VERSION}, {"extensions", GL_EXTENSIONS}};
    for (const auto& [label, name] : rows) {
        const auto* text = reinterpret_cast<const char*>(glGetString(name));
        QLM_Log("OpenGL %s: %s", label, text ? text : "unknown");
    }
}
