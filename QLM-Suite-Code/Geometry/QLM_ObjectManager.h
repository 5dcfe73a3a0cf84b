#pragma once
// The tree of objects, the current object, and the refresh after a geometry change.

#include "Engine/QLM_Manager.h"
#include "Engine/QLM_TreeGroup.h"

class QLM_Mesh;
class QLM_Object;

class QLM_ObjectManager : public QLM_Manager {
  public:
    QLM_ObjectManager();
    ~QLM_ObjectManager() override;
    void AfterClear() override;
    void OnIdle() override; ///< makes up for walks that had to wait

    void AddObject(QLM_Object* object); ///< takes ownership
    void DeleteObject(QLM_Object* object); ///< the memory goes with the deferred release
    void DeleteAllObjects();
    /// The object by its ID, or the first one when the ID is stale; null with no objects.
    QLM_Object* GetCurrentObject();
    void SetCurrentObject(QLM_Object* object);
    int GetObjectCount();
    QLM_RootClassQueue<QLM_Object*> GetObjects(bool visibleOnly);
    QLM_Object* FindObject(const std::string& name, int occurrence = 1);

    void OnFullSurfaceChanged();
    /// `range` is min u, min v, max u, max v.
    void OnPartialSurfaceChanged(const float* range);
    /// Refreshes what follows from an object's geometry: pick cache, shape, concavity, normals, octree boxes, views.
    void OnShapeChanged(QLM_Object* object, bool redraw, bool resolve, bool normals);
    void OnShapeChanged(bool redraw, bool resolve, bool normals);
    /// Have the flags of all meshes follow the display groups, and draw anew. The painting threads read the flags, so
    /// during a stroke both walks wait for the idle pass behind it.
    void UpdateLockedFlags();
    void UpdateHiddenFlags();
    void ForgetMesh(QLM_Mesh* mesh);
    void ForgetObject(QLM_Object* object);

    /// Half the diagonal of the box of all objects; 1.0 with none or below 1e-10.
    float GetGlobalScale() const { return globalScale; }
    void UpdateGlobalScale();
    /// Box of all shown objects; false with none.
    bool GetSceneBounds(float* minimum, float* maximum);

    QLM_TopTreeGroup* GetTree() { return tree.Get(); }

  private:
    bool MayWalkFlags();

    QLM_Owned<QLM_TopTreeGroup> tree;
    uint32_t currentObjectID = 0;
    float globalScale = 1.0f;
    bool flagsDue = false; ///< a walk was put off
};
