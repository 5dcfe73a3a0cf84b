#pragma once
// Operations of the user on morphs, across all objects.

#include "Engine/QLM_Manager.h"

/// Main thread.
class QLM_MorphManager : public QLM_Manager {};
