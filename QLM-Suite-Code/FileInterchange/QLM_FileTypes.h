#pragma once
// The kinds of files that a user imports and exports.

#include <cstdint>
#include <string>
#include <vector>

enum class QLM_FileType {
    None = -1,
    Maps = 0,
    OBJ,
    Template,
    SelSet,
    MorSet,
    DisplayGroupSet,
    CR2,
    PP2,
    HR2,
    DUF,
    DSF,
    FBX,
    SculptedPrim,
    MorPZ2,
    MatPZ2
};

enum class QLM_ImporterCode { None = 0, CR2 = 1, OBJ, FBX, PP2, HR2, DSFGeometry, DSFReference, DUF };

/// One row of a dialog's list of file kinds.
struct ImportExportInfo {
    QLM_FileType type;
    const char* extension; ///< to offer; "MULTIPLE" and "image" stand for the formats of pictures
    const char* shortName;
    const char* description;
    bool isDefault; ///< the filter that a dialog begins with
};

/// The kinds in the order of the dialogs. Any thread.
const std::vector<ImportExportInfo>& QLM_GetImportTypes();
const std::vector<ImportExportInfo>& QLM_GetExportTypes();
/// The kind of geometry, set or template that an extension (without dot, any case) stands for, else None. Any thread.
QLM_FileType QLM_FileTypeOfExtension(const std::string& extension);
/// The importer for a path's extension, None when no geometry comes from it. Any thread.
QLM_ImporterCode QLM_ImporterCodeOfPath(const std::string& path);
