#pragma once
// Display groups: the user's device for hiding and locking parts of meshes.

#include "Engine/QLM_Manager.h"

/// Owns the display groups; the map layers belong to the map manager. Main thread.
class QLM_LayerManager : public QLM_Manager {};
