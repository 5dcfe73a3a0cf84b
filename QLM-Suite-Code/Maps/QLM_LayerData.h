#pragma once
// What hangs on a layer, and the sets of it.

#include "Core/Objects/QLM_BaseClass.h"

#include <map>

/// The data of one layer for one owner.
class QLM_LayerData : public virtual QLM_BaseClass {};

/// Data by the ID of the layer (or, for a display group, of the object) that it belongs to. Owns it. Main thread.
class QLM_LayerDataSet : public virtual QLM_BaseClass {
  public:
    ~QLM_LayerDataSet() override;
    QLM_LayerData* FindLayerData(uint32_t id) const; ///< null for none
    void SetLayerData(uint32_t id, QLM_LayerData* data); ///< takes ownership, deletes the former
    void DeleteLayerData(uint32_t id);
    /// Gives the data up to the caller; null for none.
    QLM_LayerData* ReleaseLayerData(uint32_t id);
    bool HasLayerData() const { return !layerData.empty(); }

  protected:
    std::map<uint32_t, QLM_LayerData*> layerData;
};
