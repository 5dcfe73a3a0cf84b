#pragma once
#include "Engine/QLM_Manager.h"

/// Partners of vertices for tools that act on both sides. Main thread.
class QLM_SymmetryManager : public QLM_Manager {};
