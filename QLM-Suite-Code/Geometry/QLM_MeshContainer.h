#pragma once
// How the containers of a mesh are told of what happens to it.

#include <vector>

class QLM_Mesh;

/// The notifications, all empty by default.
class QLM_MeshContainerTemp {
  public:
    virtual ~QLM_MeshContainerTemp() = default;
    virtual void OnAfterRawBuild() {}
    virtual void OnAfterSetSizes() {}
    virtual void OnSetVertexCount(int, int) {}        ///< old count, new count
    virtual void OnSetTextureVertexCount(int, int) {}
    virtual void OnSetPolygonCount(int, int) {}
};

class QLM_MeshContainerMesh : public QLM_MeshContainerTemp {
  protected:
    friend class QLM_MeshContainerOwner;
    QLM_Mesh* mesh = nullptr;
};

/// Calls one notification on all registered containers in order.
class QLM_MeshContainerOwner {
  public:
    void Register(QLM_MeshContainerMesh* container, QLM_Mesh* mesh);
    void NotifyAfterRawBuild();
    void NotifyAfterSetSizes();
    void NotifyVertexCount(int oldCount, int newCount);
    void NotifyTextureVertexCount(int oldCount, int newCount);
    void NotifyPolygonCount(int oldCount, int newCount);

  private:
    std::vector<QLM_MeshContainerMesh*> containers;
};
