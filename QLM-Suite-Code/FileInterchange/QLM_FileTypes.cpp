#include "FileInterchange/QLM_FileTypes.h"

#include "Core/OS/QLM_Files.h"
#include "Core/OS/String_Functions.h"

#include <map>

namespace {

using Type = QLM_FileType;
enum Ways { Export = 1, Import = 2, Both = 3 };

/// A row of both tables; where the two directions differ there is a row for each.
struct Row {
    ImportExportInfo info;
    int ways;
};

const Row rows[] = {
    {{Type::Maps, "MULTIPLE", "Maps", "Image Maps", false}, Export},
    {{Type::OBJ, "OBJ", "OBJ", "OBJ File", true}, Both},
    {{Type::Template, "qlmTemplate", "qlmTemplate", "Quillmere Template", false}, Both},
    {{Type::FBX, "FBX", "FBX", "FBX File", false}, Both},
    {{Type::SculptedPrim, "image", "image", "Sculpted Prim", false}, Export},
    {{Type::SelSet, "SelSet", "SelSet", "Selection Set", false}, Both},
    {{Type::MorSet, "MorSet", "MorSet", "Morph Set", false}, Both},
    {{Type::DisplayGroupSet, "DisplayGroupSet", "DisplayGroupSet", "Display Group Set", false}, Both},
    {{Type::MorPZ2, "PZ2", "MOR (PZ2)", "MOR Injection File", false}, Export},
    {{Type::CR2, "CR2", "CR2", "CR2 File", false}, Both},
    {{Type::MatPZ2, "PZ2", "MAT (PZ2)", "MAT Injection File", false}, Export},
    {{Type::DUF, "DUF", "DUF", "DUF File ( Materials )", false}, Export},
    {{Type::DUF, "DUF", "DUF", "DUF File", false}, Import},
    {{Type::DSF, "DSF", "DSF", "DSF File ( Morphs )", false}, Export},
    {{Type::DSF, "DSF", "DSF", "DSF Morph", false}, Import},
    {{Type::CR2, "CRZ", "CRZ", "Compressed CR2 File", false}, Import},
    {{Type::PP2, "PP2", "PP2", "PP2 File", false}, Import},
    {{Type::PP2, "PPZ", "PPZ", "Compressed PP2 File", false}, Import},
    {{Type::HR2, "HR2", "HR2", "HR2 File", false}, Import},
    {{Type::HR2, "HRZ", "HRZ", "Compressed HR2 File", false}, Import},
};

std::vector<ImportExportInfo> Select(int way) {
    std::vector<ImportExportInfo> selected;
    for (const Row& row : rows)
        if (row.ways & way) selected.push_back(row.info);
    return selected;
}

std::map<std::string, Type> MakeExtensions() {
    std::map<std::string, Type> extensions = {{"objz", Type::OBJ}};
    for (const ImportExportInfo& info : QLM_GetImportTypes())
        extensions.emplace(QLM_ToLower(info.extension), info.type);
    return extensions;
}

} // namespace

const std::vector<ImportExportInfo>& QLM_GetImportTypes() {
    static const std::vector<ImportExportInfo> types = Select(Import);
    return types;
}

const std::vector<ImportExportInfo>& QLM_GetExportTypes() {
    static const std::vector<ImportExportInfo> types = Select(Export);
    return types;
}

QLM_FileType QLM_FileTypeOfExtension(const std::string& extension) {
    static const std::map<std::string, Type> extensions = MakeExtensions();
    const auto found = extensions.find(QLM_ToLower(extension));
    return found == extensions.end() ? Type::None : found->second;
}

QLM_ImporterCode QLM_ImporterCodeOfPath(const std::string& path) {
    const std::string extension = QLM_ExtensionOf(path);
    if (QLM_ToLower(extension) == "obz") return QLM_ImporterCode::OBJ; // what references to packed geometry say
    switch (QLM_FileTypeOfExtension(extension)) {
    case Type::OBJ:
        return QLM_ImporterCode::OBJ;
    case Type::CR2:
        return QLM_ImporterCode::CR2;
    case Type::PP2:
        return QLM_ImporterCode::PP2;
    case Type::HR2:
        return QLM_ImporterCode::HR2;
    case Type::DUF:
        return QLM_ImporterCode::DUF;
    case Type::DSF:
        return QLM_ImporterCode::DSFGeometry;
    case Type::FBX:
        return QLM_ImporterCode::FBX;
    default:
        return QLM_ImporterCode::None;
    }
}
