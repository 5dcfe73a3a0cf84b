#include "Maps/QLM_LayerData.h"

QLM_LayerDataSet::~QLM_LayerDataSet() {
    for (const auto& entry : layerData) delete entry.second;
}

QLM_LayerData* QLM_LayerDataSet::FindLayerData(uint32_t id) const {
    const auto found = layerData.find(id);
    return found == layerData.end() ? nullptr : found->second;
}

void QLM_LayerDataSet::SetLayerData(uint32_t id, QLM_LayerData* data) {
    if (FindLayerData(id) == data) return;
    DeleteLayerData(id);
    layerData[id] = data;
}

void QLM_LayerDataSet::DeleteLayerData(uint32_t id) { delete ReleaseLayerData(id); }

QLM_LayerData* QLM_LayerDataSet::ReleaseLayerData(uint32_t id) {
    QLM_LayerData* data = FindLayerData(id);
    layerData.erase(id);
    return data;
}
