#pragma once
// What culling, selection and fade by angle leave of a stroke at each vertex.

#include "Engine/QLM_Manager.h"

class QLM_Mesh;

/// Main thread.
class QLM_VertexWeightManager : public QLM_Manager {
  public:
    bool DependsOnShape() const override { return true; }
    void Clear() override {}
    void ForgetMesh(QLM_Mesh*) {}
};
