#pragma once
#include "Engine/QLM_Manager.h"

/// Subdivision of objects. Main thread.
class QLM_SubDManager : public QLM_Manager {};
