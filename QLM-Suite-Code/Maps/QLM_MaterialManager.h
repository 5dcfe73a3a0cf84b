#pragma once
#include "Engine/QLM_Manager.h"

/// Operations of the user on materials. Main thread.
class QLM_MaterialManager : public QLM_Manager {};
