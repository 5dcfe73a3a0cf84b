#pragma once
// Fills the overdraw planes of maps: 255 where a polygon covers a pixel in UV.

#include "Core/Threads/QLM_Workhorse.h"

class QLM_MaterialMapSource;

/// Requests are the property "CALCULATE_OVERDRAW_REQUESTED" on a source; results are in its Overdraw plane.
class QLM_OverdrawBufferWorkhorse : public QLM_Workhorse {
  public:
    bool CanBePaused() const override { return false; }
    /// Requests the plane of a map whose bindings or size changed. Main thread.
    static void Request(QLM_MaterialMapSource* source);
    /// Renders the planes of all sources with a request, waiting for the result. Main thread.
    void ResolveRequests();
};
