#pragma once
// The table of the 24 managers. Only forward declarations: a user includes the header of the manager it calls.

#include "Core/Objects/QLM_List.h"

#include <functional>
#include <type_traits>

class QLM_Manager;
class QLM_FadeByAngleManager;
class QLM_CullingManager;
class QLM_SymmetryManager;
class QLM_ViewportManager;
class QLM_ViewportHoverManager;
class QLM_ToolManager;
class QLM_RenderManager;
class QLM_HotkeyManager;
class QLM_TouchupRenderManager;
class QLM_VertexWeightManager;
class QLM_BrushTileManager;
class QLM_BrushShapeManager;
class QLM_ObjectManager;
class QLM_LayerManager;
class QLM_MapManager;
class QLM_SubDManager;
class QLM_PresetManager;
class QLM_MaterialManager;
class QLM_UndoManager;
class QLM_NavigationManager;
class QLM_UtilityManager;
class QLM_MorphManager;
class QLM_SelectionManager;
class QLM_IOManager;

/// Owns the managers. Table order is construction order and the order of every walk below. Main thread.
class QLM_Managers {
  public:
    QLM_Managers() = default;
    QLM_Managers(const QLM_Managers&) = delete;
    QLM_Managers& operator=(const QLM_Managers&) = delete;
    /// Deletes the managers in table order; the accessor of a deleted one answers null from then on.
    virtual ~QLM_Managers();

    virtual void AfterClearAll();
    void InitializeAll();
    void IdleAll();
    void ClearAll();
    /// Clears each manager that depends on shape; called when geometry changes.
    void ClearShapeDependents();

    /// Appends the next manager of the table and keeps its accessor's pointer; for the composition root.
    template <class Manager> void Add(Manager* QLM_Managers::*slot, std::type_identity_t<Manager>* manager) {
        this->*slot = manager;
        list.push_back(manager);
        clearSlot.push_back([this, slot] { this->*slot = nullptr; });
    }
    const std::vector<QLM_Manager*>& GetList() const { return list; }

    QLM_FadeByAngleManager* GetFadeByAngleManager() const { return fadeByAngle; }
    QLM_CullingManager* GetCullingManager() const { return culling; }
    QLM_SymmetryManager* GetSymmetryManager() const { return symmetry; }
    QLM_ViewportManager* GetViewportManager() const { return viewport; }
    QLM_ViewportHoverManager* GetViewportHoverManager() const { return viewportHover; }
    QLM_ToolManager* GetToolManager() const { return tool; }
    QLM_RenderManager* GetRenderManager() const { return render; }
    QLM_HotkeyManager* GetHotkeyManager() const { return hotkey; }
    QLM_TouchupRenderManager* GetTouchupRenderManager() const { return touchupRender; }
    QLM_VertexWeightManager* GetVertexWeightManager() const { return vertexWeight; }
    QLM_BrushTileManager* GetBrushTileManager() const { return brushTile; }
    QLM_BrushShapeManager* GetBrushShapeManager() const { return brushShape; }
    QLM_ObjectManager* GetObjectManager() const { return object; }
    QLM_LayerManager* GetLayerManager() const { return layer; }
    QLM_MapManager* GetMapManager() const { return map; }
    QLM_SubDManager* GetSubDManager() const { return subD; }
    QLM_PresetManager* GetPresetManager() const { return preset; }
    QLM_MaterialManager* GetMaterialManager() const { return material; }
    QLM_UndoManager* GetUndoManager() const { return undo; }
    QLM_NavigationManager* GetNavigationManager() const { return navigation; }
    QLM_UtilityManager* GetUtilityManager() const { return utility; }
    QLM_MorphManager* GetMorphManager() const { return morph; }
    QLM_SelectionManager* GetSelectionManager() const { return selection; }
    QLM_IOManager* GetIOManager() const { return io; }

    // Slots in table order, filled by the composition root.
    QLM_FadeByAngleManager* fadeByAngle = nullptr;
    QLM_CullingManager* culling = nullptr;
    QLM_SymmetryManager* symmetry = nullptr;
    QLM_ViewportManager* viewport = nullptr;
    QLM_ViewportHoverManager* viewportHover = nullptr;
    QLM_ToolManager* tool = nullptr;
    QLM_RenderManager* render = nullptr;
    QLM_HotkeyManager* hotkey = nullptr;
    QLM_TouchupRenderManager* touchupRender = nullptr;
    QLM_VertexWeightManager* vertexWeight = nullptr;
    QLM_BrushTileManager* brushTile = nullptr;
    QLM_BrushShapeManager* brushShape = nullptr;
    QLM_ObjectManager* object = nullptr;
    QLM_LayerManager* layer = nullptr;
    QLM_MapManager* map = nullptr;
    QLM_SubDManager* subD = nullptr;
    QLM_PresetManager* preset = nullptr;
    QLM_MaterialManager* material = nullptr;
    QLM_UndoManager* undo = nullptr;
    QLM_NavigationManager* navigation = nullptr;
    QLM_UtilityManager* utility = nullptr;
    QLM_MorphManager* morph = nullptr;
    QLM_SelectionManager* selection = nullptr;
    QLM_IOManager* io = nullptr;

  private:
    std::vector<QLM_Manager*> list;
    std::vector<std::function<void()>> clearSlot; ///< beside `list`
};

/// The engine's managers; without an engine an empty table, whose accessors all answer null. Main thread.
QLM_Managers& QLM_GetManagers();
