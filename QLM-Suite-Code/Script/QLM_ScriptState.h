#pragma once
// What the statements of a script share.

#include "Script/QLM_ScriptPlayer.h"
#include "Script/QLM_ScriptWords.h"

#include <map>

class QLM_Material;
class QLM_MaterialMapSource;
class QLM_Object;

struct QLM_ScriptState {
    QLM_ScriptShell shell;
    std::string outFolder, scriptFolder;
    FILE* reports = nullptr;
    size_t messagesSeen = 0; ///< index into the recorded messages up to which `expect` has looked

    std::string ReadPath(const std::string& word) const;  ///< relative to the script's folder
    std::string WritePath(const std::string& word) const; ///< relative to the out folder
    /// Runs one statement (words not empty) and settles; false with a reason.
    bool Run(const QLM_ScriptWords& words, std::string& error);
    /// Idle passes until nothing is left, then one frame; while a button is down only the stroke is drained.
    bool Settle(std::string& error);
};

/// A statement: how many words may follow its name, and what it does. False with a reason.
struct QLM_ScriptStatement {
    size_t minimumWords, maximumWords;
    bool (*run)(QLM_ScriptState&, const QLM_ScriptWords&, std::string&);
};
using QLM_ScriptTable = std::map<std::string, QLM_ScriptStatement>;

void QLM_AddViewStatements(QLM_ScriptTable& table);
void QLM_AddInputStatements(QLM_ScriptTable& table);
void QLM_AddItemStatements(QLM_ScriptTable& table);
void QLM_AddMeshStatements(QLM_ScriptTable& table);
void QLM_AddSelectionStatements(QLM_ScriptTable& table);
void QLM_AddGroupStatements(QLM_ScriptTable& table);
void QLM_AddMorphStatements(QLM_ScriptTable& table);
void QLM_AddReportStatement(QLM_ScriptTable& table);
void QLM_AddLayerStatements(QLM_ScriptTable& table);
/// The verbs of `map` but for `assign`.
bool QLM_RunMapStatement(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error);
/// A line for each layer, and for each map that holds something for it.
void QLM_ReportLayers(FILE* out);

/// One JSON line for each display group, by column.
void QLM_ReportGroups(FILE* out);

/// Finds "NAME" or "NAME#2"; null with a reason that lists what there is.
QLM_Object* QLM_FindScriptObject(const std::string& word, std::string& error);
/// Splits "OBJECT/NAME" into the object and the name inside it; a plain NAME means the current object. Null with a
/// reason.
QLM_Object* QLM_FindScriptObjectOf(const std::string& word, std::string& name, std::string& error);
QLM_Material* QLM_FindScriptMaterial(const std::string& word, std::string& error);
QLM_MaterialMapSource* QLM_FindScriptMap(const std::string& word, std::string& error);
/// `report morphs`: a line for each morph of each object.
void QLM_ReportMorphs(FILE* out);
/// Sets an option by its key in the settings or project file; false with a reason.
bool QLM_SetScriptOption(const std::string& key, const std::string& value, std::string& error);
