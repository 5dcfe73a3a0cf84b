#pragma once
// The handlers of the engine's own events, one a group of identifiers. Main thread.

#include "Engine/QLM_Events.h"

int QLM_Events_UnorganizedCB(QLMEvent& event);        ///< 1001 to 1028, general operations
int QLM_Events_InterfaceVariablesCB(QLMEvent& event); ///< 2001 to 2010, nudges of brush properties
int QLM_Events_UpdateInterfaceCB(QLMEvent& event);    ///< 3000 to 3016, coalesced updates of the interface
int QLM_Events_MapsCB(QLMEvent& event);               ///< 4001, maps and materials
int QLM_Events_WXInterfaceCB(QLMEvent& event);        ///< 5001 to 5003, requests to the windows
