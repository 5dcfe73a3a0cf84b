#include "Engine/QLM_UndoManager.h"

QLM_Undo_Node* QLM_UndoManager::AddUndoNode(QLM_BaseClass*, QLM_UndoKind, const char*, bool) { return nullptr; }
