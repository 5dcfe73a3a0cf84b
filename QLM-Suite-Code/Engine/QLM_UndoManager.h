#pragma once
// Records of what can be undone. Until its lists exist it keeps none: AddUndoNode answers null.

#include "Engine/QLM_Manager.h"

enum class QLM_UndoKind : uint32_t {
    StepMarker = 1000, Selection, Morph, Paint, ObjectTransform, WholeMap, MapAssignments = 1007, BrushTiling,
    MorphStrengths = 1010, DisplayGroupMembership, DisplayGroupState, PolygonMaterials, MaterialState,
    PolygonGroups, GroupState, MeshArraySizes
};

class QLM_Undo_Node;

class QLM_UndoManager : public QLM_Manager {
  public:
    /// Opens a record; null when none is kept. The manager owns it.
    QLM_Undo_Node* AddUndoNode(QLM_BaseClass* object, QLM_UndoKind kind, const char* text, bool keepRedo = false);
    void OnPaintStrokeOpened() {}
    void OnPaintStrokeClosed() {}
    void ClearLists() {}
};
