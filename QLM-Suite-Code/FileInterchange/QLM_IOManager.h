#pragma once
// The front door of all file reading and writing.

#include "Engine/QLM_Manager.h"

class QLM_Mesh;
class QLM_Object;

enum class QLM_ImporterCode { None = 0, CR2 = 1, OBJ, FBX, PP2, HR2, DSFGeometry, DSFReference, DUF };
enum class QLM_FileType {
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

/// Main thread.
class QLM_IOManager : public QLM_Manager {
  public:
    QLM_IOManager();

    /// Imports a geometry file. `object` may be null. mode 0: by the user; 1: a reload into a given object.
    /// False after one message that names the file and what was wrong; nothing of a failed import stays.
    bool ImportGeometryFile(QLM_Object* object, const std::string& fileReference, QLM_ImporterCode code, int mode);
    /// As if the file were dropped on the canvas: by its extension, objects and pictures (a picture becomes a map).
    bool ImportDroppedFile(const std::string& path);
    bool LoadObject(const std::string& path, QLM_Object* object, bool useInternalNames);
    /// Writes OBJ and MTL beside their targets and renames them; false after one message.
    bool ExportObjectFile(QLM_Mesh* mesh, const std::string& path, bool verticesOnly, bool exportGroups);
    static QLM_ImporterCode ImporterCodeOf(const std::string& path);

    bool ExportVerticesOnly = false, ExportGroups = true, ExportGroupsAsSeparateFiles = false,
         ExportChangedGroups = false;
    bool ExportMorphs = false, UseInternalNameforGroups = false, FlipNormalsOnImport = false;
    bool FlipUVsHorizontallyOnImport = false, FlipUVsVerticallyOnImport = false, CenterOnImport = false;
    bool ScaleOnImport = false, ImportMaps = true, ImportMorphs = true;
    float ScaleFactor = 1.0f;
    bool transientFlag = false; ///< cleared by every idle pass
    /// Named access for scripts and, later, project files; false for an unknown key or a bad value.
    bool SetOption(const std::string& key, const std::string& value, std::string& error);
};
