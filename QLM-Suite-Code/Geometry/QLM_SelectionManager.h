#pragma once
// Operations of the user on the soft selection, across all objects.

#include "Engine/QLM_Manager.h"

/// Main thread.
class QLM_SelectionManager : public QLM_Manager {};
